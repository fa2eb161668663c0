// File streams of the preferences store. Each owns one heap-allocated
// standard file stream and hands it out by pointer. The C-style mode text
// ("rb", "wb") is accepted for the callers' sake and not used: the stream
// opens with the standard open mode.
#ifndef ORU_ESD_ESD_STREAMS_H
#define ORU_ESD_ESD_STREAMS_H

#include <boost/noncopyable.hpp>
#include <fstream>
#include <string>

class ESDifstream : private boost::noncopyable {
public:
  ESDifstream(const std::string& path, const char* mode, std::ios::openmode open_mode);
  virtual ~ESDifstream();

  std::ifstream* stream() const { return stream_; }
  bool is_open() const { return stream_->is_open(); }
  void close();

private:
  std::ifstream* stream_;
};

class ESDofstream : private boost::noncopyable {
public:
  ESDofstream(const std::string& path, const char* mode, std::ios::openmode open_mode);
  virtual ~ESDofstream();

  std::ofstream* stream() const { return stream_; }
  bool is_open() const { return stream_->is_open(); }
  void close();

private:
  std::ofstream* stream_;
};

#endif // ORU_ESD_ESD_STREAMS_H
