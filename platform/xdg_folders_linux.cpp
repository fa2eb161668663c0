#include "platform/xdg_folders_linux.h"

#include "platform/identity.h"

#include <unistd.h>

namespace platform {

namespace {

std::string PasswdHome(uid_t uid) {
  UserRecord user;
  return LookUpUser(uid, user) ? user.home : std::string();
}

std::string WithoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

// A base-directory variable counts only when it holds an absolute path;
// relative values are ignored, as the XDG rules require.
std::string AbsoluteOr(const std::string& value, const std::string& fallback) {
  if (!value.empty() && value.front() == '/') {
    return WithoutTrailingSlashes(value);
  }
  return fallback;
}

std::string FirstAbsoluteEntry(const std::string& list, const std::string& fallback) {
  size_t start = 0;
  while (start <= list.size()) {
    const size_t colon = list.find(':', start);
    const size_t end = colon == std::string::npos ? list.size() : colon;
    const std::string entry = list.substr(start, end - start);
    if (!entry.empty() && entry.front() == '/') {
      return WithoutTrailingSlashes(entry);
    }
    if (colon == std::string::npos) {
      break;
    }
    start = colon + 1;
  }
  return fallback;
}

bool UnderHome(const XdgEnvironment& env, const char* relative, std::string& out) {
  if (env.home.empty()) {
    return false;
  }
  out = WithoutTrailingSlashes(env.home) + relative;
  return true;
}

// An XDG base directory: its variable when that holds an absolute path, else
// the default under the home folder.
bool BaseDirectory(const std::string& variable, const XdgEnvironment& env,
                   const char* default_under_home, std::string& out) {
  std::string fallback;
  (void)UnderHome(env, default_under_home, fallback); // stays empty without a home
  const std::string path = AbsoluteOr(variable, fallback);
  if (path.empty()) {
    return false;
  }
  out = path;
  return true;
}

bool UserFolder(FolderType type, const XdgEnvironment& env, std::string& out) {
  std::string base;
  switch (type) {
  case kApplicationSupportFolderType:
    return BaseDirectory(env.data_home, env, "/.local/share", out);
  case kCachesFolderType:
    return BaseDirectory(env.cache_home, env, "/.cache", out);
  case kPreferencesFolderType:
    return BaseDirectory(env.config_home, env, "/.config", out);
  case kTemporaryFolderType:
    out = AbsoluteOr(env.tmpdir, "/tmp");
    return true;
  case kDesktopFolderType:
    return UnderHome(env, "/Desktop", out);
  case kDocumentsFolderType:
    return UnderHome(env, "/Documents", out);
  case kFontsFolderType:
  case kFlntFolderType:
    if (!BaseDirectory(env.data_home, env, "/.local/share", base)) {
      return false;
    }
    out = base + "/fonts";
    return true;
  case kApplicationsFolderType:
    return UnderHome(env, "/.local/bin", out);
  case kDomainTopLevelFolderType:
    if (env.home.empty()) {
      return false;
    }
    out = WithoutTrailingSlashes(env.home);
    return true;
  default:
    return false;
  }
}

bool LocalFolder(FolderType type, const XdgEnvironment& env, std::string& out) {
  switch (type) {
  case kApplicationSupportFolderType:
    out = FirstAbsoluteEntry(env.data_dirs, "/usr/local/share");
    return true;
  case kCachesFolderType:
    out = "/var/cache";
    return true;
  case kPreferencesFolderType:
    out = FirstAbsoluteEntry(env.config_dirs, "/etc/xdg");
    return true;
  case kTemporaryFolderType:
    out = "/var/tmp";
    return true;
  case kFontsFolderType:
  case kFlntFolderType:
    out = "/usr/local/share/fonts";
    return true;
  case kApplicationsFolderType:
  case kUtilitiesFolderType:
    out = "/opt";
    return true;
  case kSystemFolderType:
    out = "/usr";
    return true;
  case kSharedUserDataFolderType:
    out = "/var/lib";
    return true;
  case kDomainTopLevelFolderType:
    out = "/";
    return true;
  default:
    return false;
  }
}

} // namespace

XdgEnvironment XdgEnvironment::FromProcess() {
  XdgEnvironment env;
  env.home = EnvironmentVariable("HOME");
  if (env.home.empty()) {
    env.home = PasswdHome(geteuid());
  }
  env.data_home = EnvironmentVariable("XDG_DATA_HOME");
  env.cache_home = EnvironmentVariable("XDG_CACHE_HOME");
  env.config_home = EnvironmentVariable("XDG_CONFIG_HOME");
  env.state_home = EnvironmentVariable("XDG_STATE_HOME");
  env.data_dirs = EnvironmentVariable("XDG_DATA_DIRS");
  env.config_dirs = EnvironmentVariable("XDG_CONFIG_DIRS");
  env.tmpdir = EnvironmentVariable("TMPDIR");
  return env;
}

XdgEnvironment XdgEnvironment::ForHome(const std::string& home) {
  XdgEnvironment env;
  env.home = home;
  return env;
}

bool XdgFolderPath(FolderDomain domain, FolderType type, const XdgEnvironment& env,
                   std::string& out) {
  std::string path;
  const bool found =
      domain == FolderDomain::kUser ? UserFolder(type, env, path) : LocalFolder(type, env, path);
  if (!found) {
    return false;
  }
  out = path;
  return true;
}

bool XdgUserLogsFolder(const XdgEnvironment& env, std::string& out) {
  return BaseDirectory(env.state_home, env, "/.local/state", out);
}

} // namespace platform
