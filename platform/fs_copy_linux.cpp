// Copying a file's bytes on Linux: in the kernel with copy_file_range, with
// plain reads and writes where the file systems cannot do that.
#if !defined(__linux__)
#error "fs_copy_linux.cpp is the Linux backend; macOS uses fcopyfile in mac/fs_ops_mac.mm"
#endif

#include "platform/fs_ops.h"
#include "platform/safe_fs.h"
#include "platform/scoped_fd.h"

#include <errno.h>
#include <unistd.h>
#include <vector>

namespace platform {

namespace {

constexpr size_t kCopyChunkBytes = 1 << 20;

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

} // namespace

bool CopyFileData(int from, int to) {
  while (true) {
    const ssize_t copied = copy_file_range(from, nullptr, to, nullptr, kCopyChunkBytes, 0);
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
        return CopyByReading(from, to);
      }
      return false;
    }
  }
}

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
