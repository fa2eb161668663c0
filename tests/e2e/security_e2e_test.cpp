// An unprivileged local user against the launcher run as root, with HOME and
// the XDG variables pointing into that user's home, as an installer started
// from the user's session passes them on. The user prepares (and races) the
// files the launcher touches; after every run a root-owned canary tree
// outside the home must be unchanged to the byte, mode and owner, nothing
// under the home may belong to root, and the launcher must have exited 0.
#include "launcher/handover.h"
#include "locks/updater_lock.h"
#include "testing/child_process.h"
#include "testing/sandbox.h"
#include "tests/e2e/e2e_fixture.h"
#include "tests/e2e/e2e_support.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <ftw.h>
#include <functional>
#include <grp.h>
#include <map>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The user playing against the launcher: a bare uid and gid, with no
// password-database entry, as any local account could be.
constexpr uid_t kUser = 4242;
constexpr gid_t kGroup = 4242;
// Rounds of each race.
constexpr int kRaceRounds = 50;
constexpr int kLauncherSeconds = 30;

// Runs `body` in a child process that is the user.
int AsUser(const std::function<int()>& body) {
  return oru_testing::RunInChild([&] {
    if (setgroups(1, &kGroup) != 0 || setresgid(kGroup, kGroup, kGroup) != 0 ||
        setresuid(kUser, kUser, kUser) != 0) {
      return 100;
    }
    return body();
  });
}

// A process of the user that repeats `step` until it is killed.
pid_t StartUserLoop(const std::function<void()>& step) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (setgroups(1, &kGroup) != 0 || setresgid(kGroup, kGroup, kGroup) != 0 ||
        setresuid(kUser, kUser, kUser) != 0) {
      _exit(100);
    }
    while (true) {
      step();
    }
  }
  return pid;
}

void Stop(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

int MakeFoldersAsUser(const std::string& path) {
  return AsUser([&] {
    for (size_t slash = path.find('/', 1); true; slash = path.find('/', slash + 1)) {
      const std::string level = path.substr(0, slash);
      if (mkdir(level.c_str(), 0755) != 0 && errno != EEXIST) {
        return 1;
      }
      if (slash == std::string::npos) {
        return 0;
      }
    }
  });
}

int WriteAsUser(const std::string& path, const std::string& content) {
  return AsUser([&] {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return out.good() ? 0 : 1;
  });
}

// One entry of a tree: type, mode, owner, group and content (a link's
// target), as text that compares equal only when nothing changed.
std::map<std::string, std::string>* snapshot_target = nullptr;

int RecordEntry(const char* path, const struct stat* info, int, struct FTW*) {
  std::ostringstream entry;
  entry << std::oct << info->st_mode << std::dec << ' ' << info->st_uid << ':' << info->st_gid
        << ' ';
  if (S_ISREG(info->st_mode)) {
    std::ifstream in(path, std::ios::binary);
    entry << in.rdbuf();
  } else if (S_ISLNK(info->st_mode)) {
    char target[4096];
    const ssize_t length = readlink(path, target, sizeof target);
    entry << std::string(target, length > 0 ? static_cast<size_t>(length) : 0);
  }
  (*snapshot_target)[path] = entry.str();
  return 0;
}

std::map<std::string, std::string> Snapshot(const std::string& root) {
  std::map<std::string, std::string> entries;
  snapshot_target = &entries;
  nftw(root.c_str(), &RecordEntry, 16, FTW_PHYS);
  snapshot_target = nullptr;
  return entries;
}

std::vector<std::string>* root_owned_target = nullptr;

int RecordRootOwned(const char* path, const struct stat* info, int, struct FTW*) {
  if (info->st_uid == 0) {
    root_owned_target->push_back(path);
  }
  return 0;
}

std::vector<std::string> RootOwnedBelow(const std::string& root) {
  std::vector<std::string> found;
  root_owned_target = &found;
  nftw(root.c_str(), &RecordRootOwned, 16, FTW_PHYS);
  root_owned_target = nullptr;
  return found;
}

std::string LocalTime(time_t when, const char* format) {
  struct tm local;
  char text[64] = "";
  localtime_r(&when, &local);
  strftime(text, sizeof text, format, &local);
  return text;
}

class SecurityTest : public e2e::E2eTest {
protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "needs root: plays a second user against a launcher run as root";
    }
    E2eTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    // Where the updater folder falls back to when the user's cannot be
    // used: private, so that nothing reaches the machine's.
    ASSERT_TRUE(oru_testing::MountPrivateVarTmp());
    // The user reaches its home; the home and everything the user makes
    // there are the user's.
    ASSERT_EQ(chmod(sandbox_->root().c_str(), 0755), 0);
    ASSERT_EQ(chown(sandbox_->home().c_str(), kUser, kGroup), 0);
    MakeCanary();
    canary_before_ = Snapshot(Canary());
    zelto_ = std::make_unique<e2e::FakeZelto>(ZeltoPath(), ORU_FAKE_ZELTO);
    // Zelto runs as the user and writes its record beside itself.
    const std::string macos = ZeltoPath().substr(0, ZeltoPath().rfind('/'));
    ASSERT_EQ(chown(macos.c_str(), kUser, kGroup), 0);
    ASSERT_EQ(chown((ZeltoPath() + ".fifo").c_str(), kUser, kGroup), 0);
    installer_ = std::make_unique<UpdaterLock>(kUpdateInstallerKey);
  }

  std::string Canary() const { return sandbox_->Path("canary"); }
  std::string UpdaterFolder() const { return sandbox_->data_home() + "/Nuvex/OruUpdater/1.0"; }
  std::string LogPath() const { return UpdaterFolder() + "/oruu.log"; }
  std::string PrefsPath() const { return UpdaterFolder() + "/NuvexUpdaterPrefs.dat"; }

  // Root's files that the user aims at: a plain file, an XML file shaped
  // like preferences, an empty one, a folder, and victims of the clean-up.
  void MakeCanary() {
    ASSERT_EQ(mkdir(Canary().c_str(), 0755), 0);
    oru_testing::WriteFile(Canary() + "/target", "root data\n");
    ASSERT_EQ(chmod((Canary() + "/target").c_str(), 0644), 0);
    oru_testing::WriteFile(Canary() + "/prefs.xml",
                           "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<Preferences>\n"
                           "<LogLevel>3</LogLevel>\n</Preferences>\n");
    oru_testing::WriteFile(Canary() + "/empty", "");
    ASSERT_EQ(mkdir((Canary() + "/dir").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((Canary() + "/victims").c_str(), 0755), 0);
    oru_testing::WriteFile(Canary() + "/victims/x", "must stay\n");
  }

  void PrepareUpdaterFolder() { ASSERT_EQ(MakeFoldersAsUser(UpdaterFolder()), 0); }

  void WritePrefsAsUser(const std::string& body) {
    PrepareUpdaterFolder();
    ASSERT_EQ(WriteAsUser(PrefsPath(), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                                       "<Preferences>\n" +
                                           body + "\n</Preferences>\n"),
              0);
  }

  // One hand-over: the installer (this test) has posted before the launcher
  // waits. The exit status, or -1 when it had not ended within the bound.
  // Its standard error goes to `errors` when not -1.
  int RunLauncher(int errors = -1) {
    unlink((ZeltoPath() + ".record").c_str());
    UpdaterLock_Wait(kSyncOruLauncherWaitKey).Release();
    oru_testing::ChildProgram launcher = e2e::Start(ORU_LAUNCHER_EXE, {}, errors);
    const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, launcher.pid, 0));
    struct pollfd ended = {pidfd, POLLIN, 0};
    const bool in_time = pidfd >= 0 && poll(&ended, 1, kLauncherSeconds * 1000) == 1;
    if (pidfd >= 0) {
      close(pidfd);
    }
    if (!in_time) {
      kill(launcher.pid, SIGKILL);
    }
    const int status = e2e::Wait(launcher);
    return in_time ? status : -1;
  }

  // What every run must leave: the canary as it was, nothing of root's in
  // the home, a launcher that ended with 0.
  void ExpectNoHarm(int status) {
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Snapshot(Canary()), canary_before_);
    EXPECT_EQ(RootOwnedBelow(sandbox_->home()), std::vector<std::string>());
  }

  // Started as the user; with `handed_folder` also given the user's folder.
  void ExpectZeltoStartedAsTheUser(bool handed_folder = true) {
    ASSERT_TRUE(zelto_->WaitForStart()) << LogText();
    EXPECT_EQ(zelto_->Identity(), "uid=4242 gid=4242 groups=4242");
    if (handed_folder) {
      EXPECT_EQ(zelto_->Arguments().back(),
                "--updaterUserLocalPath=" + sandbox_->data_home() + "/Nuvex/OruUpdater");
    }
  }

  std::string LogText() {
    std::string text;
    for (const std::string& message : LogMessages()) {
      text += message + "\n";
    }
    return text;
  }

  std::vector<std::string> LogMessages() { return e2e::MessagesOf(e2e::ReadLog(LogPath())); }

  std::map<std::string, std::string> canary_before_;
  std::unique_ptr<e2e::FakeZelto> zelto_;
  std::unique_ptr<UpdaterLock> installer_;
};

TEST_F(SecurityTest, AHomeWithoutLocalFoldersGetsThemOwnedByTheUser) {
  ExpectNoHarm(RunLauncher());
  ExpectZeltoStartedAsTheUser();
  for (const std::string& folder :
       {sandbox_->home() + "/.local", sandbox_->data_home(), sandbox_->state_home(),
        sandbox_->data_home() + "/Nuvex", UpdaterFolder(), LogPath()}) {
    struct stat info;
    ASSERT_EQ(lstat(folder.c_str(), &info), 0) << folder;
    EXPECT_EQ(info.st_uid, kUser) << folder;
  }
  // The user can still make things where the launcher made folders.
  EXPECT_EQ(WriteAsUser(sandbox_->data_home() + "/mine", "x"), 0);
}

TEST_F(SecurityTest, LogFileNamingASystemPathIsRefused) {
  for (const std::string& chosen : {Canary() + "/new.log", Canary() + "/target"}) {
    WritePrefsAsUser("<LogLevel>2</LogLevel>\n<LogFile>" + chosen + "</LogFile>");
    ExpectNoHarm(RunLauncher());
    EXPECT_FALSE(std::ifstream(Canary() + "/new.log").is_open());
    const auto messages = LogMessages();
    EXPECT_NE(std::find(messages.begin(), messages.end(),
                        "Oru Launcher : WARNING - LogFile preference refused: it lies outside the "
                        "user's updater and logs folders. Using the default log file."),
              messages.end());
    ExpectZeltoStartedAsTheUser();
  }
}

TEST_F(SecurityTest, NewlineInLogFileCannotForgeALine) {
  WritePrefsAsUser("<LogLevel>2</LogLevel>\n<LogFile>" + LogPath() +
                   "\nFORGED | [INFO] | line</LogFile>");
  ExpectNoHarm(RunLauncher());
  std::ifstream in(LogPath());
  std::string line;
  int lines = 0;
  while (std::getline(in, line)) {
    ++lines;
    EXPECT_NE(line.rfind("FORGED", 0), 0u) << line;
  }
  EXPECT_GT(lines, 0);
}

TEST_F(SecurityTest, LinkAtTheLogFileIsNotFollowed) {
  PrepareUpdaterFolder();
  ASSERT_EQ(AsUser([&] { return symlink((Canary() + "/target").c_str(), LogPath().c_str()); }), 0);
  ExpectNoHarm(RunLauncher());
  ExpectZeltoStartedAsTheUser();
}

TEST_F(SecurityTest, LinkAtThePreferencesFileIsNotFollowed) {
  for (const std::string& target :
       {Canary() + "/empty", Canary() + "/missing", Canary() + "/prefs.xml"}) {
    PrepareUpdaterFolder();
    unlink(PrefsPath().c_str());
    ASSERT_EQ(AsUser([&] { return symlink(target.c_str(), PrefsPath().c_str()); }), 0);
    ExpectNoHarm(RunLauncher());
    EXPECT_FALSE(std::ifstream(Canary() + "/missing").is_open()) << target;
    ExpectZeltoStartedAsTheUser();
  }
}

TEST_F(SecurityTest, LinkAtAFolderOfTheUpdaterPathOrItsParentIsNotFollowed) {
  const std::string share = sandbox_->data_home();
  for (const std::string& link : {share, share + "/Nuvex", share + "/Nuvex/OruUpdater/1.0"}) {
    ASSERT_EQ(MakeFoldersAsUser(link.substr(0, link.rfind('/'))), 0);
    ASSERT_EQ(AsUser([&] { return symlink((Canary() + "/dir").c_str(), link.c_str()); }), 0);
    ExpectNoHarm(RunLauncher());
    ExpectZeltoStartedAsTheUser(/*handed_folder=*/false);
    unlink(link.c_str());
  }
}

TEST_F(SecurityTest, DanglingLinksAtTheNextRotatedCopyNamesAreNotFollowed) {
  PrepareUpdaterFolder();
  // A live log at its size limit, so that opening it sets it aside now.
  ASSERT_EQ(AsUser([&] {
              const int fd = open(LogPath().c_str(), O_WRONLY | O_CREAT, 0644);
              return fd >= 0 && ftruncate(fd, 10485760 + 1) == 0 && close(fd) == 0 ? 0 : 1;
            }),
            0);
  const time_t now = time(nullptr);
  for (int second = 0; second < 10; ++second) {
    const std::string name =
        UpdaterFolder() + "/oruu " + LocalTime(now + second, "%Y-%m-%d %H-%M-%S") + ".log";
    const std::string target = Canary() + "/copy" + std::to_string(second);
    ASSERT_EQ(AsUser([&] { return symlink(target.c_str(), name.c_str()); }), 0);
  }
  ExpectNoHarm(RunLauncher());
  struct stat info;
  ASSERT_EQ(stat(LogPath().c_str(), &info), 0);
  EXPECT_LT(info.st_size, 10485760) << "the live log was set aside";
  ExpectZeltoStartedAsTheUser();
}

TEST_F(SecurityTest, FifoAtTheLogOrPreferencesPathDoesNotHangTheLauncher) {
  for (const std::string& path : {LogPath(), PrefsPath()}) {
    PrepareUpdaterFolder();
    ASSERT_EQ(AsUser([&] {
                unlink(path.c_str()); // a run before made the file
                return mkfifo(path.c_str(), 0666);
              }),
              0);
    ExpectNoHarm(RunLauncher());
    ExpectZeltoStartedAsTheUser();
    unlink(path.c_str());
  }
}

TEST_F(SecurityTest, HandOverCompletesWhileTheUserHoldsTheLogLock) {
  PrepareUpdaterFolder();
  ASSERT_EQ(WriteAsUser(LogPath(), ""), 0);
  oru_testing::ChildProgram holder = oru_testing::StartProgram(
      "/usr/bin/setpriv", {"--reuid=4242", "--regid=4242", "--clear-groups", ORU_LOG_WRITER_HELPER,
                           "hold", UpdaterFolder(), "oruu.log"});
  char ready[16] = "";
  ASSERT_TRUE(fgets(ready, sizeof ready, holder.output));
  ASSERT_STREQ(ready, "locked\n");
  const oru_testing::ErrorCapture errors;
  const int status = RunLauncher(errors.fd());
  ExpectNoHarm(status);
  ExpectZeltoStartedAsTheUser();
  kill(holder.pid, SIGKILL);
  e2e::Wait(holder);
  const auto messages = LogMessages();
  EXPECT_NE(std::find(messages.begin(), messages.end(),
                      "Oru Launcher : Acquired lock NuvexUpdaterUtils::kOruLauncherKey "
                      "sucessfully."),
            messages.end());
  // Every record went out while the lock was held, and the launcher waited
  // out the bound once for all of them, not once per record.
  EXPECT_GT(messages.size(), 1u);
  EXPECT_EQ(errors.LinesContaining("was held by another process"), 1) << errors.Text();
}

TEST_F(SecurityTest, NewLogFileRaceNeverMakesARootFileWritable) {
  PrepareUpdaterFolder();
  const std::string log = LogPath();
  const std::string target = Canary() + "/target";
  for (int round = 0; round < kRaceRounds; ++round) {
    unlink(log.c_str());
    const pid_t swapper = StartUserLoop([&] {
      unlink(log.c_str());
      (void)!symlink(target.c_str(), log.c_str());
    });
    const int status = RunLauncher();
    Stop(swapper);
    ExpectNoHarm(status);
    if (HasFailure()) {
      FAIL() << "round " << round;
    }
  }
}

TEST_F(SecurityTest, CleanUpRaceNeverDeletesThroughASwappedFolder) {
  PrepareUpdaterFolder();
  const std::string folder = UpdaterFolder();
  const std::string old = folder + "/oruu-old";
  const std::string aside = folder + "/oruu-aside";
  const std::string victims = Canary() + "/victims";
  for (int round = 0; round < kRaceRounds; ++round) {
    // A live log at its limit (so the clean-up runs) and a folder named
    // after the log with a file in it.
    ASSERT_EQ(AsUser([&] {
                unlink(old.c_str());
                rename(aside.c_str(), old.c_str());
                mkdir(old.c_str(), 0755);
                const int x = open((old + "/x").c_str(), O_WRONLY | O_CREAT, 0644);
                const int fd = open(LogPath().c_str(), O_WRONLY | O_CREAT, 0644);
                return x >= 0 && fd >= 0 && ftruncate(fd, 10485760 + 1) == 0 ? 0 : 1;
              }),
              0);
    const pid_t swapper = StartUserLoop([&] {
      if (rename(old.c_str(), aside.c_str()) == 0) {
        (void)!symlink(victims.c_str(), old.c_str());
        unlink(old.c_str());
        rename(aside.c_str(), old.c_str());
      }
    });
    const int status = RunLauncher();
    Stop(swapper);
    ExpectNoHarm(status);
    if (HasFailure()) {
      FAIL() << "round " << round;
    }
  }
}

} // namespace
