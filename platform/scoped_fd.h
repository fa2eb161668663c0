// A file descriptor closed when it goes out of scope. Internal to platform/.
#ifndef ORU_PLATFORM_SCOPED_FD_H
#define ORU_PLATFORM_SCOPED_FD_H

#include <unistd.h>

namespace platform {

class ScopedFd {
public:
  explicit ScopedFd(int fd) : fd_(fd) {}
  ~ScopedFd() {
    if (fd_ >= 0) {
      close(fd_);
    }
  }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;

  int get() const { return fd_; }

private:
  int fd_;
};

} // namespace platform

#endif // ORU_PLATFORM_SCOPED_FD_H
