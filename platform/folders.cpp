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

// The base of a kind that appends a suffix, and whose lookup result is
// deliberately ignored: true means "the path is known".
enum class SuffixBase { kLocalSupport, kConsoleSupport, kLocalSharedData, kLocalUtilities };

struct SuffixKind {
  StandardPathKind kind;
  SuffixBase base;
  const char* suffix;
};

constexpr std::array<SuffixKind, 13> kSuffixKinds = {{
    {StandardPathKind::kLocalNuvex, SuffixBase::kLocalSupport, "/Nuvex"},
    {StandardPathKind::kConsoleNuvex, SuffixBase::kConsoleSupport, "/Nuvex"},
    {StandardPathKind::kSharedNuvex, SuffixBase::kLocalSharedData, "/Nuvex"},
    {StandardPathKind::kLocalOobe, SuffixBase::kLocalSupport, "/Nuvex/OOBE"},
    {StandardPathKind::kConsoleOobe, SuffixBase::kConsoleSupport, "/Nuvex/OOBE"},
    {StandardPathKind::kSharedOobe, SuffixBase::kLocalSharedData, "/Nuvex/OOBE"},
    {StandardPathKind::kApplicationManager, SuffixBase::kLocalUtilities,
     "/Nuvex Application Manager/"},
    {StandardPathKind::kLocalZelto, SuffixBase::kLocalSupport, "/Nuvex/OOBE/Zelto"},
    {StandardPathKind::kConsoleZelto, SuffixBase::kConsoleSupport, "/Nuvex/OOBE/Zelto"},
    {StandardPathKind::kOruRefs, SuffixBase::kLocalSupport,
     "/Nuvex/NuvexApplicationManager/OruRefs"},
    {StandardPathKind::kNdcRefs, SuffixBase::kLocalSupport, "/Nuvex/NdcRefs"},
    {StandardPathKind::kDesktopCommon, SuffixBase::kLocalSupport, "/Nuvex/Nuvex Desktop Common"},
    {StandardPathKind::kVornica, SuffixBase::kLocalUtilities, "/Nuvex Vornica/"},
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

bool GetSuffixedStandardPath(StandardPathKind kind, std::string& out) {
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

namespace {

// Kind 14 ("/") is answered at once; any other kind is looked up with
// `look_up` on its domain and type. Unknown kinds fail.
template <typename LookUp>
bool ResolveSystemFolder(SystemFolderKind kind, std::string& out, LookUp look_up) {
  if (kind == SystemFolderKind::kRoot) {
    out = "/";
    return true;
  }
  const int number = static_cast<int>(kind);
  if (number < 0 || number >= static_cast<int>(kSystemFolderKinds.size())) {
    return false;
  }
  const FolderSpec& spec = kSystemFolderKinds[static_cast<size_t>(number)];
  return look_up(spec.domain, spec.type);
}

} // namespace

bool FindSystemFolder(SystemFolderKind kind, std::string& out, bool create) {
  return ResolveSystemFolder(kind, out, [&](FolderDomain domain, FolderType type) {
    return FindFolder(domain, type, create, out);
  });
}

bool SystemFolderPathOf(SystemFolderKind kind, std::string& out) {
  return ResolveSystemFolder(kind, out, [&](FolderDomain domain, FolderType type) {
    return FolderPathOf(domain, type, out);
  });
}

void GetUserNuvexSupportFolder(std::string& out) {
  AppendToBase(SuffixBase::kConsoleSupport, "/Nuvex", out);
}

bool GetStandardPath(StandardPathKind kind, std::string& out) {
  switch (kind) {
  case StandardPathKind::kLocalApplications:
    return FindFolderPath(kLocal, kApplicationsFolderType, out);
  case StandardPathKind::kLocalSupportKind2:
  case StandardPathKind::kLocalSupportKind3:
    return FindFolderPath(kLocal, kApplicationSupportFolderType, out);
  case StandardPathKind::kHome:
    out = HomeDirectory();
    return true;
  case StandardPathKind::kConsoleDocuments:
    (void)FindConsoleUserFolder(kDocumentsFolderType, out);
    return true;
  case StandardPathKind::kConsoleSupport:
    (void)FindConsoleUserFolder(kApplicationSupportFolderType, out);
    return true;
  case StandardPathKind::kLocalSharedData:
    (void)FindFolderPath(kLocal, kSharedUserDataFolderType, out);
    return true;
  case StandardPathKind::kTmp:
    out = "/tmp";
    return true;
  case StandardPathKind::kBundleFolder:
    (void)GetBundleFolder(out);
    return true;
  case StandardPathKind::kBundleParent:
    (void)GetBundleFolder(out);
    (void)DeleteLastPathComponent(out);
    return true;
  case StandardPathKind::kLocalPreferences:
    return FindFolderPath(kLocal, kPreferencesFolderType, out);
  case StandardPathKind::kConsoleLogs:
    return internal::MakeConsoleUserLogsFolderAsConsoleUser(out);
  default:
    return GetSuffixedStandardPath(kind, out);
  }
}

} // namespace platform
