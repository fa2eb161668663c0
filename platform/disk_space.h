// The disk that holds a path: which one it is and how much room it has.
#ifndef ORU_PLATFORM_DISK_SPACE_H
#define ORU_PLATFORM_DISK_SPACE_H

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace platform {

struct DiskSpace {
  dev_t device = 0;
  uint64_t freeBytes = 0; // free to a writer that is not root
};

// The disk of the nearest level of absolute `path` that is there (a file
// not made yet goes on its folder's disk), looked at through a held folder:
// a look that changes nothing. False when no level can be looked at.
bool GetDiskSpace(const std::string& path, DiskSpace& out);

} // namespace platform

#endif // ORU_PLATFORM_DISK_SPACE_H
