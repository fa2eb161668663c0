#include "locks/resource_locker.h"
#include "testing/sandbox.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <numeric>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// What the locker asks of the system while it waits, seen through the
// link-time wrappers of usleep and sem_open that this test program has.
struct LockerCalls {
  bool counting = false;
  std::vector<unsigned> pauses; // microseconds asked for, in order
  int exclusive_creates = 0;    // attempts to make the semaphore
};

LockerCalls& Calls() {
  static LockerCalls calls;
  return calls;
}

extern "C" int __real_usleep(useconds_t microseconds);
extern "C" int __wrap_usleep(useconds_t microseconds) {
  if (Calls().counting) {
    Calls().pauses.push_back(microseconds);
  }
  return __real_usleep(microseconds);
}

extern "C" sem_t* __real_sem_open(const char* name, int flags, ...);
extern "C" sem_t* __wrap_sem_open(const char* name, int flags, ...) {
  if ((flags & O_CREAT) == 0) {
    return __real_sem_open(name, flags);
  }
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = static_cast<mode_t>(va_arg(arguments, unsigned));
  const unsigned value = va_arg(arguments, unsigned);
  va_end(arguments);
  if (Calls().counting && (flags & O_EXCL) != 0) {
    ++Calls().exclusive_creates;
  }
  return __real_sem_open(name, flags, mode, value);
}

namespace esd {
namespace {

// A locker_helper child with pipes to its standard input and output.
class HelperProcess {
public:
  explicit HelperProcess(const std::string& resource) {
    int to_child[2];
    int from_child[2];
    if (pipe(to_child) != 0 || pipe(from_child) != 0) {
      return;
    }
    pid_ = fork();
    if (pid_ == 0) {
      dup2(to_child[0], STDIN_FILENO);
      dup2(from_child[1], STDOUT_FILENO);
      close(to_child[1]);
      close(from_child[0]);
      execl(ORU_LOCKER_HELPER, ORU_LOCKER_HELPER, resource.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    close(to_child[0]);
    close(from_child[1]);
    to_child_ = to_child[1];
    from_child_ = fdopen(from_child[0], "r");
  }

  ~HelperProcess() {
    if (to_child_ >= 0) {
      close(to_child_);
    }
    if (from_child_) {
      fclose(from_child_);
    }
    if (pid_ > 0 && !reaped_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

  // The helper's first line: "locked" or "busy".
  std::string ReadLine() {
    char line[64] = "";
    if (!from_child_ || !fgets(line, sizeof line, from_child_)) {
      return "";
    }
    std::string text = line;
    if (!text.empty() && text.back() == '\n') {
      text.pop_back();
    }
    return text;
  }

  // Asks the helper to unlock and waits for its exit status.
  int Release() {
    (void)!write(to_child_, "\n", 1);
    return Wait();
  }

  pid_t pid() const { return pid_; }

  int Kill() {
    kill(pid_, SIGKILL);
    return Wait();
  }

  int Wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

private:
  pid_t pid_ = -1;
  int to_child_ = -1;
  FILE* from_child_ = nullptr;
  bool reaped_ = false;
};

// A program that keeps no record, holding a resource's semaphore: it takes
// the semaphore alone and holds it until it lets go.
class RecordlessHolder {
public:
  explicit RecordlessHolder(const std::string& resource)
      : name_(SystemSemaphoreName(ResourceLocker::SemaphoreName(resource))) {
    Take();
  }
  ~RecordlessHolder() { (void)LetGo(); }
  RecordlessHolder(const RecordlessHolder&) = delete;
  RecordlessHolder& operator=(const RecordlessHolder&) = delete;

  void Take() { semaphore_ = sem_open(name_.c_str(), O_CREAT | O_EXCL, 0700, 1); }
  bool holds() const { return semaphore_ != SEM_FAILED; }
  // True when the semaphore is gone.
  bool LetGo() {
    if (!holds()) {
      return true;
    }
    sem_close(semaphore_);
    semaphore_ = SEM_FAILED;
    return sem_unlink(name_.c_str()) == 0;
  }

private:
  std::string name_;
  sem_t* semaphore_ = SEM_FAILED;
};

class ResourceLockerTest : public ::testing::Test {
protected:
  void TearDown() override {
    // Whatever a test left behind, no semaphore outlives it.
    ResourceLocker cleaner(resource_, 0);
    (void)cleaner.Unlock(true);
  }

  oru_testing::Sandbox sandbox_;
  std::string resource_ = sandbox_.Path("prefs.dat");
  // A resource that is no file path keeps no holder record: its lock works
  // exactly as every program sharing these locks does.
  std::string unrecorded_ = "unrecorded resource " + sandbox_.root();
};

TEST_F(ResourceLockerTest, SemaphoreNameIsBase64OfTheMd5Digest) {
  // MD5("abc") = 900150983cd24fb0d6963f7d28e17f72.
  EXPECT_EQ(ResourceLocker::SemaphoreName("abc"), "kAFQmDzST7DWlj99KOF/cg==");
}

TEST_F(ResourceLockerTest, AnyResourceNameGivesA24CharacterSemaphoreName) {
  for (const std::string& name : {std::string(), std::string("x"), std::string(100000, 'y'),
                                  std::string("/Users/a b/Library/\xC3\xA9.dat")}) {
    EXPECT_EQ(ResourceLocker::SemaphoreName(name).size(), 24u);
  }
}

TEST_F(ResourceLockerTest, SystemNameStartsWithSlashAndHoldsNoOtherSlash) {
  const std::string name = SystemSemaphoreName("kAFQmDzST7DWlj99KOF/cg==");
  EXPECT_EQ(name, "/kAFQmDzST7DWlj99KOF_cg==");
}

TEST_F(ResourceLockerTest, LockAndUnlock) {
  ResourceLocker locker(resource_, 3000);
  EXPECT_FALSE(locker.IsLocked());
  ASSERT_TRUE(locker.Lock());
  EXPECT_TRUE(locker.IsLocked());
  ASSERT_TRUE(locker.Unlock(false));
  EXPECT_FALSE(locker.IsLocked());
  ASSERT_TRUE(locker.Lock());
  ASSERT_TRUE(locker.Unlock(false));
}

TEST_F(ResourceLockerTest, LockingTwiceWithOneObjectThrows) {
  ResourceLocker locker(resource_, 0);
  ASSERT_TRUE(locker.Lock());
  try {
    locker.Lock();
    FAIL() << "no exception";
  } catch (const resource_lock_fail& failure) {
    EXPECT_STREQ(failure.what(), "A resource is already being locked");
    EXPECT_EQ(failure.resource(), resource_);
  }
  EXPECT_TRUE(locker.IsLocked());
}

TEST_F(ResourceLockerTest, UnlockWithoutLockThrows) {
  ResourceLocker locker(resource_, 0);
  try {
    locker.Unlock(false);
    FAIL() << "no exception";
  } catch (const no_resource_lock& failure) {
    EXPECT_STREQ(failure.what(), "This object is not locking an item");
    EXPECT_EQ(failure.resource(), "Resource unknown");
  }
}

TEST_F(ResourceLockerTest, ForcedUnlockWithoutLockSucceedsWhenTheNameExists) {
  ResourceLocker holder(unrecorded_, 0);
  ASSERT_TRUE(holder.Lock());
  ResourceLocker breaker(unrecorded_, 0);
  EXPECT_TRUE(breaker.Unlock(true));
  // The name is gone: anyone may lock again.
  ResourceLocker next(unrecorded_, 0);
  EXPECT_TRUE(next.Lock());
  EXPECT_TRUE(next.Unlock(false));
  ResourceLocker cleaner(unrecorded_, 0);
  (void)cleaner.Unlock(true);
}

// Other programs let anyone in once a forced unlock has removed the name,
// even while its holder still works on the file, and updates are lost.
// With a holder record, nobody that keeps records gets in before the
// recorded holder lets go.
TEST_F(ResourceLockerTest, AForcedUnlockLetsNobodyInWhileTheRecordedHolderLives) {
  HelperProcess holder(resource_);
  ASSERT_EQ(holder.ReadLine(), "locked");
  ResourceLocker breaker(resource_, 0);
  EXPECT_TRUE(breaker.Unlock(true));
  ResourceLocker next(resource_, 0);
  EXPECT_FALSE(next.Lock());
  EXPECT_EQ(holder.Release(), 3); // its name was removed under it
  EXPECT_TRUE(next.Lock());
  EXPECT_TRUE(next.Unlock(false));
}

TEST_F(ResourceLockerTest, AHolderKeepsARecordNamingItWhileItHoldsAndLeavesNoneAfter) {
  ResourceLocker locker(resource_, 0);
  ASSERT_TRUE(locker.Lock());
  HolderView view = LookAtHolder(resource_);
  EXPECT_EQ(view.record, HolderView::Record::kLive);
  EXPECT_EQ(view.holder.pid, getpid());
  EXPECT_TRUE(ResourceLocker::IsHeldByAnyone(resource_));
  ASSERT_TRUE(locker.Unlock(false));
  view = LookAtHolder(resource_);
  EXPECT_EQ(view.record, HolderView::Record::kNone);
  EXPECT_FALSE(ResourceLocker::IsHeldByAnyone(resource_));
}

// Left-over bytes that name nobody (a record file some other writer spoiled)
// are no holder; the record written over them is cut to its own length.
TEST_F(ResourceLockerTest, ARecordWrittenOverLongerLeftoverBytesIsCutToItsOwnLength) {
  const std::string record_path = HolderRecordPath(resource_);
  {
    std::FILE* spoiled = std::fopen(record_path.c_str(), "w");
    ASSERT_NE(spoiled, nullptr);
    std::fputs(std::string(100, 'x').c_str(), spoiled);
    std::fclose(spoiled);
  }
  ResourceLocker locker(resource_, 0);
  ASSERT_TRUE(locker.Lock());
  std::FILE* written = std::fopen(record_path.c_str(), "r");
  ASSERT_NE(written, nullptr);
  char text[200] = {};
  const size_t length = std::fread(text, 1, sizeof text - 1, written);
  std::fclose(written);
  EXPECT_EQ(std::string(text, length).find('x'), std::string::npos) << text;
  EXPECT_EQ(LookAtHolder(resource_).holder.pid, getpid());
  ASSERT_TRUE(locker.Unlock(false));
  // Taken again over its own cleared record, it writes a whole one again.
  ASSERT_TRUE(locker.Lock());
  EXPECT_EQ(LookAtHolder(resource_).holder.pid, getpid());
  ASSERT_TRUE(locker.Unlock(false));
}

TEST_F(ResourceLockerTest, ForcedUnlockOfANameThatIsNotThereFails) {
  ResourceLocker locker(resource_, 0);
  EXPECT_FALSE(locker.Unlock(true));
}

TEST_F(ResourceLockerTest, DestructorReleasesAHeldLock) {
  {
    ResourceLocker locker(resource_, 0);
    ASSERT_TRUE(locker.Lock());
  }
  ResourceLocker next(resource_, 0);
  EXPECT_TRUE(next.Lock());
  EXPECT_TRUE(next.Unlock(false));
}

TEST_F(ResourceLockerTest, TagIsKept) {
  ResourceLocker::ResourceLockerPlat plat(resource_, 3000);
  EXPECT_EQ(plat.tag(), 3000);
}

TEST_F(ResourceLockerTest, SecondProcessGivesUpAfterItsAttemptsAndSucceedsOnceReleased) {
  ResourceLocker locker(resource_, 0);
  ASSERT_TRUE(locker.Lock());
  HelperProcess contender(resource_);
  EXPECT_EQ(contender.ReadLine(), "busy");
  EXPECT_EQ(contender.Wait(), 1);
  ASSERT_TRUE(locker.Unlock(false));
  HelperProcess next(resource_);
  EXPECT_EQ(next.ReadLine(), "locked");
  EXPECT_EQ(next.Release(), 0);
}

// The bound of a contended wait: other programs make 100 attempts 10 ms apart.
constexpr auto kWaitBound =
    std::chrono::microseconds(ResourceLocker::kLockAttempts * ResourceLocker::kPauseMicroseconds);

// Lock() with the locker's pauses and semaphore attempts counted.
bool CountedLock(ResourceLocker& locker, std::chrono::steady_clock::duration& waited) {
  Calls() = LockerCalls();
  Calls().counting = true;
  const auto start = std::chrono::steady_clock::now();
  const bool taken = locker.Lock();
  waited = std::chrono::steady_clock::now() - start;
  Calls().counting = false;
  return taken;
}

uint64_t PausedMicroseconds() {
  return std::accumulate(Calls().pauses.begin(), Calls().pauses.end(), uint64_t{0});
}

// Other programs try the semaphore 100 times, 10 ms apart. While a process
// that keeps a record holds the lock, this one looks at the record again
// every millisecond instead, never trying the semaphore, within the same
// bound: the lock passes on as soon as the record is let go. (Both bounds
// checked hold under any load: the wait cannot end before its deadline,
// and the pauses asked for cannot add up past it.)
TEST_F(ResourceLockerTest, ALiveRecordedHolderIsLookedAtEveryMillisecondWithinTheSameBound) {
  HelperProcess holder(resource_);
  ASSERT_EQ(holder.ReadLine(), "locked");
  ResourceLocker locker(resource_, 0);
  std::chrono::steady_clock::duration waited{};
  EXPECT_FALSE(CountedLock(locker, waited));
  EXPECT_EQ(Calls().exclusive_creates, 0);
  ASSERT_FALSE(Calls().pauses.empty());
  for (const unsigned pause : Calls().pauses) {
    ASSERT_EQ(pause, 1000u);
  }
  EXPECT_GE(waited, kWaitBound);
  EXPECT_LE(PausedMicroseconds(), static_cast<uint64_t>(kWaitBound.count()) + 1000u);
  EXPECT_EQ(holder.Release(), 0);
  EXPECT_TRUE(locker.Lock());
  EXPECT_TRUE(locker.Unlock(false));
}

// A holder that keeps no record: every attempt tries the semaphore, with
// the pause of 10 ms between attempts that other programs make.
TEST_F(ResourceLockerTest, AHolderWithoutRecordIsTriedAtTheSemaphoreEveryTenMilliseconds) {
  RecordlessHolder foreign(resource_);
  ASSERT_TRUE(foreign.holds());
  ResourceLocker locker(resource_, 0);
  std::chrono::steady_clock::duration waited{};
  EXPECT_FALSE(CountedLock(locker, waited));
  ASSERT_FALSE(Calls().pauses.empty());
  for (const unsigned pause : Calls().pauses) {
    ASSERT_EQ(pause, ResourceLocker::kPauseMicroseconds);
  }
  EXPECT_EQ(Calls().exclusive_creates, static_cast<int>(Calls().pauses.size()) + 1);
  EXPECT_GE(waited, kWaitBound);
  EXPECT_LE(PausedMicroseconds(),
            static_cast<uint64_t>(kWaitBound.count()) + ResourceLocker::kPauseMicroseconds);
  ASSERT_TRUE(foreign.LetGo());
}

// A holder that never lets go costs a process the bound once: the next
// lock of that name, by any object, tries once; once the lock has been
// taken again, a wait is a whole wait again.
TEST_F(ResourceLockerTest, AWaitThatRanOutIsNotWaitedAgainUntilTheLockIsTaken) {
  RecordlessHolder foreign(resource_);
  ASSERT_TRUE(foreign.holds());
  std::chrono::steady_clock::duration waited{};
  ResourceLocker first(resource_, 0);
  EXPECT_FALSE(CountedLock(first, waited));
  EXPECT_FALSE(Calls().pauses.empty());
  ResourceLocker second(resource_, 0);
  EXPECT_FALSE(CountedLock(second, waited));
  EXPECT_TRUE(Calls().pauses.empty());
  EXPECT_EQ(Calls().exclusive_creates, 1);
  ASSERT_TRUE(foreign.LetGo());
  EXPECT_TRUE(CountedLock(second, waited));
  EXPECT_TRUE(second.Unlock(false));
  foreign.Take();
  ASSERT_TRUE(foreign.holds());
  EXPECT_FALSE(CountedLock(first, waited));
  EXPECT_FALSE(Calls().pauses.empty());
  EXPECT_GE(waited, kWaitBound);
  ASSERT_TRUE(foreign.LetGo());
}

// A live holder that keeps a record lets go in its time: a wait that ran
// out on it is waited again in full next time.
TEST_F(ResourceLockerTest, AWaitThatRanOutOnALiveRecordedHolderIsWaitedAgain) {
  HelperProcess holder(resource_);
  ASSERT_EQ(holder.ReadLine(), "locked");
  ResourceLocker locker(resource_, 0);
  std::chrono::steady_clock::duration waited{};
  EXPECT_FALSE(CountedLock(locker, waited));
  EXPECT_FALSE(CountedLock(locker, waited));
  EXPECT_FALSE(Calls().pauses.empty());
  EXPECT_GE(waited, kWaitBound);
  EXPECT_EQ(holder.Release(), 0);
}

TEST_F(ResourceLockerTest, LockIsExclusiveAcrossProcesses) {
  HelperProcess holder(resource_);
  ASSERT_EQ(holder.ReadLine(), "locked");
  ResourceLocker locker(resource_, 0);
  EXPECT_FALSE(locker.Lock());
  EXPECT_EQ(holder.Release(), 0);
  EXPECT_TRUE(locker.Lock());
  EXPECT_TRUE(locker.Unlock(false));
}

TEST_F(ResourceLockerTest, HolderKilledLeavesTheNameAndOnlyAForcedUnlockFreesIt) {
  HelperProcess holder(unrecorded_);
  ASSERT_EQ(holder.ReadLine(), "locked");
  EXPECT_EQ(holder.Kill(), -SIGKILL);
  ResourceLocker locker(unrecorded_, 0);
  EXPECT_FALSE(locker.Lock());
  ResourceLocker breaker(unrecorded_, 0);
  ASSERT_TRUE(breaker.Unlock(true));
  EXPECT_TRUE(locker.Lock());
  EXPECT_TRUE(locker.Unlock(false));
}

// Other programs leave a killed holder's lock for ever, until a forced
// unlock. A holder that kept a record is judged dead by the kernel's word
// and its lock is recovered by the very next attempt.
TEST_F(ResourceLockerTest, AKilledRecordedHolderIsRecoveredAtTheNextAttempt) {
  HelperProcess holder(resource_);
  ASSERT_EQ(holder.ReadLine(), "locked");
  const pid_t killed = holder.pid();
  EXPECT_EQ(holder.Kill(), -SIGKILL);
  const HolderView view = LookAtHolder(resource_);
  EXPECT_EQ(view.record, HolderView::Record::kDead);
  EXPECT_EQ(view.holder.pid, killed);
  static std::vector<std::string> lines;
  lines.clear();
  SetResourceLockerLogHook([](int, const std::string& line) { lines.push_back(line); });
  // Without the recovery, every attempt of the bounded wait would fail.
  ResourceLocker locker(resource_, 0);
  EXPECT_TRUE(locker.Lock());
  SetResourceLockerLogHook(nullptr);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], "Resource lock of " + resource_ + " recovered from process " +
                          std::to_string(killed) + ", which died holding it");
  EXPECT_TRUE(locker.Unlock(false));
}

// A program that keeps no record takes only the semaphore: however long it
// holds it, nothing here judges it dead.
TEST_F(ResourceLockerTest, ASemaphoreWithoutRecordIsNeverJudgedDead) {
  RecordlessHolder foreign(resource_);
  ASSERT_TRUE(foreign.holds());
  EXPECT_EQ(LookAtHolder(resource_).record, HolderView::Record::kNone);
  ResourceLocker locker(resource_, 0);
  EXPECT_FALSE(locker.Lock());
  EXPECT_TRUE(ResourceLocker::IsHeldByAnyone(resource_));
  EXPECT_EQ(LookAtHolder(resource_).record, HolderView::Record::kNone);
  ASSERT_TRUE(foreign.LetGo());
  EXPECT_TRUE(locker.Lock());
  EXPECT_TRUE(locker.Unlock(false));
}

} // namespace
} // namespace esd
