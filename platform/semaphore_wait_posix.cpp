// A bounded semaphore wait with semop alone: tries without waiting,
// sleeping a little longer after each failed try (1 ms, 2 ms, ... 10 ms),
// until the bound has passed on the monotonic clock.
#include "platform/monotonic_clock.h"
#include "platform/semaphore_wait.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace platform {

namespace {

constexpr int64_t kFirstPauseNs = 1000000;
constexpr int64_t kLongestPauseNs = 10000000;

int64_t Nanoseconds(const struct timespec& span) {
  return static_cast<int64_t>(span.tv_sec) * 1000000000 + span.tv_nsec;
}

} // namespace

int SemaphoreOperationWithin(int set, struct sembuf& operation, const struct timespec* bound) {
  if (!bound || (operation.sem_flg & IPC_NOWAIT) != 0) {
    return semop(set, &operation, 1);
  }
  const int64_t deadline = MonotonicNanoseconds() + Nanoseconds(*bound);
  struct sembuf attempt = operation;
  attempt.sem_flg = static_cast<short>(attempt.sem_flg | IPC_NOWAIT);
  int64_t pause = kFirstPauseNs;
  while (semop(set, &attempt, 1) != 0) {
    const int64_t left = deadline - MonotonicNanoseconds();
    if (errno != EAGAIN || left <= 0) {
      return -1; // EAGAIN once the bound has passed, as the timed wait says it
    }
    const int64_t sleep_ns = std::min(pause, left);
    const struct timespec nap = {static_cast<time_t>(sleep_ns / 1000000000),
                                 static_cast<long>(sleep_ns % 1000000000)};
    if (nanosleep(&nap, nullptr) != 0) {
      return -1; // EINTR, as a signal ends the timed wait
    }
    pause = std::min(pause * 2, kLongestPauseNs);
  }
  return 0;
}

} // namespace platform
