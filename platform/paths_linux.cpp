// Path operations that macOS answers through Foundation, answered here with
// the same documented rules and POSIX file calls.
#if !defined(__linux__)
#error "paths_linux.cpp is the Linux backend; macOS uses mac/paths_mac.mm"
#endif

#include "platform/foundation_path_rules.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"
#include "platform/utf8.h"

#include <sys/stat.h>

namespace platform {

namespace {

// Foundation cannot make a string from bytes that are not UTF-8; every
// wrapper then gets no string and fails.
bool Representable(const std::string& text) {
  return IsValidUtf8(text);
}

bool StatFollowing(const std::string& path, struct stat& info) {
  return Representable(path) && !path.empty() && ::stat(path.c_str(), &info) == 0;
}

} // namespace

bool ReplacePathExtension(std::string& path, const std::string& ext) {
  if (!Representable(path) || !Representable(ext)) {
    return false;
  }
  std::string replaced;
  if (!foundation::AppendingPathExtension(foundation::DeletingPathExtension(path), ext, replaced)) {
    return false;
  }
  path = replaced;
  return true;
}

bool AppendPathComponentNS(std::string& path, const std::string& component) {
  if (!Representable(path) || !Representable(component)) {
    return false;
  }
  path = foundation::AppendingPathComponent(path, component);
  return true;
}

bool DeleteLastPathComponent(std::string& path) {
  if (!Representable(path)) {
    return false;
  }
  path = foundation::DeletingLastPathComponent(path);
  return true;
}

bool AppendPathExtension(std::string& path, const std::string& ext) {
  if (!Representable(path) || !Representable(ext)) {
    return false;
  }
  std::string extended;
  if (!foundation::AppendingPathExtension(path, ext, extended)) {
    return false;
  }
  path = extended;
  return true;
}

bool DeletePathExtension(std::string& path) {
  if (!Representable(path)) {
    return false;
  }
  path = foundation::DeletingPathExtension(path);
  return true;
}

bool IsBareName(const std::string& path) {
  return Representable(path) && path == foundation::LastPathComponent(path);
}

bool PathExists(const std::string& path) {
  struct stat info;
  return StatFollowing(path, info);
}

bool IsFile(const std::string& path) {
  struct stat info;
  return StatFollowing(path, info) && !S_ISDIR(info.st_mode);
}

bool IsDirectory(const std::string& path) {
  struct stat info;
  return StatFollowing(path, info) && S_ISDIR(info.st_mode);
}

bool GetFileSize(const std::string& path, uint64_t& size) {
  struct stat info;
  if (!Representable(path) || path.empty() || ::lstat(path.c_str(), &info) != 0) {
    return false;
  }
  size = static_cast<uint64_t>(info.st_size);
  return true;
}

bool CreateDirectoryTree(const std::string& path) {
  if (!Representable(path) || path.empty()) {
    return false;
  }
  // Intermediate levels included, each with the system's default folder mode.
  return MakeFolders(path, 0777);
}

} // namespace platform
