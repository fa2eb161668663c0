// The system-specific piece of the safe walk. Internal to platform/.
#ifndef ORU_PLATFORM_SAFE_FS_INTERNAL_H
#define ORU_PLATFORM_SAFE_FS_INTERNAL_H

namespace platform {
namespace internal {

// Opens the folder `name` of `dirfd` as a base for further *at calls, never
// following a link; needs the right to search the folder (and to read it
// where the system cannot open a folder for searching alone). -1 and errno
// on failure (ENOTDIR for anything that is not a folder, a link included).
int OpenFolderDescriptor(int dirfd, const char* name);

} // namespace internal
} // namespace platform

#endif // ORU_PLATFORM_SAFE_FS_INTERNAL_H
