#include "platform/file_stream.h"
#include "platform/safe_fs.h"

#include <climits>
#include <unistd.h>

namespace platform {

namespace {

std::string AbsoluteFrom(const std::string& path) {
  if (!path.empty() && path[0] == '/') {
    return path;
  }
  char here[PATH_MAX];
  return getcwd(here, sizeof here) ? std::string(here) + "/" + path : path;
}

// Where a stream opens a descriptor it is handed: /dev/fd names the very
// file the descriptor holds (a copy of the descriptor on macOS, a link to
// the file on Linux), so nothing is looked up by the path again.
template <typename Stream>
void OpenOnDescriptor(Stream& stream, const ScopedFd& fd, std::ios::openmode mode) {
  stream.open("/dev/fd/" + std::to_string(fd.get()), mode);
}

} // namespace

std::unique_ptr<InputFileStream> OpenInputFileStream(const std::string& path,
                                                     std::ios::openmode mode) {
  auto stream = std::make_unique<InputFileStream>();
  ScopedFd file;
  if (OpenFileAt(AbsoluteFrom(path), OpenOptions(), file)) {
    OpenOnDescriptor(*stream, file, mode | std::ios::in);
  }
  return stream;
}

std::unique_ptr<OutputFileStream> OpenOutputFileStream(const std::string& path,
                                                       std::ios::openmode mode) {
  auto stream = std::make_unique<OutputFileStream>();
  OpenOptions write;
  write.access = FileAccess::kWrite;
  write.create = true;
  ScopedFd file;
  if (OpenFileAt(AbsoluteFrom(path), write, file)) {
    OpenOnDescriptor(*stream, file, mode | std::ios::out);
  }
  return stream;
}

} // namespace platform
