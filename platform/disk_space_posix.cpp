#include "platform/disk_space.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace platform {

bool GetDiskSpace(const std::string& path, DiskSpace& out) {
  std::string level = path;
  while (!IsDirectory(level) && level != DirName(level)) {
    level = DirName(level);
  }
  FolderHandle folder;
  struct stat info;
  struct statvfs disk;
  if (!OpenFolder(level, folder) || fstat(folder.fd(), &info) != 0 ||
      fstatvfs(folder.fd(), &disk) != 0) {
    return false;
  }
  out.device = info.st_dev;
  out.freeBytes = static_cast<uint64_t>(disk.f_bavail) * disk.f_frsize;
  return true;
}

} // namespace platform
