// The running system's version on Linux is the kernel release.
#if !defined(__linux__)
#error "os_info_linux.cpp is the Linux backend; macOS uses mac/os_info_mac.mm"
#endif

#include "platform/os_info.h"

#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace platform {

const char kOSDisplayName[] = "Linux";

void GetOSVersion(OSVersion& version) {
  struct utsname name;
  if (uname(&name) != 0) {
    return;
  }
  // An unreadable release leaves the caller's version as it was.
  (void)ParseReleaseVersion(name.release, version);
}

uint64_t GetCurrentThreadId() {
  return static_cast<uint64_t>(syscall(SYS_gettid));
}

// The old-system rule is about macOS versions; Linux always shows them.
bool ThreadIdsShown() {
  return true;
}

} // namespace platform
