#include "testing/child_process.h"

#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

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

ChildProgram StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                          int input, int close_in_child) {
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

} // namespace oru_testing
