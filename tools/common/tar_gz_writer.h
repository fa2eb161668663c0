// A .tar.gz archive written to an open file: POSIX ustar entries of regular
// files, compressed as one gzip stream, as "tar -czf" makes them.
#ifndef ORU_TOOLS_COMMON_TAR_GZ_WRITER_H
#define ORU_TOOLS_COMMON_TAR_GZ_WRITER_H

#include <cstdint>
#include <memory>
#include <string>

namespace oru_tools {

class TarGzWriter {
public:
  // Writes to `fd`, which stays the caller's.
  explicit TarGzWriter(int fd);
  ~TarGzWriter();
  TarGzWriter(const TarGzWriter&) = delete;
  TarGzWriter& operator=(const TarGzWriter&) = delete;

  // One file: `name` (under 100 bytes, relative), its bytes, its mode and
  // modification time. False when the name does not fit or a write failed.
  bool Add(const std::string& name, const std::string& bytes, uint32_t mode, int64_t mtime);
  // Ends the archive and the gzip stream. False when a write failed.
  bool Finish();
  // The system's error of the write that failed, or 0.
  int error() const { return error_; }
  // Bytes written to the file so far.
  uint64_t written() const { return written_; }

private:
  bool Deflate(const char* data, size_t size, bool last);

  struct Stream;
  std::unique_ptr<Stream> stream_;
  int fd_;
  int error_ = 0;
  uint64_t written_ = 0;
};

} // namespace oru_tools

#endif // ORU_TOOLS_COMMON_TAR_GZ_WRITER_H
