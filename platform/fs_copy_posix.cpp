// Copying a file's bytes with plain reads and writes, where the system
// offers no copy in the kernel that this code uses.
#include "platform/fs_copy_internal.h"
#include "platform/fs_ops.h"

namespace platform {

bool CopyFileData(int from, int to) {
  return internal::CopyByReading(from, to);
}

} // namespace platform
