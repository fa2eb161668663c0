// The two folder numberings of the product, on top of the system's
// domain + folder type lookup.
#include "platform/folders.h"

#include "platform/folders_internal.h"
#include "platform/foundation_path_rules.h"
#include "platform/identity.h"
#include "platform/paths.h"

#include <array>

namespace platform {

namespace {

struct FolderSpec {
  FolderType type;
  FolderDomain domain;
};

constexpr FolderDomain kUser = FolderDomain::kUser;
constexpr FolderDomain kLocal = FolderDomain::kLocal;

// FindSystemFolder kinds 0-13; kind 14 is the root and needs no lookup.
constexpr std::array<FolderSpec, 14> kSystemFolderKinds = {{
    {kFlntFolderType, kUser},                // 0
    {kTemporaryFolderType, kUser},           // 1
    {kTemporaryFolderType, kLocal},          // 2
    {kDesktopFolderType, kUser},             // 3
    {kDocumentsFolderType, kUser},           // 4
    {kCachesFolderType, kUser},              // 5
    {kPreferencesFolderType, kUser},         // 6
    {kApplicationSupportFolderType, kUser},  // 7
    {kApplicationSupportFolderType, kLocal}, // 8
    {kApplicationSupportFolderType, kLocal}, // 9
    {kFontsFolderType, kLocal},              // 10
    {kSystemFolderType, kLocal},             // 11
    {kSystemFolderType, kLocal},             // 12
    {kApplicationSupportFolderType, kLocal}, // 13
}};

constexpr int kRootSystemFolderKind = 14;

// The base of a kind that appends a suffix, and whose lookup result is
// deliberately ignored: true means "the path is known".
enum class SuffixBase { kLocalSupport, kConsoleSupport, kLocalSharedData, kLocalUtilities };

struct SuffixKind {
  int kind;
  SuffixBase base;
  const char* suffix;
};

constexpr std::array<SuffixKind, 13> kSuffixKinds = {{
    {18, SuffixBase::kLocalSupport, "/Nuvex"},
    {19, SuffixBase::kConsoleSupport, "/Nuvex"},
    {20, SuffixBase::kLocalSharedData, "/Nuvex"},
    {21, SuffixBase::kLocalSupport, "/Nuvex/OOBE"},
    {22, SuffixBase::kConsoleSupport, "/Nuvex/OOBE"},
    {23, SuffixBase::kLocalSharedData, "/Nuvex/OOBE"},
    {24, SuffixBase::kLocalUtilities, "/Nuvex Application Manager/"},
    {25, SuffixBase::kLocalSupport, "/Nuvex/OOBE/Zelto"},
    {26, SuffixBase::kConsoleSupport, "/Nuvex/OOBE/Zelto"},
    {27, SuffixBase::kLocalSupport, "/Nuvex/NuvexApplicationManager/OruRefs"},
    {28, SuffixBase::kLocalSupport, "/Nuvex/NdcRefs"},
    {29, SuffixBase::kLocalSupport, "/Nuvex/Nuvex Desktop Common"},
    {30, SuffixBase::kLocalUtilities, "/Nuvex Vornica/"},
}};

bool FindConsoleUserFolder(FolderType type, std::string& out) {
  return internal::FindFolderAsConsoleUser(kUser, type, /*create=*/true, out);
}

void AppendToBase(SuffixBase base, const char* suffix, std::string& out) {
  // The base lookup may fail and leave `out` as it was; the suffix is
  // appended all the same.
  switch (base) {
  case SuffixBase::kLocalSupport:
    (void)FindFolderPath(kLocal, kApplicationSupportFolderType, out);
    break;
  case SuffixBase::kConsoleSupport:
    (void)FindConsoleUserFolder(kApplicationSupportFolderType, out);
    break;
  case SuffixBase::kLocalSharedData:
    (void)FindFolderPath(kLocal, kSharedUserDataFolderType, out);
    break;
  case SuffixBase::kLocalUtilities:
    (void)FindFolderPath(kLocal, kUtilitiesFolderType, out);
    break;
  }
  out += suffix;
}

bool GetSuffixedStandardPath(int kind, std::string& out) {
  for (const SuffixKind& entry : kSuffixKinds) {
    if (entry.kind == kind) {
      AppendToBase(entry.base, entry.suffix, out);
      return true;
    }
  }
  return false;
}

} // namespace

namespace internal {

std::string BundlePathForExecutable(const std::string& executable_path) {
  static const std::string kExecutableFolder = "/Contents/MacOS";
  static const std::string kBundleExtension = ".app";
  const std::string folder = foundation::DeletingLastPathComponent(executable_path);
  const auto ends_with = [](const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
  };
  if (ends_with(folder, kExecutableFolder)) {
    const std::string bundle = folder.substr(0, folder.size() - kExecutableFolder.size());
    if (ends_with(bundle, kBundleExtension)) {
      return bundle;
    }
  }
  return folder;
}

std::string SelectBundleFolder(const std::string& executable_path, const std::string& bundle_path) {
  const std::string executable_folder =
      foundation::StandardizingPath(foundation::DeletingLastPathComponent(executable_path));
  const std::string standard_bundle = foundation::StandardizingPath(bundle_path);
  if (executable_folder == standard_bundle) {
    return executable_path;
  }
  return standard_bundle;
}

} // namespace internal

namespace foundation {

bool ProcessHomes(const std::string& user, std::string& home) {
  if (user.empty()) {
    home = HomeDirectory();
    return !home.empty();
  }
  UserRecord record;
  if (!LookUpUserByName(user, record) || record.home.empty()) {
    return false;
  }
  home = record.home;
  return true;
}

} // namespace foundation

bool FindFolderPath(FolderDomain domain, FolderType type, std::string& out) {
  return FindFolder(domain, type, /*create=*/true, out);
}

bool FindSystemFolder(int kind, std::string& out, bool create) {
  if (kind == kRootSystemFolderKind) {
    out = "/";
    return true;
  }
  if (kind < 0 || kind >= static_cast<int>(kSystemFolderKinds.size())) {
    return false;
  }
  const FolderSpec& spec = kSystemFolderKinds[static_cast<size_t>(kind)];
  return FindFolder(spec.domain, spec.type, create, out);
}

void GetUserNuvexSupportFolder(std::string& out) {
  AppendToBase(SuffixBase::kConsoleSupport, "/Nuvex", out);
}

bool GetStandardPath(int kind, std::string& out) {
  switch (kind) {
  case 0:
    return FindFolderPath(kLocal, kApplicationsFolderType, out);
  case 2:
  case 3:
    return FindFolderPath(kLocal, kApplicationSupportFolderType, out);
  case 9:
    out = HomeDirectory();
    return true;
  case 10:
    (void)FindConsoleUserFolder(kDocumentsFolderType, out);
    return true;
  case 12:
    (void)FindConsoleUserFolder(kApplicationSupportFolderType, out);
    return true;
  case 13:
    (void)FindFolderPath(kLocal, kSharedUserDataFolderType, out);
    return true;
  case 15:
    out = "/tmp";
    return true;
  case 16:
    (void)GetBundleFolder(out);
    return true;
  case 17:
    (void)GetBundleFolder(out);
    (void)DeleteLastPathComponent(out);
    return true;
  case 31:
    return FindFolderPath(kLocal, kPreferencesFolderType, out);
  case 32:
    return internal::MakeConsoleUserLogsFolderAsConsoleUser(out);
  default:
    return GetSuffixedStandardPath(kind, out);
  }
}

} // namespace platform
