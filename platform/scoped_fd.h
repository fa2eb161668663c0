// A file descriptor owned by one object: closed when the object goes away,
// handed on by moving, never copied.
#ifndef ORU_PLATFORM_SCOPED_FD_H
#define ORU_PLATFORM_SCOPED_FD_H

#include <errno.h>
#include <unistd.h>
#include <utility>

namespace platform {

class ScopedFd {
public:
  ScopedFd() = default;
  explicit ScopedFd(int fd) : fd_(fd) {}
  ~ScopedFd() { reset(); }
  ScopedFd(ScopedFd&& other) noexcept : fd_(other.release()) {}
  ScopedFd& operator=(ScopedFd&& other) noexcept {
    if (this != &other) {
      reset(other.release());
    }
    return *this;
  }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

  // Gives up ownership without closing.
  int release() { return std::exchange(fd_, -1); }

  // Closes the descriptor held (keeping errno as it was) and takes `fd`.
  void reset(int fd = -1) {
    if (fd_ >= 0) {
      const int saved = errno;
      close(fd_);
      errno = saved;
    }
    fd_ = fd;
  }

private:
  int fd_ = -1;
};

} // namespace platform

#endif // ORU_PLATFORM_SCOPED_FD_H
