#include "esd/esd_streams.h"

ESDifstream::ESDifstream(const std::string& path, const char* /*mode*/,
                         std::ios::openmode open_mode)
    : stream_(new std::ifstream(path, open_mode | std::ios::in)) {}

ESDifstream::~ESDifstream() {
  delete stream_;
}

void ESDifstream::close() {
  stream_->close();
}

ESDofstream::ESDofstream(const std::string& path, const char* /*mode*/,
                         std::ios::openmode open_mode)
    : stream_(new std::ofstream(path, open_mode | std::ios::out)) {}

ESDofstream::~ESDofstream() {
  delete stream_;
}

void ESDofstream::close() {
  stream_->close();
}
