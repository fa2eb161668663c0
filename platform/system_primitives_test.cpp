// The system primitives that have a Linux and a POSIX implementation: each
// build tests the one it holds (the portable build, the POSIX ones).
#include "platform/folder_watch.h"
#include "platform/monotonic_clock.h"
#include "platform/open_file_lock.h"
#include "platform/pipe.h"
#include "platform/semaphore_wait.h"
#include "testing/sandbox.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

namespace platform {
namespace {

// A private semaphore set of one semaphore at `value`, removed at the end.
class PrivateSemaphore {
public:
  explicit PrivateSemaphore(int value) : set_(semget(IPC_PRIVATE, 1, IPC_CREAT | 0600)) {
    union {
      int val;
    } argument = {value};
    if (set_ >= 0) {
      semctl(set_, 0, SETVAL, argument);
    }
  }
  ~PrivateSemaphore() { semctl(set_, 0, IPC_RMID); }
  int set() const { return set_; }

private:
  int set_;
};

constexpr struct timespec kQuarterSecond = {0, 250000000};

TEST(SemaphoreWaitTest, AWaitThatIsNeverAnsweredEndsAfterItsBoundWithEagain) {
  PrivateSemaphore semaphore(0);
  ASSERT_GE(semaphore.set(), 0);
  struct sembuf take = {0, -1, 0};
  const int64_t started = MonotonicNanoseconds();
  EXPECT_EQ(SemaphoreOperationWithin(semaphore.set(), take, &kQuarterSecond), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_GE(MonotonicNanoseconds() - started, 250000000);
}

TEST(SemaphoreWaitTest, APostByAnotherProcessWithinTheBoundEndsTheWait) {
  PrivateSemaphore semaphore(0);
  ASSERT_GE(semaphore.set(), 0);
  const pid_t poster = fork();
  if (poster == 0) {
    usleep(50000);
    struct sembuf post = {0, +1, 0};
    _exit(semop(semaphore.set(), &post, 1) == 0 ? 0 : 1);
  }
  struct sembuf take = {0, -1, 0};
  const struct timespec bound = {5, 0};
  EXPECT_EQ(SemaphoreOperationWithin(semaphore.set(), take, &bound), 0);
  int status = 0;
  ASSERT_EQ(waitpid(poster, &status, 0), poster);
  EXPECT_EQ(semctl(semaphore.set(), 0, GETVAL), 0);
}

TEST(SemaphoreWaitTest, NoWaitingAsked) {
  PrivateSemaphore semaphore(0);
  ASSERT_GE(semaphore.set(), 0);
  struct sembuf take = {0, -1, IPC_NOWAIT};
  const int64_t started = MonotonicNanoseconds();
  EXPECT_EQ(SemaphoreOperationWithin(semaphore.set(), take, &kQuarterSecond), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_LT(MonotonicNanoseconds() - started, 250000000) << "IPC_NOWAIT never waits";
}

TEST(PipeTest, BothEndsAreClosedInAStartedProgram) {
  int ends[2];
  ASSERT_TRUE(MakeCloseOnExecPipe(ends));
  EXPECT_EQ(fcntl(ends[0], F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(fcntl(ends[1], F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  char got = 0;
  EXPECT_EQ(read(ends[0], &got, 1), 1);
  EXPECT_EQ(got, 'x');
  close(ends[0]);
  close(ends[1]);
}

class OpenFileLockTest : public ::testing::Test {
protected:
  int Open() {
    const int fd = open(sandbox_.Path("record").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_GE(fd, 0);
    return fd;
  }
  oru_testing::Sandbox sandbox_;
};

TEST_F(OpenFileLockTest, TwoOpenFilesExcludeEachOtherAndALookTakesNothing) {
  const int first = Open();
  const int second = Open();
  const int looker = Open();
  bool locked = true;
  ASSERT_TRUE(IsOpenFileLocked(looker, locked));
  EXPECT_FALSE(locked);
  ASSERT_TRUE(TryLockOpenFile(first));
  EXPECT_FALSE(TryLockOpenFile(second));
  EXPECT_EQ(errno, EAGAIN);
  ASSERT_TRUE(IsOpenFileLocked(looker, locked));
  EXPECT_TRUE(locked);
  ASSERT_TRUE(UnlockOpenFile(first));
  ASSERT_TRUE(IsOpenFileLocked(looker, locked));
  EXPECT_FALSE(locked);
  EXPECT_TRUE(TryLockOpenFile(second)) << "the look left no lock behind";
  close(first);
  close(second);
  close(looker);
}

TEST_F(OpenFileLockTest, TheLockGoesWithTheLastDescriptorOfItsOpenFile) {
  const int first = Open();
  const int copy = dup(first);
  const int other = Open();
  ASSERT_TRUE(TryLockOpenFile(first));
  close(first);
  EXPECT_FALSE(TryLockOpenFile(other)) << "the copy still holds the open file";
  close(copy);
  EXPECT_TRUE(TryLockOpenFile(other));
  close(other);
}

TEST(FolderWatchTest, AWaitEndsNoLaterThanItsTimeout) {
  oru_testing::Sandbox sandbox;
  FolderWatch watch;
  ASSERT_TRUE(watch.Start(sandbox.root()));
  const int64_t started = MonotonicNanoseconds();
  ASSERT_TRUE(watch.Wait(300));
  EXPECT_LT(MonotonicNanoseconds() - started, int64_t{5} * 1000000000);
}

TEST(FolderWatchTest, AFolderThatIsNotThereIsWaitedOnForTheTimeout) {
  oru_testing::Sandbox sandbox;
  FolderWatch watch;
  ASSERT_TRUE(watch.Start(sandbox.Path("not-there")));
  EXPECT_TRUE(watch.Wait(50));
}

} // namespace
} // namespace platform
