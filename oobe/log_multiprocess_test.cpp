// Many processes appending to one log file at once.
#include "oobe/file_lock.h"
#include "testing/child_process.h"
#include "testing/log_test_support.h"
#include "testing/namespaces.h"
#include "testing/sandbox.h"

#include <algorithm>
#include <cstdio>
#include <dirent.h>
#include <gtest/gtest.h>
#include <map>
#include <poll.h>
#include <random>
#include <regex>
#include <signal.h>
#include <string>
#include <sys/inotify.h>
#include <sys/sem.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace oobe {
namespace {

using oobe::testing::LinesOf;
using oobe::testing::MessageOf;

using Helper = oru_testing::ChildProgram;

// A log's lock is a System V set keyed by ftok, which keeps 16 bits of the
// file's inode: in the machine's IPC namespace, a log of another test or of
// another build's suite running beside this one can share its set, and a
// held lock there would change what these tests count. With root they get
// an IPC namespace of their own (their helpers inherit it); without, they
// run as they are.
[[maybe_unused]] const bool kPrivateIpc = oru_testing::EnterPrivateIpcNamespace();

// Starts log_writer_helper with `arguments`; its standard input is the read
// end of `gate`, and it keeps no copy of the write end, so that closing
// that end opens the gate. Its standard error goes to `errors` when not -1.
Helper Start(const std::vector<std::string>& arguments, const int (&gate)[2], int errors = -1) {
  return oru_testing::StartProgram(ORU_LOG_WRITER_HELPER, arguments, gate[0], gate[1], errors);
}

int Finish(Helper& helper) {
  return oru_testing::FinishProgram(helper);
}

// The log folder's files in rotation order: copies by name, the live log last.
std::vector<std::string> LogFilesInOrder(const std::string& folder, const std::string& live) {
  std::vector<std::string> copies;
  DIR* dir = opendir(folder.c_str());
  while (const struct dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.rfind("load ", 0) == 0) {
      copies.push_back(folder + "/" + name);
    }
  }
  closedir(dir);
  std::sort(copies.begin(), copies.end());
  copies.push_back(folder + "/" + live);
  return copies;
}

bool SemaphoreSetExists(const std::string& path) {
  const key_t key = static_cast<key_t>(FileLockKey(path));
  return key != -1 && semget(key, 0, 0) >= 0;
}

int64_t NowSeconds() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return now.tv_sec;
}

// A process holding load.log's lock in `folder`, once it says it has it
// (pid -1 when it never did).
Helper StartHolder(const std::string& folder, const int (&gate)[2]) {
  Helper holder = Start({"hold", folder, "load.log"}, gate);
  char ready[16] = "";
  if (!fgets(ready, sizeof ready, holder.output) || std::string(ready) != "locked\n") {
    holder.pid = -1;
  }
  return holder;
}

// `count` writers of `lines` lines of `pad` x's each on load.log, behind
// one start gate that this opens; their standard error goes to `errors`
// when not -1.
std::vector<Helper> StartWriters(const std::string& folder, int count, int lines, int pad,
                                 int errors = -1) {
  int gate[2];
  std::vector<Helper> writers;
  if (pipe(gate) != 0) {
    return writers;
  }
  for (int id = 0; id < count; ++id) {
    writers.push_back(Start({"write", folder, "load.log", std::to_string(id), std::to_string(lines),
                             std::to_string(NowSeconds()), std::to_string(pad)},
                            gate, errors));
  }
  close(gate[0]);
  close(gate[1]);
  return writers;
}

TEST(LogMultiprocessTest, EightWritersLoseNoLineThroughRotations) {
  constexpr int kWriters = 8;
  constexpr int kLines = 20000;
  constexpr int kPad = 120;
  oru_testing::Sandbox sandbox;
  const std::string folder = sandbox.Path("logs");
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  oru_testing::WriteFile(folder + "/asu.trace", "keeplogs");
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  std::vector<Helper> writers;
  const int64_t start = NowSeconds();
  for (int id = 0; id < kWriters; ++id) {
    writers.push_back(Start({"write", folder, "load.log", std::to_string(id),
                             std::to_string(kLines), std::to_string(start), std::to_string(kPad)},
                            gate));
  }
  close(gate[0]);
  close(gate[1]);
  for (Helper& writer : writers) {
    ASSERT_EQ(Finish(writer), 0);
  }

  const std::regex shape("p([0-9]+) n([0-9]+) x{" + std::to_string(kPad) + "}");
  std::vector<int> next(kWriters, 0);
  int duplicated_or_out_of_order = 0;
  int torn = 0;
  const std::vector<std::string> files = LogFilesInOrder(folder, "load.log");
  for (size_t f = 0; f < files.size(); ++f) {
    const auto lines = LinesOf(files[f]);
    // Every segment after the first begins with the header block.
    if (f > 0) {
      ASSERT_GE(lines.size(), 6u) << files[f];
      EXPECT_EQ(MessageOf(lines[0]), std::string(78, '*')) << files[f];
      EXPECT_EQ(MessageOf(lines[5]), std::string(78, '*')) << files[f];
    }
    for (const std::string& line : lines) {
      const std::string message = MessageOf(line);
      std::smatch match;
      if (message == std::string(78, '*') || message.find(": ") != std::string::npos) {
        continue; // header block
      }
      if (!std::regex_match(message, match, shape)) {
        ++torn;
        continue;
      }
      const int id = std::stoi(match[1]);
      const int number = std::stoi(match[2]);
      if (id >= kWriters || number != next[id]) {
        ++duplicated_or_out_of_order;
      } else {
        ++next[id];
      }
    }
  }
  int missing = 0;
  for (int id = 0; id < kWriters; ++id) {
    missing += kLines - next[id];
  }
  std::printf("lines written: %d by %d processes, rotations: %zu, missing: %d, torn: %d, "
              "duplicated or out of order: %d\n",
              kWriters * kLines, kWriters, files.size() - 1, missing, torn,
              duplicated_or_out_of_order);
  EXPECT_GE(files.size() - 1, 2u) << "the size limit must be crossed at least twice";
  EXPECT_EQ(missing, 0);
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(duplicated_or_out_of_order, 0);
  EXPECT_FALSE(SemaphoreSetExists(folder + "/load.log"));
}

TEST(LogMultiprocessTest, KillsDuringRotationLoseNoLineAndLeaveNoPartialCopy) {
  constexpr int kWriters = 8;
  constexpr int kLines = 20000;
  constexpr int kPad = 900; // long lines: a rotation every few thousand lines
  constexpr int kKills = 10;
  oru_testing::Sandbox sandbox;
  const std::string folder = sandbox.Path("logs");
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  oru_testing::WriteFile(folder + "/asu.trace", "keeplogs"); // keep every copy to check it
  oru_testing::WriteFile(folder + "/load.log", "");
  const int watch = inotify_init1(IN_CLOEXEC);
  ASSERT_GE(watch, 0);
  ASSERT_GE(inotify_add_watch(watch, folder.c_str(), IN_CREATE), 0);

  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  std::map<pid_t, Helper> running;
  std::map<pid_t, int> id_of;
  std::vector<bool> killed;
  const auto start_writer = [&] {
    const int id = static_cast<int>(killed.size());
    Helper writer = Start({"write", folder, "load.log", std::to_string(id), std::to_string(kLines),
                           std::to_string(NowSeconds()), std::to_string(kPad)},
                          gate);
    killed.push_back(false);
    id_of[writer.pid] = id;
    running.emplace(writer.pid, writer);
  };
  for (int i = 0; i < kWriters; ++i) {
    start_writer();
  }
  close(gate[0]);
  close(gate[1]);

  std::mt19937 random(12345);
  int kills = 0;
  while (!running.empty()) {
    struct pollfd ready = {watch, POLLIN, 0};
    if (poll(&ready, 1, 100) == 1) {
      char events[4096];
      const ssize_t got = read(watch, events, sizeof events);
      bool copying = false;
      for (ssize_t at = 0; at < got;) {
        const auto* event = reinterpret_cast<const struct inotify_event*>(events + at);
        copying |= event->len > 0 && std::string(event->name) == ".load.log.rotating";
        at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
      }
      // The process copying holds the lock: the last to take it.
      const int set = semget(static_cast<key_t>(FileLockKey(folder + "/load.log")), 0, 0);
      const pid_t rotating = set >= 0 ? semctl(set, 1, GETPID) : -1;
      if (copying && kills < kKills && running.count(rotating)) {
        // Somewhere in the copy, or just after it.
        const struct timespec moment = {0, std::uniform_int_distribution<long>(0, 5000000)(random)};
        nanosleep(&moment, nullptr);
        kill(rotating, SIGKILL);
        ++kills;
      }
    }
    for (auto it = running.begin(); it != running.end();) {
      int status = 0;
      if (waitpid(it->first, &status, WNOHANG) != it->first) {
        ++it;
        continue;
      }
      fclose(it->second.output);
      const bool was_killed = WIFSIGNALED(status);
      EXPECT_TRUE(was_killed || WEXITSTATUS(status) == 0);
      if (was_killed) {
        killed[static_cast<size_t>(id_of[it->first])] = true;
      }
      it = running.erase(it);
      if (was_killed) {
        // A replacement, started at once: its gate is open from the start.
        ASSERT_EQ(pipe(gate), 0);
        close(gate[1]);
        gate[1] = -1;
        start_writer();
        close(gate[0]);
      }
    }
  }
  close(watch);

  std::vector<std::map<int, int>> seen(killed.size());
  int torn = 0;
  int partial_copies = 0;
  const std::vector<std::string> files = LogFilesInOrder(folder, "load.log");
  for (const std::string& file : files) {
    const std::string content = oru_testing::ReadFile(file);
    if (!content.empty() && content.back() != '\n') {
      ++partial_copies;
    }
    for (const std::string& line : LinesOf(file)) {
      const std::string message = MessageOf(line);
      if (message == std::string(78, '*') || message.find(": ") != std::string::npos) {
        continue; // header block
      }
      unsigned id = 0;
      int number = 0;
      int pad_start = 0;
      // "p<ID> n<N> " and exactly kPad x's: a torn line is shorter or longer.
      if (std::sscanf(message.c_str(), "p%u n%d %n", &id, &number, &pad_start) != 2 ||
          pad_start == 0 || message.size() != static_cast<size_t>(pad_start) + kPad ||
          message.find_first_not_of('x', static_cast<size_t>(pad_start)) != std::string::npos ||
          id >= seen.size()) {
        ++torn;
        continue;
      }
      ++seen[id][number];
    }
  }
  int lost = 0;
  int duplicated = 0;
  for (size_t id = 0; id < seen.size(); ++id) {
    // A finished writer wrote every line; a killed one every line up to the
    // last it got out.
    const int last = killed[id] ? (seen[id].empty() ? -1 : seen[id].rbegin()->first) : kLines - 1;
    for (int n = 0; n <= last; ++n) {
      const auto found = seen[id].find(n);
      if (found == seen[id].end()) {
        ++lost;
      } else {
        duplicated += found->second - 1;
      }
    }
  }
  std::printf("writers: %d, kills during rotation: %d, copies: %zu, lost: %d, torn: %d, "
              "partial copies: %d, duplicated lines: %d\n",
              static_cast<int>(killed.size()), kills, files.size() - 1, lost, torn, partial_copies,
              duplicated);
  EXPECT_EQ(kills, kKills);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(partial_copies, 0);
}

// A log whose lock another process has held since before the test began.
class HeldLogLockTest : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_EQ(mkdir(folder_.c_str(), 0755), 0);
    oru_testing::WriteFile(folder_ + "/load.log", "");
    ASSERT_EQ(pipe(holder_gate_), 0);
    holder_ = StartHolder(folder_, holder_gate_);
    ASSERT_GT(holder_.pid, 0);
  }

  void TearDown() override {
    if (holder_.pid > 0) {
      KillHolder();
    }
  }

  // Kills the holder, stopped or not, and reaps it.
  void KillHolder() {
    kill(holder_.pid, SIGKILL);
    EXPECT_EQ(Finish(holder_), -SIGKILL);
    holder_.pid = -1;
    close(holder_gate_[0]);
    close(holder_gate_[1]);
  }

  oru_testing::Sandbox sandbox_;
  const std::string folder_ = sandbox_.Path("logs");
  int holder_gate_[2] = {-1, -1};
  Helper holder_;
};

TEST_F(HeldLogLockTest, WriterKilledHoldingTheLockStopsNobodyAndNoSetIsLeft) {
  constexpr int kWriters = 3;
  constexpr int kLines = 500;
  std::vector<Helper> writers = StartWriters(folder_, kWriters, kLines, 4);
  KillHolder();
  for (Helper& writer : writers) {
    EXPECT_EQ(Finish(writer), 0);
  }
  EXPECT_EQ(LinesOf(folder_ + "/load.log").size(), static_cast<size_t>(kWriters * kLines));
  EXPECT_FALSE(SemaphoreSetExists(folder_ + "/load.log"));
}

TEST_F(HeldLogLockTest, WriterStoppedHoldingTheLockDelaysTheOthersOnlyByTheBound) {
  constexpr int kWriters = 3;
  constexpr int kLines = 500;
  constexpr int kPad = 200;
  // Stopped as a debugger or a suspended job would stop it: it keeps the
  // lock for as long as it stays stopped.
  ASSERT_EQ(kill(holder_.pid, SIGSTOP), 0);

  const oru_testing::ErrorCapture errors;
  std::vector<Helper> writers = StartWriters(folder_, kWriters, kLines, kPad, errors.fd());
  for (Helper& writer : writers) {
    EXPECT_EQ(Finish(writer), 0);
  }
  KillHolder();

  // Every line whole, every writer's lines all there and in order.
  const std::regex shape("p([0-9]+) n([0-9]+) x{" + std::to_string(kPad) + "}");
  std::vector<int> next(kWriters, 0);
  int torn = 0;
  int out_of_order = 0;
  for (const std::string& line : LinesOf(folder_ + "/load.log")) {
    const std::string message = MessageOf(line);
    std::smatch match;
    if (!std::regex_match(message, match, shape)) {
      ++torn;
      continue;
    }
    const int id = std::stoi(match[1]);
    if (id >= kWriters || std::stoi(match[2]) != next[id]) {
      ++out_of_order;
    } else {
      ++next[id];
    }
  }
  int missing = 0;
  for (int id = 0; id < kWriters; ++id) {
    missing += kLines - next[id];
  }
  EXPECT_EQ(missing, 0);
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(out_of_order, 0);
  // Each writer waited out the bound once, at its first record, and wrote
  // the others without waiting.
  EXPECT_EQ(errors.LinesContaining("was held by another process"), kWriters) << errors.Text();
}

TEST_F(HeldLogLockTest, AWaitThatRanOutIsNotWaitedAgainUntilTheLockIsTaken) {
  FileLockHandle handle;
  ASSERT_TRUE(CreateFileLock(handle, folder_ + "/load.log"));
  EXPECT_EQ(LockFileBounded(handle), LockOutcome::kTimedOut);
  EXPECT_EQ(LockFileBounded(handle), LockOutcome::kStillHeld);
  EXPECT_EQ(LockFileBounded(handle), LockOutcome::kStillHeld);
  KillHolder();
  EXPECT_EQ(LockFileBounded(handle), LockOutcome::kTaken);
  EXPECT_TRUE(UnlockFile(handle));
  EXPECT_EQ(LockFileBounded(handle), LockOutcome::kTaken);
  EXPECT_TRUE(UnlockFile(handle));
  DetachFileLock(handle);
}

} // namespace
} // namespace oobe
