// File streams of the esd library, shared with the other programs of the
// updater that build on it. Each owns one heap-allocated standard file
// stream and hands it out by pointer. The C-style mode text ("rb", "wb") is
// accepted for the callers' sake and not used: the stream opens with the
// standard open mode.
//
// Other programs open these streams by the path itself, which follows a
// link at the file's name and opens whatever is there (a FIFO blocks the
// open). A process running as root in a user's folder must never do that,
// so here the file is first opened by the rules of platform/safe_fs.h and
// the stream is opened on that very file (platform/file_stream.h): for a
// regular file nothing differs; a link, FIFO or folder at the name leaves
// the stream not open. The preferences store itself reads and saves through
// the checked descriptors directly; these types stay for the programs that
// use them.
#ifndef ORU_ESD_ESD_STREAMS_H
#define ORU_ESD_ESD_STREAMS_H

#include "platform/file_stream.h"

#include <boost/noncopyable.hpp>
#include <memory>
#include <string>

namespace esd {

// The one shape of both streams: `Stream`, as `kOpen` opens it.
template <typename Stream, std::unique_ptr<Stream> (*kOpen)(const std::string&, std::ios::openmode)>
class FileStreamWrapper : private boost::noncopyable {
public:
  FileStreamWrapper(const std::string& path, const char* /*mode*/, std::ios::openmode open_mode)
      : stream_(kOpen(path, open_mode)) {}
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

class ESDifstream
    : public esd::FileStreamWrapper<platform::InputFileStream, &platform::OpenInputFileStream> {
public:
  using FileStreamWrapper::FileStreamWrapper;
};

class ESDofstream
    : public esd::FileStreamWrapper<platform::OutputFileStream, &platform::OpenOutputFileStream> {
public:
  using FileStreamWrapper::FileStreamWrapper;
};

#endif // ORU_ESD_ESD_STREAMS_H
