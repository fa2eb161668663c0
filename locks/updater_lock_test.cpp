#include "locks/updater_lock.h"
#include "testing/namespaces.h"

#include <chrono>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// Runs in the System V namespace of its own that every test here enters,
// so the fixed keys of these names touch nothing else on the machine.
class UpdaterLockTest : public ::testing::Test {
protected:
  void SetUp() override {
    if (!oru_testing::EnterPrivateIpcNamespace()) {
      GTEST_SKIP() << "needs a private System V namespace (root)";
    }
  }

  static int Value(int set) { return semctl(set, 0, GETVAL); }

  // Waits (bounded) until `count` processes are blocked decrementing the set.
  static bool WaitForWaiters(int set, int count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (semctl(set, 0, GETNCNT) < count) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      std::this_thread::yield();
    }
    return true;
  }
};

// A child that holds an UpdaterLock until told to go (a byte on a pipe).
struct Holder {
  pid_t pid = -1;
  int go = -1;

  static Holder Start(const std::string& name, bool crash_instead_of_exit) {
    int ready[2];
    int go[2];
    Holder holder;
    if (pipe(ready) != 0 || pipe(go) != 0) {
      return holder;
    }
    holder.pid = fork();
    if (holder.pid == 0) {
      close(ready[0]);
      close(go[1]);
      UpdaterLock lock(name);
      (void)!write(ready[1], "1", 1);
      char byte;
      (void)!read(go[0], &byte, 1);
      if (crash_instead_of_exit) {
        raise(SIGKILL);
      }
      _exit(0);
    }
    close(ready[1]);
    close(go[0]);
    char byte;
    (void)!read(ready[0], &byte, 1);
    close(ready[0]);
    holder.go = go[1];
    return holder;
  }

  int Finish() {
    (void)!write(go, "1", 1);
    close(go);
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
  }
};

TEST(UpdaterLockKeyTest, AllDigitNamesAreTheirOwnProjectId) {
  EXPECT_EQ(UpdaterLockProjectId("12"), 12);
  EXPECT_EQ(UpdaterLockProjectId("012"), 12);
  EXPECT_EQ(UpdaterLockProjectId(""), 0);
}

TEST(UpdaterLockKeyTest, OtherNamesUseTheStandardCrc32) {
  EXPECT_EQ(static_cast<uint32_t>(UpdaterLockProjectId("123456789a")),
            static_cast<uint32_t>(UpdaterLockWaitProjectId("123456789a")));
  EXPECT_EQ(static_cast<uint32_t>(UpdaterLockWaitProjectId("123456789")), 0xCBF43926u);
}

TEST(UpdaterLockKeyTest, Names12And012ShareAKeyAndTheWaitRuleIgnoresDigits) {
  EXPECT_EQ(UpdaterLockKey("12"), UpdaterLockKey("012"));
  EXPECT_EQ(UpdaterLockKey("12"), ftok("/tmp", 12));
  EXPECT_EQ(UpdaterLockWaitKey("12"), ftok("/tmp", UpdaterLockWaitProjectId("12")));
  EXPECT_EQ(static_cast<uint32_t>(UpdaterLockWaitProjectId("12")), 0x4F5344CDu);
}

TEST_F(UpdaterLockTest, SecondHolderInAnotherProcessIsAlreadyRunning) {
  Holder holder = Holder::Start("Oru_Launcher_Utility", false);
  try {
    UpdaterLock second("Oru_Launcher_Utility");
    FAIL() << "no exception";
  } catch (const updater_init_failed& failure) {
    EXPECT_STREQ(failure.what(), "Already running!");
  }
  EXPECT_EQ(holder.Finish(), 0);
  EXPECT_NO_THROW(UpdaterLock again("Oru_Launcher_Utility"));
}

TEST_F(UpdaterLockTest, HolderThatCrashesGivesTheLockBack) {
  Holder holder = Holder::Start("Oru_Launcher_Utility", true);
  EXPECT_THROW(UpdaterLock("Oru_Launcher_Utility"), updater_init_failed);
  const int status = holder.Finish();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  EXPECT_NO_THROW(UpdaterLock again("Oru_Launcher_Utility"));
}

TEST_F(UpdaterLockTest, DestructorGivesTheLockBackAndTheSetStays) {
  int set = -1;
  {
    UpdaterLock lock("VelUpdater1_Update_Installer");
    set = lock.semaphoreSet();
    ASSERT_GE(set, 0);
    EXPECT_EQ(Value(set), 0);
  }
  EXPECT_EQ(Value(set), 1);
}

TEST_F(UpdaterLockTest, IsRunningOnAFreeNameLeavesItFree) {
  EXPECT_FALSE(IsRunning("VelUpdater1_Update_Installer"));
  const int set = semget(UpdaterLockKey("VelUpdater1_Update_Installer"), 1, 0);
  ASSERT_GE(set, 0);
  EXPECT_EQ(Value(set), 1);
}

TEST_F(UpdaterLockTest, IsRunningWhileAnotherProcessHoldsIt) {
  Holder holder = Holder::Start("VelUpdater1_Update_Installer", false);
  EXPECT_TRUE(IsRunning("VelUpdater1_Update_Installer"));
  EXPECT_EQ(holder.Finish(), 0);
  EXPECT_FALSE(IsRunning("VelUpdater1_Update_Installer"));
  const int set = semget(UpdaterLockKey("VelUpdater1_Update_Installer"), 1, 0);
  EXPECT_EQ(Value(set), 1);
}

TEST_F(UpdaterLockTest, NewWaitSetStartsAtZero) {
  UpdaterLock_Wait wait("VelUpdater1_Sync_OruLauncherWait");
  ASSERT_GE(wait.semaphoreSet(), 0);
  EXPECT_EQ(Value(wait.semaphoreSet()), 0);
  EXPECT_EQ(wait.error(), UpdaterLock_Wait::kNoError);
  EXPECT_TRUE(wait.Remove());
}

TEST_F(UpdaterLockTest, AcquireBlocksUntilAnotherProcessReleases) {
  UpdaterLock_Wait wait("VelUpdater1_Sync_OruLauncherWait");
  const pid_t child = fork();
  if (child == 0) {
    UpdaterLock_Wait waiter("VelUpdater1_Sync_OruLauncherWait");
    _exit(waiter.Acquire() ? 0 : 1);
  }
  ASSERT_TRUE(WaitForWaiters(wait.semaphoreSet(), 1));
  ASSERT_TRUE(wait.Release());
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_TRUE(wait.Remove());
}

TEST_F(UpdaterLockTest, AcquireBlocksUntilAnotherProcessRemovesTheSetAndThenFails) {
  UpdaterLock_Wait wait("VelUpdater1_Sync_OruLauncherWait");
  const pid_t child = fork();
  if (child == 0) {
    UpdaterLock_Wait waiter("VelUpdater1_Sync_OruLauncherWait");
    const bool acquired = waiter.Acquire();
    _exit(!acquired && waiter.error() == UpdaterLock_Wait::kAcquireFailed ? 0 : 1);
  }
  ASSERT_TRUE(WaitForWaiters(wait.semaphoreSet(), 1));
  ASSERT_TRUE(wait.Remove());
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(UpdaterLockTest, AcquireWhileStopsWaitingWhenToldTo) {
  UpdaterLock_Wait wait("VelUpdater1_Sync_OruLauncherWait");
  int asked = 0;
  EXPECT_FALSE(wait.AcquireWhile([&asked] { return ++asked < 3; }, 10));
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(wait.error(), UpdaterLock_Wait::kAcquireFailed);
  EXPECT_TRUE(wait.Remove());
}

TEST_F(UpdaterLockTest, AcquireWhileTakesAPostAtOnce) {
  UpdaterLock_Wait wait("VelUpdater1_Sync_OruLauncherWait");
  ASSERT_TRUE(wait.Release());
  EXPECT_TRUE(wait.AcquireWhile([] { return false; }, 10));
  EXPECT_TRUE(wait.Remove());
}

TEST_F(UpdaterLockTest, RemovingASetAlreadyGoneFails) {
  UpdaterLock_Wait first("VelUpdater1_Sync_OruLauncherWait");
  UpdaterLock_Wait second("VelUpdater1_Sync_OruLauncherWait");
  ASSERT_TRUE(first.Remove());
  EXPECT_FALSE(second.Remove());
  EXPECT_EQ(second.error(), UpdaterLock_Wait::kRemoveFailed);
  EXPECT_TRUE(second.Remove()); // no set any more: nothing to do
  EXPECT_FALSE(second.Release() && second.semaphoreSet() != -1);
}

TEST_F(UpdaterLockTest, SyncWaitReleasePostsThenRemoves) {
  UpdaterLock_Wait installer("VelUpdater1_Sync_UpdateInstaller_PostSelfUpdateWait");
  const pid_t child = fork();
  if (child == 0) {
    UpdaterLock_Wait waiter("VelUpdater1_Sync_UpdateInstaller_PostSelfUpdateWait");
    _exit(waiter.Acquire() || waiter.error() == UpdaterLock_Wait::kAcquireFailed ? 0 : 1);
  }
  ASSERT_TRUE(WaitForWaiters(installer.semaphoreSet(), 1));
  EXPECT_TRUE(
      NuvexUpdaterSyncWaitLockRelease("VelUpdater1_Sync_UpdateInstaller_PostSelfUpdateWait"));
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_LT(semget(UpdaterLockWaitKey("VelUpdater1_Sync_UpdateInstaller_PostSelfUpdateWait"), 1, 0),
            0);
}

TEST_F(UpdaterLockTest, SyncWaitAcquireConsumesAPostAndRemovesTheSet) {
  UpdaterLock_Wait installer("VelUpdater1_Sync_OruLauncherWait");
  ASSERT_TRUE(installer.Release());
  EXPECT_TRUE(NuvexUpdaterSyncWaitLockAcquire("VelUpdater1_Sync_OruLauncherWait"));
  EXPECT_LT(semget(UpdaterLockWaitKey("VelUpdater1_Sync_OruLauncherWait"), 1, 0), 0);
}

} // namespace
