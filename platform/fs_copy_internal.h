// Copying a file's bytes the plain way, shared by the system backends.
#ifndef ORU_PLATFORM_FS_COPY_INTERNAL_H
#define ORU_PLATFORM_FS_COPY_INTERNAL_H

#include <cstddef>

namespace platform {
namespace internal {

// How much one copy call moves at most.
constexpr size_t kCopyChunkBytes = 1 << 20;

// Reads `from` from its offset to its end and writes it all to `to`.
bool CopyByReading(int from, int to);

} // namespace internal
} // namespace platform

#endif // ORU_PLATFORM_FS_COPY_INTERNAL_H
