// Copying a file's bytes the plain way, shared by the system backends.
#ifndef ORU_PLATFORM_FS_COPY_INTERNAL_H
#define ORU_PLATFORM_FS_COPY_INTERNAL_H

namespace platform {
namespace internal {

// Reads `from` from its offset to its end and writes it all to `to`.
bool CopyByReading(int from, int to);

} // namespace internal
} // namespace platform

#endif // ORU_PLATFORM_FS_COPY_INTERNAL_H
