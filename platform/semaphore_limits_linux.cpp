// The limit from /proc/sys/kernel/sem (its fourth number, SEMMNI), the
// sets in use from semctl's SEM_INFO.
#if !defined(__linux__)
#error "semaphore_limits_linux.cpp reads /proc and SEM_INFO, which only Linux has"
#endif

#include "platform/semaphore_limits.h"

#include <fstream>
#include <sys/sem.h>

namespace platform {

bool CountSemaphoreSets(SemaphoreSetCount& count) {
  std::ifstream limits("/proc/sys/kernel/sem");
  long semmsl = 0, semmns = 0, semopm = 0, semmni = 0;
  limits >> semmsl >> semmns >> semopm >> semmni;
  struct seminfo info {};
  const int used = semctl(0, 0, SEM_INFO, reinterpret_cast<struct semid_ds*>(&info));
  if (used < 0) {
    return false;
  }
  count.inUse = info.semusz;
  count.allowed = limits ? semmni : 0;
  return true;
}

} // namespace platform
