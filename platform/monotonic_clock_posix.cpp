#include "platform/monotonic_clock.h"

#include <time.h>

namespace platform {

int64_t MonotonicNanoseconds() {
  struct timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

} // namespace platform
