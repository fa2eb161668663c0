#include "testing/namespaces.h"
#include "testing/sandbox.h"

#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

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

namespace {

// The entries right below /var/tmp that hold this test program or its
// working folder (a checkout cloned under /var/tmp, say).
std::vector<std::string> VarTmpEntriesInUse() {
  char resolved[PATH_MAX];
  const std::string var_tmp = realpath("/var/tmp", resolved) ? resolved : "/var/tmp";
  std::vector<std::string> entries;
  for (const char* path : {"/proc/self/exe", "."}) {
    if (!realpath(path, resolved)) {
      continue;
    }
    const std::string used = resolved;
    if (used.compare(0, var_tmp.size() + 1, var_tmp + "/") != 0) {
      continue;
    }
    const std::string entry =
        used.substr(var_tmp.size() + 1, used.find('/', var_tmp.size() + 1) - var_tmp.size() - 1);
    if (std::find(entries.begin(), entries.end(), entry) == entries.end()) {
      entries.push_back(entry);
    }
  }
  return entries;
}

bool MountVarTmpKeeping(const std::vector<std::string>& kept) {
  const int before = open("/var/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (before < 0) {
    return false;
  }
  bool mounted = mount("tmpfs", "/var/tmp", "tmpfs", 0, "mode=1777") == 0;
  for (const std::string& entry : kept) {
    const std::string inside = "/var/tmp/" + entry;
    const std::string old = "/proc/self/fd/" + std::to_string(before) + "/" + entry;
    mounted = mounted && mkdir(inside.c_str(), 0755) == 0 &&
              mount(old.c_str(), inside.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
  }
  close(before);
  return mounted;
}

} // namespace

bool MountPrivateVarTmp() {
  static const bool mounted = MountVarTmpKeeping(VarTmpEntriesInUse());
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
