// A clock that only moves forward, for measuring waits: never set back by
// a change of the wall time.
#ifndef ORU_PLATFORM_MONOTONIC_CLOCK_H
#define ORU_PLATFORM_MONOTONIC_CLOCK_H

#include <cstdint>

namespace platform {

// Nanoseconds since some fixed moment (the system's start, say).
int64_t MonotonicNanoseconds();

} // namespace platform

#endif // ORU_PLATFORM_MONOTONIC_CLOCK_H
