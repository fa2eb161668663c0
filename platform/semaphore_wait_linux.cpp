// The kernel waits with its own bound: semtimedop.
#if !defined(__linux__)
#error "semaphore_wait_linux.cpp uses semtimedop, which only Linux has"
#endif

#include "platform/semaphore_wait.h"

namespace platform {

int SemaphoreOperationWithin(int set, struct sembuf& operation, const struct timespec* bound) {
  return bound ? semtimedop(set, &operation, 1, bound) : semop(set, &operation, 1);
}

} // namespace platform
