// The monotonic clock of clock_gettime. (macOS has it only from 10.12; its
// counterpart there counts with mach_absolute_time.)
#if !defined(__linux__)
#error "monotonic_clock_linux.cpp is the Linux clock; macOS counts with mach_absolute_time"
#endif

#include "platform/monotonic_clock.h"

#include <time.h>

namespace platform {

int64_t MonotonicNanoseconds() {
  struct timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

} // namespace platform
