// Open-file-description locks: per open file rather than per process, so
// they are not dropped when the process closes some other descriptor of
// the same file, and they stay with whoever holds the description.
#if !defined(__linux__)
#error "open_file_lock_linux.cpp uses Linux open-file-description locks"
#endif

#include "platform/open_file_lock.h"

#include <fcntl.h>

namespace platform {

namespace {

struct flock WholeFile(short type) {
  struct flock range = {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = 0;
  range.l_len = 0;
  return range;
}

} // namespace

bool TryLockOpenFile(int fd) {
  struct flock range = WholeFile(F_WRLCK);
  return fcntl(fd, F_OFD_SETLK, &range) == 0;
}

bool UnlockOpenFile(int fd) {
  struct flock range = WholeFile(F_UNLCK);
  return fcntl(fd, F_OFD_SETLK, &range) == 0;
}

bool IsOpenFileLocked(int fd, bool& locked) {
  struct flock range = WholeFile(F_WRLCK);
  if (fcntl(fd, F_OFD_GETLK, &range) != 0) {
    return false;
  }
  locked = range.l_type != F_UNLCK;
  return true;
}

} // namespace platform
