#include "testing/namespaces.h"

#include "testing/sandbox.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

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

bool MountConsoleUser(const std::string& scratch, uid_t uid, const std::string& home) {
  const std::string id = std::to_string(uid);
  const std::string passwd = scratch + "/passwd";
  mkdir(scratch.c_str(), 0755);
  WriteFile(passwd, ReadFile("/etc/passwd") + "oruconsole:x:" + id + ":" + id +
                        ":console user:" + home + ":/bin/sh\n");
  if (mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0 ||
      mount(passwd.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) != 0) {
    return false;
  }
  mkdir("/run/systemd", 0755);
  mkdir("/run/systemd/seats", 0755);
  WriteFile("/run/systemd/seats/seat0",
            "ACTIVE=c1\nACTIVE_UID=" + id + "\nSESSIONS=c1\nUIDS=" + id + "\n");
  return true;
}

} // namespace oru_testing
