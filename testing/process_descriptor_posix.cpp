// POSIX has no descriptor for a process.
#include "testing/child_process.h"

namespace oru_testing {

int OpenProcessDescriptor(pid_t) {
  return -1;
}

} // namespace oru_testing
