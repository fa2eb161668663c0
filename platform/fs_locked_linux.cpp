// The "locked" attribute of an item on Linux: the immutable inode flag.
#if !defined(__linux__)
#error "fs_locked_linux.cpp is the Linux backend; macOS uses UF_IMMUTABLE in mac/fs_ops_mac.mm"
#endif

#include "platform/fs_catalog.h"
#include "platform/identity.h"
#include "platform/scoped_fd.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace platform {
namespace catalog {

namespace {

// Errors that mean "this file system keeps no such flag".
bool FlagsUnsupported(int error) {
  return error == ENOTTY || error == ENOSYS || error == EOPNOTSUPP || error == EINVAL;
}

// The item itself, never what a link names; a FIFO does not block the open.
int OpenForFlags(const FileRef& ref) {
  return openat(ref.entry.folder.fd(), ref.entry.name.c_str(),
                O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
}

} // namespace

OSErr ReadLocked(const FileRef& ref, bool& locked) {
  locked = false;
  const ScopedFd fd(OpenForFlags(ref));
  if (!fd.valid()) {
    // An item this process may not open cannot be asked; it is treated as
    // unlocked, and any later change to it reports its own error.
    return kNoErr;
  }
  int flags = 0;
  if (ioctl(fd.get(), FS_IOC_GETFLAGS, &flags) != 0) {
    return FlagsUnsupported(errno) ? kNoErr : OSErrFromErrno(errno);
  }
  locked = (flags & FS_IMMUTABLE_FL) != 0;
  return kNoErr;
}

OSErr WriteLocked(const FileRef& ref, bool locked) {
  const ScopedActAsUser as_owner(ref.entry.folder.owner(), ref.entry.folder.info().st_gid);
  if (!as_owner.ok()) {
    return OSErrFromErrno(errno);
  }
  const ScopedFd fd(OpenForFlags(ref));
  if (!fd.valid()) {
    return OSErrFromErrno(errno);
  }
  int flags = 0;
  if (ioctl(fd.get(), FS_IOC_GETFLAGS, &flags) != 0) {
    return (FlagsUnsupported(errno) && !locked) ? kNoErr : OSErrFromErrno(errno);
  }
  const int wanted = locked ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
  if (wanted == flags) {
    return kNoErr;
  }
  return ioctl(fd.get(), FS_IOC_SETFLAGS, &wanted) == 0 ? kNoErr : OSErrFromErrno(errno);
}

} // namespace catalog
} // namespace platform
