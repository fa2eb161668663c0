// One System V semaphore operation that waits no longer than a bound.
// Linux has a timed semop for it; elsewhere (macOS has semop alone) the
// operation is tried without waiting, again and again, with short sleeps
// between the tries, until it succeeds or the bound has passed.
#ifndef ORU_PLATFORM_SEMAPHORE_WAIT_H
#define ORU_PLATFORM_SEMAPHORE_WAIT_H

#include <sys/sem.h>
#include <time.h>

namespace platform {

// As semop on one operation, but a wait ends after `bound` (none: no end)
// with EAGAIN. 0 when done; -1 with errno otherwise (EINTR: a signal came
// first, and the caller decides whether to wait a whole bound again).
//
// Where the wait is tried again and again, a waiter that sleeps between
// tries is not queued by the kernel: while others take the semaphore
// without pause it may be passed over until its bound ends, and it notices
// a release up to a try's sleep late (at most 10 ms).
int SemaphoreOperationWithin(int set, struct sembuf& operation, const struct timespec* bound);

} // namespace platform

#endif // ORU_PLATFORM_SEMAPHORE_WAIT_H
