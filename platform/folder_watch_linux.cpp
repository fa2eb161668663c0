// Folder changes from inotify.
#if !defined(__linux__)
#error "folder_watch_linux.cpp uses inotify, which only Linux has"
#endif

#include "platform/folder_watch.h"

#include <errno.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace platform {

bool FolderWatch::Start(const std::string& folder) {
  events_ = ScopedFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!events_.valid()) {
    return false;
  }
  (void)inotify_add_watch(events_.get(), folder.c_str(),
                          IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM |
                              IN_CLOSE_WRITE | IN_ATTRIB);
  return true;
}

bool FolderWatch::Wait(int timeout_ms) {
  struct pollfd ready = {events_.get(), POLLIN, 0};
  if (poll(&ready, 1, timeout_ms) < 0 && errno != EINTR) {
    return false;
  }
  char drained[4096];
  while (read(events_.get(), drained, sizeof drained) > 0) {
  }
  return true;
}

} // namespace platform
