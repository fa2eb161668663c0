// Folder descriptors where no search-only open exists: the folder is opened for
// reading, which needs read rights on it as well as search rights (a
// folder its owner made search-only cannot be walked into).
#include "platform/safe_fs_internal.h"

#include <errno.h>
#include <fcntl.h>

namespace platform {
namespace internal {

int OpenFolderDescriptor(int dirfd, const char* name) {
  const int fd = openat(dirfd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0 && errno == ELOOP) {
    errno = ENOTDIR; // a link is no folder, as the Linux route says it
  }
  return fd;
}

} // namespace internal
} // namespace platform
