#include "esd/esd_streams.h"

ESDifstream::ESDifstream(const std::string& path, const char* /*mode*/,
                         std::ios::openmode open_mode)
    : stream_(std::make_unique<std::ifstream>(path, open_mode | std::ios::in)) {}

// Deleting the stream closes it.
ESDifstream::~ESDifstream() = default;

void ESDifstream::close() {
  stream_->close();
}

ESDofstream::ESDofstream(const std::string& path, const char* /*mode*/,
                         std::ios::openmode open_mode)
    : stream_(std::make_unique<std::ofstream>(path, open_mode | std::ios::out)) {}

// Deleting the stream flushes and closes it.
ESDofstream::~ESDofstream() = default;

void ESDofstream::close() {
  stream_->close();
}
