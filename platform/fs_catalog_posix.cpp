// Catalog primitives over the POSIX *at calls, each acting through the
// folder descriptor of its FileRef (safe_fs.h).
#include "platform/fs_catalog.h"
#include "platform/fs_ops.h"

#include <errno.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace platform {
namespace catalog {

namespace {

OSErr LastError() {
  return OSErrFromErrno(errno);
}

OSErr StatItem(const FileRef& ref, struct stat& info) {
  return StatEntry(ref.entry.folder, ref.entry.name, info) ? kNoErr : LastError();
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

FileRef ChildRef(const FolderHandle& folder, const std::string& name) {
  FileRef child;
  child.entry.folder = folder;
  child.entry.name = name;
  child.path = child.entry.Path();
  return child;
}

class PosixFolderIterator : public FolderIterator {
public:
  PosixFolderIterator(FolderHandle folder, std::vector<std::string> names)
      : folder_(std::move(folder)), names_(std::move(names)) {}

  OSErr Next(FileRef& item, uint16_t& flags) override {
    if (next_ >= names_.size()) {
      return kNoMoreItemsErr;
    }
    item = ChildRef(folder_, names_[next_++]);
    return GetNodeFlags(item, flags);
  }

private:
  FolderHandle folder_;
  std::vector<std::string> names_;
  size_t next_ = 0;
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
  case EAGAIN:
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
  FileRef resolved;
  struct stat info;
  if (!ResolveEntry(path, follow_final_link, resolved.entry) ||
      !StatEntry(resolved.entry.folder, resolved.entry.name, info)) {
    return LastError();
  }
  resolved.path = resolved.entry.Path();
  ref = resolved;
  return kNoErr;
}

OSErr GetNodeFlags(const FileRef& ref, uint16_t& flags) {
  struct stat info;
  OSErr err = StatItem(ref, info);
  if (err != kNoErr) {
    return err;
  }
  bool locked = false;
  // Only files and folders carry the flag; opening a device or a FIFO to
  // ask could have side effects.
  if (S_ISDIR(info.st_mode) || S_ISREG(info.st_mode)) {
    err = ReadLocked(ref, locked);
    if (err != kNoErr) {
      return err;
    }
  }
  flags = NodeFlags(info, locked);
  return kNoErr;
}

OSErr SetNodeFlags(const FileRef& ref, uint16_t flags) {
  return WriteLocked(ref, (flags & kNodeLockedMask) != 0);
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
  return ChangeMode(ref.entry.folder, ref.entry.name, mode) ? kNoErr : LastError();
}

OSErr SetOwnership(const FileRef& ref, uint32_t owner, uint32_t group) {
  return ChangeOwner(ref.entry.folder, ref.entry.name, owner, group) ? kNoErr : LastError();
}

OSErr GetContentModificationDate(const FileRef& ref, uint64_t& date) {
  struct stat info;
  const OSErr err = StatItem(ref, info);
  if (err != kNoErr) {
    return err;
  }
  date = ModificationDateOf(info);
  return kNoErr;
}

OSErr SetContentModificationDate(const FileRef& ref, uint64_t date) {
  return SetModificationTime(ref.entry.folder, ref.entry.name, date) ? kNoErr : LastError();
}

OSErr GetVolumeFlags(const FileRef& ref, uint16_t& flags) {
  // The volume of the folder that holds the item: an item is on its
  // folder's volume unless it is a mount point, and asking this way also
  // answers for a link, dangling or not, without following it.
  struct statvfs volume;
  if (fstatvfs(ref.entry.folder.fd(), &volume) != 0) {
    return LastError();
  }
  // A read-only mount is what a software-locked volume is on macOS.
  flags = (volume.f_flag & ST_RDONLY) ? kVolumeSoftwareLockedMask : 0;
  return kNoErr;
}

OSErr DeleteObject(const FileRef& ref) {
  struct stat info;
  const OSErr err = StatItem(ref, info);
  if (err != kNoErr) {
    return err;
  }
  return RemoveEntry(ref.entry.folder, ref.entry.name, S_ISDIR(info.st_mode)) ? kNoErr
                                                                              : LastError();
}

OSErr OpenIterator(const FileRef& folder, std::unique_ptr<FolderIterator>& iterator) {
  FolderHandle handle;
  const bool opened = folder.entry.name == "."
                          ? (handle = folder.entry.folder, true)
                          : OpenSubfolder(folder.entry.folder, folder.entry.name, handle);
  std::vector<std::string> names;
  if (!opened || !ListFolder(handle, names)) {
    return LastError();
  }
  iterator = std::make_unique<PosixFolderIterator>(std::move(handle), std::move(names));
  return kNoErr;
}

} // namespace catalog

// macOS names the field st_mtimespec; its backend defines this function.
uint64_t ModificationDateOf(const struct stat& info) {
  return static_cast<uint64_t>(info.st_mtim.tv_sec) * 1000000000u +
         static_cast<uint64_t>(info.st_mtim.tv_nsec);
}

} // namespace platform
