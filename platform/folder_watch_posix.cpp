// Folder changes without a system notice: each wait is a short pause
// (200 ms at most), after which the waiter looks for itself.
#include "platform/folder_watch.h"

#include <algorithm>
#include <errno.h>
#include <time.h>

namespace platform {

namespace {

constexpr int kLookAgainMs = 200;

} // namespace

bool FolderWatch::Start(const std::string&) {
  return true;
}

bool FolderWatch::Wait(int timeout_ms) {
  const int pause_ms = std::min(timeout_ms, kLookAgainMs);
  const struct timespec pause = {pause_ms / 1000, static_cast<long>(pause_ms % 1000) * 1000000L};
  return nanosleep(&pause, nullptr) == 0 || errno == EINTR;
}

} // namespace platform
