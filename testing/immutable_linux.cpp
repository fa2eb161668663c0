// The immutable attribute of Linux file systems (chattr +i).
#if !defined(__linux__)
#error "immutable_linux.cpp uses FS_IOC_SETFLAGS, which only Linux has"
#endif

#include "testing/sandbox.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace oru_testing {

bool SetImmutable(const std::string& path, bool immutable) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  int flags = 0;
  bool ok = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
  if (ok) {
    flags = immutable ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
    ok = ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
  }
  close(fd);
  return ok;
}

} // namespace oru_testing
