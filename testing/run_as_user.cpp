#include "testing/run_as_user.h"

#include <ftw.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

namespace oru_testing {

namespace {

uid_t tree_owner = 0;

int GiveToOwner(const char* path, const struct stat*, int, struct FTW*) {
  return lchown(path, tree_owner, tree_owner) == 0 ? 0 : 1;
}

} // namespace

int RunAsUser(uid_t uid, const std::string& owned_tree, const std::function<int()>& body) {
  const bool privileged = geteuid() == 0;
  if (privileged) {
    tree_owner = uid;
    if (nftw(owned_tree.c_str(), &GiveToOwner, 16, FTW_PHYS) != 0) {
      return 126;
    }
  }
  const pid_t child = fork();
  if (child < 0) {
    return 125;
  }
  if (child == 0) {
    if (privileged && (setgroups(0, nullptr) != 0 || setresgid(uid, uid, uid) != 0 ||
                       setresuid(uid, uid, uid) != 0)) {
      _exit(124);
    }
    _exit(body());
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) {
    return 123;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace oru_testing
