// Starting an application on Linux: posix_spawn in a new session.
#if !defined(__linux__)
#error "launch_linux.cpp is the Linux backend; macOS uses Launch Services in mac/launch_mac.mm"
#endif

#include "platform/launch.h"
#include "platform/paths.h"

#include <fcntl.h>
#include <spawn.h>
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

} // namespace

bool LaunchApplication(const std::string& path, const char* const* arguments) {
  if (!PathExists(path)) {
    return false;
  }
  std::vector<char*> argv{const_cast<char*>(path.c_str())};
  for (const char* const* argument = arguments; argument && *argument; ++argument) {
    argv.push_back(const_cast<char*>(*argument));
  }
  argv.push_back(nullptr);

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
