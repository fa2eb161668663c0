// How many System V semaphore sets the system holds, and how many it allows.
#ifndef ORU_PLATFORM_SEMAPHORE_LIMITS_H
#define ORU_PLATFORM_SEMAPHORE_LIMITS_H

namespace platform {

struct SemaphoreSetCount {
  long inUse = 0;
  long allowed = 0; // 0 when the system names no limit
};

// False when the system does not tell (then `count` is left as it was).
bool CountSemaphoreSets(SemaphoreSetCount& count);

} // namespace platform

#endif // ORU_PLATFORM_SEMAPHORE_LIMITS_H
