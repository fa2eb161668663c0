// The lock of an open file with flock, whose locks belong to the open file
// description as Linux's open-file-description locks do. flock cannot ask
// whether a lock is held without taking one: a look takes a shared lock
// for an instant and gives it straight back, so a taker at that very
// instant fails its try once (takers try again).
#include "platform/open_file_lock.h"

#include <errno.h>
#include <sys/file.h>

namespace platform {

namespace {

int FlockRetrying(int fd, int operation) {
  int result = 0;
  while ((result = flock(fd, operation)) != 0 && errno == EINTR) {
  }
  return result;
}

} // namespace

bool TryLockOpenFile(int fd) {
  if (FlockRetrying(fd, LOCK_EX | LOCK_NB) == 0) {
    return true;
  }
  if (errno == EWOULDBLOCK) {
    errno = EAGAIN;
  }
  return false;
}

bool UnlockOpenFile(int fd) {
  return FlockRetrying(fd, LOCK_UN) == 0;
}

bool IsOpenFileLocked(int fd, bool& locked) {
  if (FlockRetrying(fd, LOCK_SH | LOCK_NB) == 0) {
    locked = false;
    return FlockRetrying(fd, LOCK_UN) == 0;
  }
  if (errno != EWOULDBLOCK) {
    return false;
  }
  locked = true;
  return true;
}

} // namespace platform
