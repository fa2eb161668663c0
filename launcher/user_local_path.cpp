#include "launcher/user_local_path.h"

#include "esd/updater_prefs.h"

namespace {

constexpr int kUserSupportKind = 7;
constexpr int kUserTemporaryKind = 2;

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
  return GetUpdaterFolder(kUserSupportKind, out) || GetUpdaterFolder(kUserTemporaryKind, out);
}
