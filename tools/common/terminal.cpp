#include "tools/common/terminal.h"

#include "platform/pipe.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace oru_tools {

namespace {

bool IsSet(const char* name) {
  const char* value = std::getenv(name);
  return value && *value;
}

std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream in(text);
  for (std::string word; in >> word;) {
    words.push_back(word);
  }
  return words;
}

// Whether `program` names an executable file: as a path when it holds a
// "/", else in one of the folders of PATH.
bool FindsProgram(const std::string& program) {
  if (program.find('/') != std::string::npos) {
    return access(program.c_str(), X_OK) == 0;
  }
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (access(((folder.empty() ? "." : folder) + "/" + program).c_str(), X_OK) == 0) {
      return true;
    }
  }
  return false;
}

// Text the shell must read (quotes, pipes, variables...), not plain words.
bool NeedsShell(const std::string& command) {
  return command.find_first_of("|&;<>()$`\\\"'*?[]#~=%{}") != std::string::npos;
}

// Runs the pager in the child: its words directly where they are plain, so
// that a program that is not there fails the exec (and the output stays on
// the terminal) instead of a shell's "not found" after the output is gone.
void ExecPager(const std::string& command) {
  if (NeedsShell(command)) {
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    return;
  }
  std::vector<std::string> words = Words(command);
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
}

} // namespace

const char kColourEnd[] = "\x1b[0m";

bool ColourWanted() {
  const char* term = std::getenv("TERM");
  return isatty(STDOUT_FILENO) && !IsSet("NO_COLOR") && !(term && std::strcmp(term, "dumb") == 0);
}

const char* LevelColour(const std::string& level_name) {
  if (level_name == "FATAL" || level_name == "ERROR") {
    return "\x1b[1;31m"; // bold red
  }
  if (level_name == "WARN") {
    return "\x1b[1;33m"; // bold yellow
  }
  if (level_name == "DEBUG" || level_name == "TRACE") {
    return "\x1b[2m"; // dim
  }
  return "";
}

void Pager::Start() {
  if (!isatty(STDOUT_FILENO)) {
    return;
  }
  const char* given = std::getenv("PAGER");
  const std::string command = given ? given : "less";
  const std::vector<std::string> words = Words(command);
  // No pager, or one that is not there: the output stays on the terminal.
  if (words.empty() || command == "cat" || !FindsProgram(words.front())) {
    return;
  }
  int data[2];
  int started[2]; // closed on a successful exec; carries errno otherwise
  if (!platform::MakeCloseOnExecPipe(data)) {
    return;
  }
  if (!platform::MakeCloseOnExecPipe(started)) {
    close(data[0]);
    close(data[1]);
    return;
  }
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(data[0], STDIN_FILENO);
    if (!given) {
      setenv("LESS", "FRX", /*overwrite=*/0);
    }
    ExecPager(command);
    const int failure = errno;
    (void)!write(started[1], &failure, sizeof failure);
    _exit(127);
  }
  close(data[0]);
  close(started[1]);
  int failure = 0;
  const bool exec_failed = child < 0 || read(started[0], &failure, sizeof failure) > 0;
  close(started[0]);
  if (exec_failed) {
    if (child > 0) {
      waitpid(child, nullptr, 0);
    }
    close(data[1]);
    return;
  }
  dup2(data[1], STDOUT_FILENO);
  close(data[1]);
  pager_ = child;
}

Pager::~Pager() {
  if (pager_ < 0) {
    return;
  }
  std::fflush(stdout);
  close(STDOUT_FILENO); // the pager sees the end of its input
  // A pager quit early is fine; what was left unprinted is not needed.
  while (waitpid(pager_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

} // namespace oru_tools
