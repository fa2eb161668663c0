// POSIX names no call that counts the semaphore sets of the system.
#include "platform/semaphore_limits.h"

namespace platform {

bool CountSemaphoreSets(SemaphoreSetCount&) {
  return false;
}

} // namespace platform
