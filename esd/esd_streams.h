// File streams of the esd library, shared with the other programs of the
// updater that build on it. Each owns one heap-allocated standard file
// stream and hands it out by pointer. The C-style mode text ("rb", "wb") is
// accepted for the callers' sake and not used: the stream opens with the
// path and the standard open mode.
//
// The preferences store itself reads, saves and checks its files through
// the checked descriptors of platform/safe_fs.h instead: a stream opened by
// path follows a link at the file's name and opens whatever is there (a
// FIFO blocks it), which a process running as root in a user's folder must
// never do. These types stay for the programs that use them.
#ifndef ORU_ESD_ESD_STREAMS_H
#define ORU_ESD_ESD_STREAMS_H

#include <boost/noncopyable.hpp>
#include <fstream>
#include <memory>
#include <string>

namespace esd {

// The one shape of both streams: `Stream` opened in `kDirection` as well as
// the given open mode.
template <typename Stream, std::ios::openmode kDirection>
class FileStreamWrapper : private boost::noncopyable {
public:
  FileStreamWrapper(const std::string& path, const char* /*mode*/, std::ios::openmode open_mode)
      : stream_(std::make_unique<Stream>(path, open_mode | kDirection)) {}
  // Deleting the stream flushes (an output stream) and closes it.
  virtual ~FileStreamWrapper() = default;

  // The owned stream; valid for the wrapper's lifetime.
  Stream* stream() const { return stream_.get(); }
  bool is_open() const { return stream_->is_open(); }
  void close() { stream_->close(); }

private:
  std::unique_ptr<Stream> stream_;
};

} // namespace esd

class ESDifstream : public esd::FileStreamWrapper<std::ifstream, std::ios::in> {
public:
  using FileStreamWrapper::FileStreamWrapper;
};

class ESDofstream : public esd::FileStreamWrapper<std::ofstream, std::ios::out> {
public:
  using FileStreamWrapper::FileStreamWrapper;
};

#endif // ORU_ESD_ESD_STREAMS_H
