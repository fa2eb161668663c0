// The pipe made, then each end marked.
#include "platform/pipe.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace platform {

bool MakeCloseOnExecPipe(int ends[2]) {
  if (pipe(ends) != 0) {
    return false;
  }
  if (fcntl(ends[0], F_SETFD, FD_CLOEXEC) == 0 && fcntl(ends[1], F_SETFD, FD_CLOEXEC) == 0) {
    return true;
  }
  const int failure = errno;
  close(ends[0]);
  close(ends[1]);
  errno = failure;
  return false;
}

} // namespace platform
