// Copying a file's bytes on Linux: in the kernel with copy_file_range, with
// plain reads and writes where the file systems cannot do that.
#if !defined(__linux__)
#error "fs_copy_linux.cpp is the Linux backend; elsewhere fs_copy_posix.cpp copies"
#endif

#include "platform/fs_copy_internal.h"
#include "platform/fs_ops.h"

#include <errno.h>
#include <unistd.h>

namespace platform {

bool CopyFileData(int from, int to) {
  while (true) {
    const ssize_t copied =
        copy_file_range(from, nullptr, to, nullptr, internal::kCopyChunkBytes, 0);
    if (copied == 0) {
      return true;
    }
    if (copied < 0) {
      if (errno == EINTR) {
        continue;
      }
      // Not possible between these files: copy what is left by hand, from
      // where the kernel stopped.
      if (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP) {
        return internal::CopyByReading(from, to);
      }
      return false;
    }
  }
}

} // namespace platform
