// Copying a file: the plain read-and-write loop, and a copy by path built
// on the system's CopyFileData.
#include "platform/fs_copy_internal.h"
#include "platform/fs_ops.h"
#include "platform/safe_fs.h"
#include "platform/scoped_fd.h"

#include <errno.h>
#include <unistd.h>
#include <vector>

namespace platform {

namespace internal {

bool CopyByReading(int from, int to) {
  std::vector<char> chunk(kCopyChunkBytes);
  while (true) {
    const ssize_t got = read(from, chunk.data(), chunk.size());
    if (got == 0) {
      return true;
    }
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    if (!WriteAll(to, chunk.data(), static_cast<size_t>(got))) {
      return false;
    }
  }
}

} // namespace internal

bool CopyFileContents(const std::string& from, const std::string& to) {
  ScopedFd source;
  ScopedFd destination;
  OpenOptions write;
  write.access = FileAccess::kWrite;
  write.create = true;
  write.truncate = true;
  return OpenFileAt(from, OpenOptions(), source) && OpenFileAt(to, write, destination) &&
         CopyFileData(source.get(), destination.get());
}

} // namespace platform
