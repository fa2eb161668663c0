#include "tools/common/run_program.h"

#include "platform/folders.h"
#include "platform/scoped_fd.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace oru_tools {

namespace {

// Reads both pipes until each is closed.
void Drain(int output_fd, int errors_fd, std::string& output, std::string& errors) {
  struct pollfd fds[2] = {{output_fd, POLLIN, 0}, {errors_fd, POLLIN, 0}};
  std::string* into[2] = {&output, &errors};
  int open = 2;
  char buffer[16 * 1024];
  while (open > 0) {
    if (poll(fds, 2, -1) < 0 && errno != EINTR) {
      return;
    }
    for (int index = 0; index < 2; ++index) {
      if (fds[index].fd < 0 || fds[index].revents == 0) {
        continue;
      }
      const ssize_t got = read(fds[index].fd, buffer, sizeof buffer);
      if (got > 0) {
        into[index]->append(buffer, static_cast<size_t>(got));
      } else if (got == 0 || errno != EINTR) {
        fds[index].fd = -1;
        --open;
      }
    }
  }
}

int ExitOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace

// One pipe; both ends close on exec, so that only what is given to the
// child as 0, 1 and 2 reaches it.
bool OpenPipe(platform::ScopedFd& read_end, platform::ScopedFd& write_end) {
  int ends[2];
  if (pipe(ends) != 0) {
    return false;
  }
  read_end.reset(ends[0]);
  write_end.reset(ends[1]);
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  fcntl(ends[1], F_SETFD, FD_CLOEXEC);
  return true;
}

// The child's standard input (ended at once), output and errors.
struct Pipes {
  platform::ScopedFd input, inputWriter, output, outputWriter, errors, errorsWriter;
  bool Open() {
    const bool opened = OpenPipe(input, inputWriter) && OpenPipe(output, outputWriter) &&
                        OpenPipe(errors, errorsWriter);
    inputWriter.reset(); // nothing is ever written to the child's input
    return opened;
  }
};

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& arguments) {
  ProgramRun run;
  Pipes pipes;
  if (!pipes.Open()) {
    return run;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipes.input.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, pipes.outputWriter.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, pipes.errorsWriter.get(), STDERR_FILENO);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  pid_t child = -1;
  run.started = posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  if (!run.started) {
    return run;
  }
  pipes.outputWriter.reset();
  pipes.errorsWriter.reset();
  Drain(pipes.output.get(), pipes.errors.get(), run.output, run.errors);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  run.exitStatus = ExitOf(status);
  return run;
}

std::string OwnExecutable() {
  std::string self; // a bare executable's "bundle folder" is its own path
  return platform::GetBundleFolder(self) ? self : std::string();
}

} // namespace oru_tools
