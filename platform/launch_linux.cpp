// Starting an application on Linux: posix_spawn in a new session.
#if !defined(__linux__)
#error "launch_linux.cpp is the Linux backend; macOS uses Launch Services in mac/launch_mac.mm"
#endif

#include "platform/launch.h"
#include "platform/paths.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace platform {

namespace {

// Releases the spawn objects on every path.
struct SpawnSetup {
  SpawnSetup() {
    ready = posix_spawn_file_actions_init(&actions) == 0;
    ready = posix_spawnattr_init(&attributes) == 0 && ready;
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  bool ready = false;
};

// Starts the program in a child that becomes `as_user` first. The child
// reports a failed switch or exec through a pipe closed by a successful exec,
// so the caller knows whether the program runs. Between fork and exec only
// async-signal-safe calls are made.
bool LaunchAs(const std::string& path, char* const* argv, const Credentials& as_user) {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) {
    return false;
  }
  const pid_t child = fork();
  if (child < 0) {
    close(report[0]);
    close(report[1]);
    return false;
  }
  if (child == 0) {
    close(report[0]);
    int error = 0;
    const int null = open("/dev/null", O_RDWR);
    if (setsid() < 0 || null < 0 || dup2(null, 0) < 0 || dup2(null, 1) < 0 || dup2(null, 2) < 0 ||
        setgroups(as_user.groups.size(), as_user.groups.data()) != 0 || setgid(as_user.gid) != 0 ||
        setuid(as_user.uid) != 0) {
      error = errno;
    } else {
      execve(path.c_str(), argv, environ);
      error = errno;
    }
    (void)!write(report[1], &error, sizeof error);
    _exit(127);
  }
  close(report[1]);
  int error = 0;
  ssize_t got;
  do {
    got = read(report[0], &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  close(report[0]);
  if (got > 0) {
    (void)waitpid(child, nullptr, 0); // it never ran the program: reap it
    return false;
  }
  return true;
}

} // namespace

bool LaunchApplication(const std::string& path, const char* const* arguments,
                       const Credentials* as_user) {
  if (!PathExists(path)) {
    return false;
  }
  std::vector<char*> argv{const_cast<char*>(path.c_str())};
  for (const char* const* argument = arguments; argument && *argument; ++argument) {
    argv.push_back(const_cast<char*>(*argument));
  }
  argv.push_back(nullptr);
  if (as_user) {
    return LaunchAs(path, argv.data(), *as_user);
  }

  SpawnSetup setup;
  if (!setup.ready ||
      posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0) != 0 ||
      posix_spawn_file_actions_addopen(&setup.actions, 1, "/dev/null", O_WRONLY, 0) != 0 ||
      posix_spawn_file_actions_addopen(&setup.actions, 2, "/dev/null", O_WRONLY, 0) != 0 ||
      posix_spawnattr_setflags(&setup.attributes, POSIX_SPAWN_SETSID) != 0) {
    return false;
  }
  pid_t child = 0;
  // glibc reports a failed exec here, so success means the program runs.
  return posix_spawn(&child, path.c_str(), &setup.actions, &setup.attributes, argv.data(),
                     environ) == 0;
}

} // namespace platform
