#include "testing/namespaces.h"

#include <sched.h>
#include <sys/mount.h>

namespace oru_testing {

bool EnterPrivateIpcNamespace() {
  static const bool entered = unshare(CLONE_NEWIPC) == 0;
  return entered;
}

bool EnterPrivateIpcAndShm() {
  static const bool entered = EnterPrivateIpcNamespace() && unshare(CLONE_NEWNS) == 0 &&
                              mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                              mount("tmpfs", "/dev/shm", "tmpfs", 0, "mode=1777") == 0;
  return entered;
}

bool MountPrivateVarTmp() {
  static const bool mounted = mount("tmpfs", "/var/tmp", "tmpfs", 0, "mode=1777") == 0;
  return mounted;
}

} // namespace oru_testing
