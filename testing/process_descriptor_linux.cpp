// Process descriptors from pidfd_open (Linux 5.3 and later).
#if !defined(__linux__)
#error "process_descriptor_linux.cpp uses pidfd_open; elsewhere process_descriptor_posix.cpp"
#endif

#include "testing/child_process.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace oru_testing {

int OpenProcessDescriptor(pid_t pid) {
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

} // namespace oru_testing
