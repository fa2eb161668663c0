#include "testing/child_process.h"

#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

namespace oru_testing {

int RunInChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child < 0) {
    return -1;
  }
  if (child == 0) {
    _exit(body());
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      return -1;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace oru_testing
