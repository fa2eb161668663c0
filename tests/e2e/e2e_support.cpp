#include "tests/e2e/e2e_support.h"

#include "locks/resource_locker.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"

#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <signal.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace e2e {

oru_testing::ChildProgram Start(const std::string& program,
                                const std::vector<std::string>& arguments, int errors) {
  return oru_testing::StartProgram(program, arguments, -1, -1, errors);
}

int Wait(oru_testing::ChildProgram& child) {
  return oru_testing::FinishProgram(child);
}

bool LeaveStalePrefsLock(const std::string& prefs_path) {
  const pid_t child = fork();
  if (child == 0) {
    esd::ResourceLocker locker(prefs_path, 3000);
    locker.Lock();
    raise(SIGKILL);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFSIGNALED(status) &&
         WTERMSIG(status) == SIGKILL;
}

bool WaitForWaiters(int semaphore_set, int count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (semctl(semaphore_set, 0, GETNCNT) < count) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

bool SetExists(key_t key) {
  return key != -1 && semget(key, 0, 0) >= 0;
}

std::vector<std::string> NamedSemaphores() {
  std::vector<std::string> names;
  if (DIR* dir = opendir("/dev/shm")) {
    while (const struct dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name.rfind("sem.", 0) == 0) {
        names.push_back(name);
      }
    }
    closedir(dir);
  }
  return names;
}

FakeZelto::FakeZelto(const std::string& path, const std::string& program) : path_(path) {
  platform::CreateDirectoryTree(platform::DirName(path));
  platform::CopyFileContents(program, path);
  chmod(path.c_str(), 0755);
  mkfifo((path + ".fifo").c_str(), 0600);
  // Read and write: holding a writer of its own, the FIFO never reports a
  // hang-up when an app closes it (Linux allows this on a FIFO), so every
  // wait is for a new byte.
  fifo_ = open((path + ".fifo").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

FakeZelto::~FakeZelto() {
  if (fifo_ >= 0) {
    close(fifo_);
  }
}

bool FakeZelto::WaitForStart() {
  struct pollfd wait = {fifo_, POLLIN, 0};
  if (poll(&wait, 1, 10000) != 1 || !(wait.revents & POLLIN)) {
    return false;
  }
  // Emptied, so that the next start is waited for anew.
  char bytes[64];
  while (read(fifo_, bytes, sizeof bytes) > 0) {
  }
  return Started();
}

bool FakeZelto::Started() const {
  return platform::PathExists(path_ + ".record");
}

std::vector<std::string> FakeZelto::Arguments() const {
  std::ifstream in(path_ + ".record");
  std::vector<std::string> lines;
  std::string line;
  std::getline(in, line); // the start time
  while (std::getline(in, line)) {
    lines.push_back(line);
  }
  return lines;
}

long long FakeZelto::StartNanoseconds() const {
  std::ifstream in(path_ + ".record");
  long long nanoseconds = 0;
  in >> nanoseconds;
  return nanoseconds;
}

std::string FakeZelto::Identity() const {
  std::ifstream in(path_ + ".record");
  long long nanoseconds = 0;
  std::string identity;
  in >> nanoseconds;
  std::getline(in, identity);
  return identity.empty() ? identity : identity.substr(1);
}

std::vector<LogEntry> ReadLog(const std::string& path) {
  std::ifstream in(path);
  std::vector<LogEntry> entries;
  std::string line;
  while (std::getline(in, line)) {
    std::vector<size_t> separators;
    for (size_t at = line.find(" | "); at != std::string::npos && separators.size() < 9;
         at = line.find(" | ", at + 3)) {
      separators.push_back(at);
    }
    if (separators.size() < 9) {
      entries.push_back({"", line}); // a continuation of the previous line's message
      continue;
    }
    entries.push_back({line.substr(separators[7] + 3, separators[8] - separators[7] - 3),
                       line.substr(separators[8] + 3)});
  }
  return entries;
}

std::vector<std::string> MessagesOf(const std::vector<LogEntry>& entries,
                                    const std::string& thread) {
  std::vector<std::string> messages;
  for (const LogEntry& entry : entries) {
    if (thread.empty() || entry.thread == thread || entry.thread.empty()) {
      messages.push_back(entry.message);
    }
  }
  return messages;
}

} // namespace e2e
