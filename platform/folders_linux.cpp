// Folder lookups on Linux: the XDG / FHS counterparts of the Folder Manager's
// folders, looked up for the console user where the product asks for that.
#if !defined(__linux__)
#error "folders_linux.cpp is the Linux backend; macOS uses mac/folders_mac.mm"
#endif

#include "platform/console_user.h"
#include "platform/folders.h"
#include "platform/folders_internal.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"
#include "platform/xdg_folders_linux.h"

#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

constexpr mode_t kUserFolderMode = 0700;
constexpr mode_t kLocalFolderMode = 0755;

// Creates each missing level of an absolute path with `mode`, giving each
// the owner and group of the folder above it; existing levels are left as
// they are.
bool MakeMissingLevels(const std::string& path, mode_t mode) {
  return MakeFolders(path, mode);
}

bool FindFolderIn(const XdgEnvironment& env, FolderDomain domain, FolderType type, bool create,
                  std::string& out) {
  std::string path;
  if (!XdgFolderPath(domain, type, env, path) || path.size() >= kMaxFolderPathBytes) {
    return false;
  }
  const mode_t mode = domain == FolderDomain::kUser ? kUserFolderMode : kLocalFolderMode;
  if (create && !MakeMissingLevels(path, mode)) {
    return false;
  }
  // Without `create`, only an existing folder is found.
  if (!IsDirectory(path)) {
    return false;
  }
  out = path;
  return true;
}

// Whose folders a console-user lookup resolves: the process's own when there
// is no console user or it is the current user, otherwise the console
// user's home with the defaults under it (this process's variables describe
// another user then).
struct ConsoleIdentity {
  uid_t uid;
  XdgEnvironment env;
};

ConsoleIdentity CurrentConsoleIdentity() {
  ConsoleUser user;
  if (GetConsoleUser(user) && user.uid != geteuid()) {
    return {user.uid, XdgEnvironment::ForHome(user.home)};
  }
  return {geteuid(), XdgEnvironment::FromProcess()};
}

} // namespace

bool FindFolder(FolderDomain domain, FolderType type, bool create, std::string& out) {
  return FindFolderIn(XdgEnvironment::FromProcess(), domain, type, create, out);
}

bool FolderPathOf(FolderDomain domain, FolderType type, std::string& out) {
  std::string path;
  if (!XdgFolderPath(domain, type, XdgEnvironment::FromProcess(), path) ||
      path.size() >= kMaxFolderPathBytes) {
    return false;
  }
  out = path;
  return true;
}

std::string HomeDirectory() {
  return XdgEnvironment::FromProcess().home;
}

bool GetHomeFolder(std::string& out) {
  // The folder lookup hands out at most kMaxFolderPathBytes with the
  // terminating NUL; a longer home cannot be looked up.
  const std::string home = HomeDirectory();
  if (!home.empty() && home.size() < kMaxFolderPathBytes) {
    out = home;
  }
  return true;
}

bool GetConsoleUserHome(std::string& out) {
  const ConsoleIdentity console = CurrentConsoleIdentity();
  if (console.uid == geteuid()) {
    return GetHomeFolder(out);
  }
  const ScopedEffectiveUser as_console(console.uid);
  if (!as_console.active()) {
    return false;
  }
  if (!console.env.home.empty()) {
    out = console.env.home;
  }
  return true;
}

bool GetUserLogsFolder(std::string& out) {
  std::string home;
  if (!GetConsoleUserHome(home)) {
    return false;
  }
  // Made after the console user's identity has been given up again, as the
  // other programs do; but where they leave a root-made level owned by root
  // inside the user's home, each new level here takes the owner and group
  // of the folder it is made in, so under a console user's home it belongs
  // to that user.
  std::string logs;
  if (!XdgUserLogsFolder(CurrentConsoleIdentity().env, logs) ||
      !MakeMissingLevels(logs, kUserFolderMode)) {
    return false;
  }
  out = logs;
  return true;
}

bool LookUpUserLogsFolder(std::string& out) {
  std::string home;
  std::string logs;
  if (!GetConsoleUserHome(home) || !XdgUserLogsFolder(CurrentConsoleIdentity().env, logs)) {
    return false;
  }
  out = logs;
  return true;
}

namespace internal {

bool FindFolderAsConsoleUser(FolderDomain domain, FolderType type, bool create, std::string& out) {
  const ConsoleIdentity console = CurrentConsoleIdentity();
  // A failed switch leaves the lookup to run as the current user.
  const ScopedEffectiveUser as_console(console.uid);
  return FindFolderIn(console.env, domain, type, create, out);
}

bool MakeConsoleUserLogsFolderAsConsoleUser(std::string& out) {
  const ConsoleIdentity console = CurrentConsoleIdentity();
  const ScopedEffectiveUser as_console(console.uid);
  std::string logs;
  if (!XdgUserLogsFolder(console.env, logs) || !MakeMissingLevels(logs, kUserFolderMode)) {
    return false;
  }
  out = logs;
  return true;
}

} // namespace internal

} // namespace platform
