// Running the real executables of the hand-over in a test.
#ifndef ORU_TESTS_E2E_E2E_SUPPORT_H
#define ORU_TESTS_E2E_E2E_SUPPORT_H

#include "testing/child_process.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace e2e {

// Starts `program` with `arguments` (argv[0] is the program) and this
// process's environment; its standard error goes to `errors` when not -1.
oru_testing::ChildProgram Start(const std::string& program,
                                const std::vector<std::string>& arguments = {}, int errors = -1);
// Its exit status (or -signal).
int Wait(oru_testing::ChildProgram& child);

// Waits, at most 10 s, until `count` processes block on the set's semaphore.
bool WaitForWaiters(int semaphore_set, int count);

bool SetExists(key_t key);

// Leaves the preferences lock of `prefs_path` stale: a process takes it and
// is killed holding it. False when that did not happen.
bool LeaveStalePrefsLock(const std::string& prefs_path);

// Names of POSIX named semaphores left in /dev/shm.
std::vector<std::string> NamedSemaphores();

// The fake Zelto installed where the launcher looks for Zelto, with a fifo
// beside it that reports its start.
class FakeZelto {
public:
  FakeZelto(const std::string& path, const std::string& program);
  ~FakeZelto();
  // Waits (at most 10 s) for the app to have started; its record then.
  bool WaitForStart();
  std::vector<std::string> Arguments() const;
  long long StartNanoseconds() const;
  // Who it ran as: "uid=U gid=G groups=...".
  std::string Identity() const;
  bool Started() const;

private:
  std::string path_;
  int fifo_ = -1;
};

// The message column of each line of a log, with the line's thread id.
struct LogEntry {
  std::string thread;
  std::string message;
};
std::vector<LogEntry> ReadLog(const std::string& path);
std::vector<std::string> MessagesOf(const std::vector<LogEntry>& entries,
                                    const std::string& thread = "");

} // namespace e2e

#endif // ORU_TESTS_E2E_E2E_SUPPORT_H
