// Folder descriptors on Linux: O_PATH, which needs only search rights and
// never opens the folder for reading.
#if !defined(__linux__)
#error                                                                                             \
    "safe_fs_folder_linux.cpp uses O_PATH, which only Linux has; elsewhere safe_fs_folder_posix.cpp"
#endif

#include "platform/safe_fs_internal.h"

#include <fcntl.h>

namespace platform {
namespace internal {

int OpenFolderDescriptor(int dirfd, const char* name) {
  return openat(dirfd, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

} // namespace internal
} // namespace platform
