// The real launcher, the fake Zelto and this test as the installer, through
// every path of the hand-over.
#include "launcher/handover.h"
#include "locks/updater_lock.h"
#include "oobe/file_lock.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "testing/namespaces.h"
#include "testing/sandbox.h"
#include "tests/e2e/e2e_fixture.h"
#include "tests/e2e/e2e_support.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using e2e::FakeZelto;

class HandOverTest : public e2e::E2eTest {
protected:
  std::string UpdaterFolder() const { return sandbox_->data_home() + "/Nuvex/OruUpdater"; }
  std::string LogPath() const { return UpdaterFolder() + "/1.0/oruu.log"; }

  // The installer's side: its lock, and the set it waits on after handing
  // over, made before the launcher starts so the test can watch it.
  void BeInstaller() {
    installer_ = std::make_unique<UpdaterLock>(kUpdateInstallerKey);
    installer_wait_ = std::make_unique<UpdaterLock_Wait>(kSyncUInstPostSelfUpdateWaitKey);
  }

  // Posts the launcher's rendezvous once the launcher blocks on it.
  void PostWhenTheLauncherWaits(int waiters = 1) {
    UpdaterLock_Wait rendezvous(kSyncOruLauncherWaitKey);
    ASSERT_TRUE(e2e::WaitForWaiters(rendezvous.semaphoreSet(), waiters));
    ASSERT_TRUE(rendezvous.Release());
  }

  oru_testing::ChildProgram StartLauncher() { return e2e::Start(launcher_); }

  bool ReleasePosted() const {
    return !e2e::SetExists(UpdaterLockWaitKey(kSyncUInstPostSelfUpdateWaitKey));
  }

  // What every run must leave behind: nothing but the single-holder sets.
  void ExpectNothingLeftBehind(const std::string& log) {
    EXPECT_TRUE(e2e::NamedSemaphores().empty());
    EXPECT_FALSE(e2e::SetExists(UpdaterLockWaitKey(kSyncOruLauncherWaitKey)));
    EXPECT_FALSE(e2e::SetExists(static_cast<key_t>(oobe::FileLockKey(log))));
  }

  std::vector<std::string> Expected(std::initializer_list<std::string> launcher_lines) {
    std::vector<std::string> lines = {
        ">>> Nuvex Updater Log Begin >>>", "Application Version: 10.0.0.22",
        "cmdline option: -logFile = " + LogPath(), "cmdline option: -logLevel = 2"};
    lines.insert(lines.end(), launcher_lines);
    return lines;
  }

  std::string launcher_ = ORU_LAUNCHER_EXE;
  std::unique_ptr<UpdaterLock> installer_;
  std::unique_ptr<UpdaterLock_Wait> installer_wait_;
};

TEST_F(HandOverTest, NormalHandOverStartsZeltoWithFiveArgumentsAndPostsNoRelease) {
  FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  BeInstaller();
  oru_testing::ChildProgram launcher = StartLauncher();
  PostWhenTheLauncherWaits();
  EXPECT_EQ(e2e::Wait(launcher), 0);
  ASSERT_TRUE(zelto.WaitForStart());
  EXPECT_EQ(zelto.Arguments(),
            (std::vector<std::string>{ZeltoPath(), "--appletID=UWA_UI", "--appletVersion=1.0",
                                      "--workflow=Updater", "--mode=PostSelfUpdate",
                                      "--updaterUserLocalPath=" + UpdaterFolder()}));
  EXPECT_FALSE(ReleasePosted());
  EXPECT_EQ(
      e2e::MessagesOf(e2e::ReadLog(LogPath())),
      Expected({"Oru Launcher : Acquired lock NuvexUpdaterUtils::kOruLauncherKey sucessfully.",
                "Oru Launcher  : Acquiring kSyncOruLauncherWaitKey Lock.",
                "Oru Launcher : Zelto executable path is  = " + ZeltoPath(),
                "<<< Nuvex Updater Log End <<<", "", ""}));
  ExpectNothingLeftBehind(LogPath());
}

TEST_F(HandOverTest, SecondLauncherWhileOneRunsIsAlreadyRunningAndReleasesTheInstaller) {
  FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  BeInstaller();
  oru_testing::ChildProgram first = StartLauncher();
  {
    UpdaterLock_Wait rendezvous(kSyncOruLauncherWaitKey);
    ASSERT_TRUE(e2e::WaitForWaiters(rendezvous.semaphoreSet(), 1));
  }
  oru_testing::ChildProgram second = StartLauncher();
  EXPECT_EQ(e2e::Wait(second), 0);
  EXPECT_TRUE(ReleasePosted());
  const auto lines = e2e::MessagesOf(e2e::ReadLog(LogPath()), std::to_string(second.pid));
  const auto at = [&lines](const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) - lines.begin();
  };
  const long running = at("Oru Launcher :  = Already running!");
  const long warning =
      at("Oru Launcher : WARNING - Failed to acquire NuvexUpdaterUtils::kOruLauncherKey lock.");
  const long releasing = at("Oru Launcher : Releasing kSyncUInstPostSelfUpdateWaitKey Lock.");
  EXPECT_LT(running, warning);
  EXPECT_LT(warning, releasing);
  EXPECT_LT(releasing, static_cast<long>(lines.size()));
  EXPECT_FALSE(zelto.Started());

  // The first launcher goes on when the installer posts.
  PostWhenTheLauncherWaits();
  EXPECT_EQ(e2e::Wait(first), 0);
  EXPECT_TRUE(zelto.WaitForStart());
  ExpectNothingLeftBehind(LogPath());
}

TEST_F(HandOverTest, WithoutAnInstallerTheLauncherWarnsAndNeitherStartsNorReleases) {
  FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  installer_wait_ = std::make_unique<UpdaterLock_Wait>(kSyncUInstPostSelfUpdateWaitKey);
  // Nobody posts: the launcher stops waiting once it sees the installer gone.
  oru_testing::ChildProgram launcher = StartLauncher();
  EXPECT_EQ(e2e::Wait(launcher), 0);
  EXPECT_FALSE(zelto.Started());
  EXPECT_FALSE(ReleasePosted());
  EXPECT_EQ(
      e2e::MessagesOf(e2e::ReadLog(LogPath())),
      Expected({"Oru Launcher : Acquired lock NuvexUpdaterUtils::kOruLauncherKey sucessfully.",
                "Oru Launcher  : Acquiring kSyncOruLauncherWaitKey Lock.",
                "Oru Launcher : WARNING - Update Installer is not running . Hence quitting.",
                "<<< Nuvex Updater Log End <<<", "", ""}));
  ExpectNothingLeftBehind(LogPath());
}

TEST_F(HandOverTest, ZeltoFolderNotFoundWarnsAndReleasesTheInstaller) {
  oru_testing::ScopedEnv no_machine_folder("XDG_DATA_DIRS", sandbox_->Path("no-such-folder"));
  BeInstaller();
  oru_testing::ChildProgram launcher = StartLauncher();
  PostWhenTheLauncherWaits();
  EXPECT_EQ(e2e::Wait(launcher), 0);
  EXPECT_TRUE(ReleasePosted());
  const auto lines = e2e::MessagesOf(e2e::ReadLog(LogPath()));
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "Oru Launcher : WARNING - Unable to get the Zelto executable path."),
            lines.end());
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "Oru Launcher : Releasing kSyncUInstPostSelfUpdateWaitKey Lock."),
            lines.end());
  ExpectNothingLeftBehind(LogPath());
}

TEST_F(HandOverTest, ZeltoMissingFailsTheLaunchAndReleasesTheInstaller) {
  ASSERT_TRUE(platform::CreateDirectoryTree(sandbox_->local_data()));
  BeInstaller();
  oru_testing::ChildProgram launcher = StartLauncher();
  PostWhenTheLauncherWaits();
  EXPECT_EQ(e2e::Wait(launcher), 0);
  EXPECT_TRUE(ReleasePosted());
  const auto lines = e2e::MessagesOf(e2e::ReadLog(LogPath()));
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "Oru Launcher : Releasing kSyncUInstPostSelfUpdateWaitKey Lock."),
            lines.end());
  ExpectNothingLeftBehind(LogPath());
}

TEST_F(HandOverTest, WithoutAUserLocalPathZeltoGetsExactlyFourArguments) {
  FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  oru_testing::WriteFile(sandbox_->Path("blocker"), "");
  oru_testing::ScopedEnv no_user_folder("XDG_DATA_HOME", sandbox_->Path("blocker/below"));
  // Kind 2's updater folder cannot be made either: a file where it goes, in
  // a /var/tmp of this test's own. The launcher runs from the sandbox, so a
  // build under /var/tmp stays reachable.
  launcher_ = sandbox_->Path("OruLauncher");
  ASSERT_TRUE(platform::CopyFileContents(ORU_LAUNCHER_EXE, launcher_));
  ASSERT_EQ(chmod(launcher_.c_str(), 0755), 0);
  ASSERT_TRUE(oru_testing::MountPrivateVarTmp());
  oru_testing::WriteFile("/var/tmp/Nuvex", "");
  BeInstaller();
  oru_testing::ChildProgram launcher = StartLauncher();
  PostWhenTheLauncherWaits();
  EXPECT_EQ(e2e::Wait(launcher), 0);
  ASSERT_TRUE(zelto.WaitForStart());
  EXPECT_EQ(zelto.Arguments(),
            (std::vector<std::string>{ZeltoPath(), "--appletID=UWA_UI", "--appletVersion=1.0",
                                      "--workflow=Updater", "--mode=PostSelfUpdate"}));
  EXPECT_FALSE(ReleasePosted());
  ExpectNothingLeftBehind(sandbox_->state_home() + "/OOBE.log");
}

} // namespace

namespace {

// The shared objects mapped into a running process.
std::string MappedFilesOf(pid_t pid) {
  return oru_testing::ReadFile("/proc/" + std::to_string(pid) + "/maps");
}

} // namespace

// The libraries of features the hand-over does not use before the post (the
// console user's session, bundle versions, a crypto library) are not loaded
// while the launcher waits: its start-up pays only for what it uses.
TEST_F(HandOverTest, WhileItWaitsTheLauncherHasLoadedNoLibraryItHasNotUsed) {
  e2e::LauncherWaitingForTheInstaller stage(ZeltoPath());
  ASSERT_TRUE(stage.Waits());
  const std::string maps = MappedFilesOf(stage.launcher.pid);
  ASSERT_NE(maps.find("libc.so"), std::string::npos) << maps;
  std::vector<std::string> unused = {"libcrypto", "libplist"};
  // The console user is looked up before the wait (log level markers live
  // in that user's folder); libsystemd answers it only where logind keeps a
  // seat0 state, as on a desktop. Elsewhere the answer is known unloaded.
  if (access("/run/systemd/seats/seat0", F_OK) != 0) {
    unused.insert(unused.end(), {"libsystemd", "libgcrypt", "liblzma"});
  }
  for (const std::string& library : unused) {
    EXPECT_EQ(maps.find(library), std::string::npos) << library << " is loaded:\n" << maps;
  }
  EXPECT_EQ(stage.PostAndWait(), 0);
  EXPECT_TRUE(stage.zelto.WaitForStart());
}
