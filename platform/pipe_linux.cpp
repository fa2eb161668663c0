// The pipe made and marked at once: pipe2.
#if !defined(__linux__)
#error "pipe_linux.cpp uses pipe2; elsewhere pipe_posix.cpp"
#endif

#include "platform/pipe.h"

#include <fcntl.h>
#include <unistd.h>

namespace platform {

bool MakeCloseOnExecPipe(int ends[2]) {
  return pipe2(ends, O_CLOEXEC) == 0;
}

} // namespace platform
