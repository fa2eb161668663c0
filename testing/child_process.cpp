#include "testing/child_process.h"

#include <cstdlib>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

namespace oru_testing {

pid_t PidOfAnExitedProcess() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  return child;
}

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

ChildProgram StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                          int input, int close_in_child, int errors) {
  ChildProgram child;
  int output[2];
  if (pipe(output) != 0) {
    return child;
  }
  child.pid = fork();
  if (child.pid == 0) {
    if (input >= 0) {
      dup2(input, STDIN_FILENO);
    }
    if (close_in_child >= 0) {
      close(close_in_child);
    }
    dup2(output[1], STDOUT_FILENO);
    close(output[0]);
    if (errors >= 0) {
      dup2(errors, STDERR_FILENO);
    }
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execve(program.c_str(), argv.data(), environ);
    _exit(127);
  }
  close(output[1]);
  child.output = fdopen(output[0], "r");
  return child;
}

int FinishProgram(ChildProgram& child) {
  if (child.output) {
    fclose(child.output);
    child.output = nullptr;
  }
  int status = 0;
  while (waitpid(child.pid, &status, 0) < 0) {
    if (errno != EINTR) {
      return -1000;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string ReadAll(ChildProgram& child) {
  std::string text;
  char buffer[256];
  size_t got = 0;
  while (child.output && (got = fread(buffer, 1, sizeof buffer, child.output)) > 0) {
    text.append(buffer, got);
  }
  return text;
}

namespace {

// An unnamed file for a child's standard error: made in TMPDIR (or /tmp)
// and unlinked at once.
int OpenUnnamedFile() {
  const char* folder = std::getenv("TMPDIR");
  std::string name = std::string(folder && *folder ? folder : "/tmp") + "/oru-errors-XXXXXX";
  const int fd = mkstemp(&name[0]);
  if (fd >= 0) {
    unlink(name.c_str());
    (void)fcntl(fd, F_SETFD, FD_CLOEXEC);
  }
  return fd;
}

} // namespace

ErrorCapture::ErrorCapture() : fd_(OpenUnnamedFile()) {}

ErrorCapture::~ErrorCapture() {
  if (fd_ >= 0) {
    close(fd_);
  }
}

std::string ErrorCapture::Text() const {
  std::string text;
  char buffer[4096];
  ssize_t got = 0;
  while (fd_ >= 0 &&
         (got = pread(fd_, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0) {
    text.append(buffer, static_cast<size_t>(got));
  }
  return text;
}

int ErrorCapture::LinesContaining(const std::string& words) const {
  std::istringstream lines(Text());
  int count = 0;
  for (std::string line; std::getline(lines, line);) {
    count += line.find(words) != std::string::npos ? 1 : 0;
  }
  return count;
}

namespace {

// Spawned rather than forked: a test process is large, and copying its
// address space for each of thousands of short programs costs more than
// the programs themselves.
// The environment of the lane programs. Under the address sanitizer every
// process scans its memory for leaks when it exits, which costs thousands
// of short programs more than their work; their leaks are not what a lane
// test looks at, and the unit tests keep leak checking on.
const std::vector<std::string>& LaneEnvironment() {
  static const std::vector<std::string> environment = [] {
    std::vector<std::string> copy;
    for (char** entry = environ; *entry; ++entry) {
      std::string variable = *entry;
      if (variable.rfind("ASAN_OPTIONS=", 0) == 0) {
        variable += ":detect_leaks=0";
      }
      copy.push_back(variable);
    }
    return copy;
  }();
  return environment;
}

pid_t StartQuietly(const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<char*> environment;
  for (const std::string& variable : LaneEnvironment()) {
    environment.push_back(const_cast<char*>(variable.c_str()));
  }
  environment.push_back(nullptr);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environment.data()) != 0) {
    pid = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

} // namespace

namespace {

struct LaneProgram {
  pid_t pid;
  int lane;
  int descriptor;
};

} // namespace

int RunInLanes(const std::string& program, int lanes, int per_lane,
               const std::function<std::vector<std::string>(int lane, int index)>& arguments_of) {
  std::vector<LaneProgram> running;
  std::vector<int> started(static_cast<size_t>(lanes), 0);
  int failures = 0;
  // A program that cannot be started counts as failed; its lane goes on.
  const auto start_next = [&](int lane) {
    while (started[lane] < per_lane) {
      const pid_t pid = StartQuietly(program, arguments_of(lane, started[lane]++));
      if (pid > 0) {
        running.push_back({pid, lane, OpenProcessDescriptor(pid)});
        return;
      }
      ++failures;
    }
  };
  for (int lane = 0; lane < lanes; ++lane) {
    start_next(lane);
  }
  // Each program is waited for by its pid: other children of the test (an
  // observer, say) are left to whoever started them.
  while (!running.empty()) {
    std::vector<struct pollfd> ends;
    for (const LaneProgram& each : running) {
      ends.push_back({each.descriptor, POLLIN, 0});
    }
    // Without a descriptor (a kernel that has none) the loop looks again
    // every 10 ms instead.
    (void)poll(ends.data(), ends.size(), 10);
    std::vector<LaneProgram> still_running;
    std::vector<int> lanes_to_go_on;
    for (const LaneProgram& each : running) {
      int status = 0;
      const pid_t ended = waitpid(each.pid, &status, WNOHANG);
      if (ended == 0 || (ended < 0 && errno == EINTR)) {
        still_running.push_back(each);
        continue;
      }
      if (each.descriptor >= 0) {
        close(each.descriptor);
      }
      if (ended < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        ++failures;
      }
      lanes_to_go_on.push_back(each.lane);
    }
    running = std::move(still_running);
    for (int lane : lanes_to_go_on) {
      start_next(lane);
    }
  }
  return failures;
}

} // namespace oru_testing
