// Folder descriptors on Linux: O_PATH, which needs only search rights and
// never opens the folder for reading.
#if !defined(__linux__)
#error "safe_fs_linux.cpp is the Linux backend; macOS uses O_RDONLY folders in mac/safe_fs_mac.cpp"
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
