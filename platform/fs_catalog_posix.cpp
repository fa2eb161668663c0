// Catalog primitives over POSIX calls. Items are named by path; a FileRef
// made by following a link names the link's target.
#include "platform/fs_catalog.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <memory>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace platform {
namespace catalog {

namespace {

OSErr LastError() {
  return OSErrFromErrno(errno);
}

OSErr StatItem(const FileRef& ref, struct stat& info) {
  return ::lstat(ref.path.c_str(), &info) == 0 ? kNoErr : LastError();
}

// 16 bits: the type and permission bits of the mode, as the catalog reports.
uint16_t CatalogMode(mode_t mode) {
  return static_cast<uint16_t>(mode & 0xFFFF);
}

uint16_t NodeFlags(const struct stat& info, bool locked) {
  uint16_t flags = 0;
  if (S_ISDIR(info.st_mode)) {
    flags |= kNodeIsDirectoryMask;
  }
  if (locked) {
    flags |= kNodeLockedMask;
  }
  return flags;
}

OSErr ItemFlags(const std::string& path, uint16_t& flags) {
  struct stat info;
  if (::lstat(path.c_str(), &info) != 0) {
    return LastError();
  }
  bool locked = false;
  const OSErr err = ReadLocked(path, S_ISDIR(info.st_mode) || S_ISREG(info.st_mode), locked);
  if (err != kNoErr) {
    return err;
  }
  flags = NodeFlags(info, locked);
  return kNoErr;
}

class PosixFolderIterator : public FolderIterator {
public:
  PosixFolderIterator(std::string folder, DIR* dir) : folder_(std::move(folder)), dir_(dir) {}
  ~PosixFolderIterator() override { closedir(dir_); }

  OSErr Next(FileRef& item, uint16_t& flags) override {
    while (true) {
      errno = 0;
      const struct dirent* entry = readdir(dir_);
      if (!entry) {
        return errno == 0 ? kNoMoreItemsErr : LastError();
      }
      const std::string name = entry->d_name;
      if (name == "." || name == "..") {
        continue;
      }
      item.path = folder_ + "/" + name;
      return ItemFlags(item.path, flags);
    }
  }

private:
  std::string folder_;
  DIR* dir_;
};

} // namespace

OSErr OSErrFromErrno(int error) {
  switch (error) {
  case 0:
    return kNoErr;
  case ENOENT:
    return kFileNotFoundErr;
  case ENOTDIR:
    return kDirNotFoundErr;
  case EEXIST:
    return kDuplicateNameErr;
  case EACCES:
    return kAccessDeniedErr;
  case EPERM:
    return kPermErr;
  case EROFS:
    return kVolumeLockedErr;
  case ENOSPC:
  case EDQUOT:
    return kDiskFullErr;
  case EMLINK:
    return kDirFullErr;
  case ENAMETOOLONG:
  case ELOOP:
  case EINVAL:
    return kBadNameErr;
  case ENOTEMPTY:
  case EBUSY:
  case ETXTBSY:
    return kFileBusyErr;
  case ENOMEM:
    return kMemFullErr;
  default:
    return kIOErr;
  }
}

OSErr Resolve(const std::string& path, bool follow_final_link, FileRef& ref) {
  if (path.empty()) {
    return kFileNotFoundErr;
  }
  if (!follow_final_link) {
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0) {
      return LastError();
    }
    ref.path = path;
    return kNoErr;
  }
  std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
  if (!resolved) {
    return LastError();
  }
  ref.path = resolved.get();
  return kNoErr;
}

OSErr GetNodeFlags(const FileRef& ref, uint16_t& flags) {
  return ItemFlags(ref.path, flags);
}

OSErr SetNodeFlags(const FileRef& ref, uint16_t flags) {
  return WriteLocked(ref.path, (flags & kNodeLockedMask) != 0);
}

OSErr GetPermissions(const FileRef& ref, Permissions& permissions) {
  struct stat info;
  const OSErr err = StatItem(ref, info);
  if (err != kNoErr) {
    return err;
  }
  permissions.owner = info.st_uid;
  permissions.group = info.st_gid;
  permissions.mode = CatalogMode(info.st_mode);
  return kNoErr;
}

OSErr SetMode(const FileRef& ref, uint16_t mode) {
  return ::chmod(ref.path.c_str(), mode & 07777) == 0 ? kNoErr : LastError();
}

OSErr SetOwnership(const FileRef& ref, uint32_t owner, uint32_t group) {
  return ::lchown(ref.path.c_str(), owner, group) == 0 ? kNoErr : LastError();
}

OSErr GetContentModificationDate(const FileRef& ref, uint64_t& date) {
  struct stat info;
  const OSErr err = StatItem(ref, info);
  if (err != kNoErr) {
    return err;
  }
  date = static_cast<uint64_t>(info.st_mtim.tv_sec) * 1000000000u +
         static_cast<uint64_t>(info.st_mtim.tv_nsec);
  return kNoErr;
}

OSErr SetContentModificationDate(const FileRef& ref, uint64_t date) {
  const struct timespec times[2] = {
      {0, UTIME_OMIT},
      {static_cast<time_t>(date / 1000000000u), static_cast<long>(date % 1000000000u)}};
  return ::utimensat(AT_FDCWD, ref.path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 ? kNoErr
                                                                                  : LastError();
}

OSErr GetVolumeFlags(const FileRef& ref, uint16_t& flags) {
  struct statvfs volume;
  if (::statvfs(ref.path.c_str(), &volume) != 0) {
    return LastError();
  }
  // A read-only mount is what a software-locked volume is on macOS.
  flags = (volume.f_flag & ST_RDONLY) ? kVolumeSoftwareLockedMask : 0;
  return kNoErr;
}

OSErr CreateDirectory(const FileRef& parent, const std::string& name, FileRef& created) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
    return kBadNameErr;
  }
  const std::string path = parent.path == "/" ? "/" + name : parent.path + "/" + name;
  if (::mkdir(path.c_str(), 0777) != 0) {
    return LastError();
  }
  created.path = path;
  return kNoErr;
}

OSErr DeleteObject(const FileRef& ref) {
  struct stat info;
  const OSErr err = StatItem(ref, info);
  if (err != kNoErr) {
    return err;
  }
  const int result = S_ISDIR(info.st_mode) ? ::rmdir(ref.path.c_str()) : ::unlink(ref.path.c_str());
  return result == 0 ? kNoErr : LastError();
}

OSErr OpenIterator(const FileRef& folder, std::unique_ptr<FolderIterator>& iterator) {
  DIR* dir = opendir(folder.path.c_str());
  if (!dir) {
    return LastError();
  }
  iterator = std::make_unique<PosixFolderIterator>(folder.path, dir);
  return kNoErr;
}

} // namespace catalog
} // namespace platform
