#include "launcher/user_local_path.h"

#include "esd/updater_prefs.h"

namespace {

std::string& Cache() {
  static std::string cache;
  return cache;
}

} // namespace

void SetUserLocalPathCache(const std::string& path) {
  Cache() = path;
}

bool GetUserLocalPath(std::string& out) {
  if (!Cache().empty()) {
    out = Cache();
    return true;
  }
  return GetUpdaterFolder(platform::SystemFolderKind::kUserSupport, out) ||
         GetUpdaterFolder(platform::SystemFolderKind::kLocalTemporary, out);
}

bool LookUpUserLocalPath(std::string& out) {
  if (!Cache().empty()) {
    out = Cache();
    return true;
  }
  return LookUpUpdaterFolder(platform::SystemFolderKind::kUserSupport, out) ||
         LookUpUpdaterFolder(platform::SystemFolderKind::kLocalTemporary, out);
}
