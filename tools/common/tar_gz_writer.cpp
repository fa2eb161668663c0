#include "tools/common/tar_gz_writer.h"

#include "platform/safe_fs.h"

#include <cerrno>
#include <cstring>
#include <zlib.h>

namespace oru_tools {

namespace {

constexpr size_t kBlock = 512;
constexpr int kGzipWindow = 15 + 16; // zlib's window bits, plus 16 for a gzip wrapper

// An octal number of `width` - 1 digits and a NUL, as ustar fields are;
// the digits that do not fit are dropped (no entry here comes near).
void Octal(char* field, size_t width, uint64_t value) {
  field[width - 1] = '\0';
  for (size_t digit = width - 1; digit > 0; --digit) {
    field[digit - 1] = static_cast<char>('0' + (value & 7));
    value >>= 3;
  }
}

std::string Header(const std::string& name, uint64_t size, uint32_t mode, int64_t mtime) {
  std::string block(kBlock, '\0');
  std::memcpy(&block[0], name.data(), name.size());
  Octal(&block[100], 8, mode & 07777);
  Octal(&block[108], 8, 0);
  Octal(&block[116], 8, 0);
  Octal(&block[124], 12, size);
  Octal(&block[136], 12, static_cast<uint64_t>(mtime < 0 ? 0 : mtime));
  block[156] = '0';
  std::memcpy(&block[257], "ustar", 6);
  std::memcpy(&block[263], "00", 2);
  std::memset(&block[148], ' ', 8);
  unsigned sum = 0;
  for (const char byte : block) {
    sum += static_cast<unsigned char>(byte);
  }
  Octal(&block[148], 7, sum); // six digits, a NUL, and the blank already there
  return block;
}

} // namespace

struct TarGzWriter::Stream {
  z_stream z = {};
  bool open = false;
};

TarGzWriter::TarGzWriter(int fd) : stream_(std::make_unique<Stream>()), fd_(fd) {
  stream_->open = deflateInit2(&stream_->z, Z_BEST_COMPRESSION, Z_DEFLATED, kGzipWindow, 8,
                               Z_DEFAULT_STRATEGY) == Z_OK;
  error_ = stream_->open ? 0 : ENOMEM;
}

TarGzWriter::~TarGzWriter() {
  if (stream_->open) {
    deflateEnd(&stream_->z);
  }
}

bool TarGzWriter::Deflate(const char* data, size_t size, bool last) {
  if (error_ != 0) {
    return false;
  }
  z_stream& z = stream_->z;
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
  z.avail_in = static_cast<uInt>(size);
  char out[64 * 1024];
  int result = Z_OK;
  do {
    z.next_out = reinterpret_cast<Bytef*>(out);
    z.avail_out = sizeof out;
    result = deflate(&z, last ? Z_FINISH : Z_NO_FLUSH);
    const size_t produced = sizeof out - z.avail_out;
    if (!platform::WriteAll(fd_, out, produced)) {
      error_ = errno != 0 ? errno : EIO;
      return false;
    }
    written_ += produced;
  } while (z.avail_out == 0 || (last && result != Z_STREAM_END));
  return true;
}

bool TarGzWriter::Add(const std::string& name, const std::string& bytes, uint32_t mode,
                      int64_t mtime) {
  if (name.empty() || name.size() >= 100 || name[0] == '/') {
    return false;
  }
  const std::string header = Header(name, bytes.size(), mode, mtime);
  const std::string padding((kBlock - bytes.size() % kBlock) % kBlock, '\0');
  return Deflate(header.data(), header.size(), false) &&
         Deflate(bytes.data(), bytes.size(), false) &&
         Deflate(padding.data(), padding.size(), false);
}

bool TarGzWriter::Finish() {
  const std::string end(2 * kBlock, '\0');
  return Deflate(end.data(), end.size(), true);
}

} // namespace oru_tools
