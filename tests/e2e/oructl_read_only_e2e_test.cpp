// The commands of oructl that look (status, explain, doctor, log, prefs
// get|list|keys) change nothing, in every state a hand-over can leave, and
// what they print with --json parses as JSON there.
#include "launcher/handover.h"
#include "locks/resource_locker.h"
#include "locks/updater_lock.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/run_as_user.h"
#include "testing/sandbox.h"
#include "tests/e2e/e2e_fixture.h"
#include "tests/e2e/e2e_support.h"

#include <algorithm>
#include <fstream>
#include <ftw.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using oru_testing::ChildProgram;

std::vector<std::string>* walked = nullptr;

int Record(const char* path, const struct stat* info, int /*type*/, struct FTW* /*where*/) {
  std::ostringstream line;
  line << path << " mode " << std::oct << info->st_mode << std::dec << " owner " << info->st_uid
       << ":" << info->st_gid << " size " << info->st_size << " mtime " << info->st_mtim.tv_sec
       << "." << info->st_mtim.tv_nsec << " ctime " << info->st_ctim.tv_sec << "."
       << info->st_ctim.tv_nsec;
  if (S_ISLNK(info->st_mode)) {
    char target[4096];
    const ssize_t length = readlink(path, target, sizeof target);
    line << " -> " << std::string(target, length > 0 ? static_cast<size_t>(length) : 0);
  }
  walked->push_back(line.str());
  return 0;
}

// Every System V semaphore set: its line in /proc (key, id, mode, owners,
// times of the last operation and change) and the values of its semaphores.
std::vector<std::string> SemaphoreSets() {
  std::vector<std::string> sets;
  std::ifstream table("/proc/sysvipc/sem");
  std::string line;
  std::getline(table, line); // the header
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    long long key = 0;
    int id = -1;
    fields >> key >> id;
    std::string text = line + " values";
    struct semid_ds info {};
    if (semctl(id, 0, IPC_STAT, &info) == 0) {
      std::vector<unsigned short> values(info.sem_nsems);
      if (semctl(id, 0, GETALL, values.data()) == 0) {
        for (const unsigned short value : values) {
          text += " " + std::to_string(value);
        }
      }
    }
    sets.push_back(text);
  }
  return sets;
}

// What a look may not change: every entry below the sandbox and in /dev/shm
// (where the named semaphores live) with its type, mode, owner, size,
// modification and change times and link target, and every semaphore set.
// Access times are left out: reading a file is what a look does.
std::vector<std::string> StateOf(const std::string& root) {
  std::vector<std::string> state;
  walked = &state;
  nftw(root.c_str(), &Record, 16, FTW_PHYS);
  nftw("/dev/shm", &Record, 16, FTW_PHYS);
  walked = nullptr;
  for (const std::string& set : SemaphoreSets()) {
    state.push_back(set);
  }
  return state;
}

const std::vector<std::vector<std::string>> kLooks = {{"status"},
                                                      {"status", "--json"},
                                                      {"explain"},
                                                      {"explain", "--json"},
                                                      {"doctor"},
                                                      {"doctor", "--json"},
                                                      {"log"},
                                                      {"log", "--json"},
                                                      {"log", "-n", "5", "--json"},
                                                      {"log", "--since", "yesterday"},
                                                      {"log", "sessions"},
                                                      {"log", "sessions", "--timeline", "--json"},
                                                      {"prefs", "list"},
                                                      {"prefs", "list", "--json"},
                                                      {"prefs", "get", "LogLevel"},
                                                      {"prefs", "get", "LogLevel", "--json"},
                                                      {"prefs", "keys"}};

class OructlReadOnlyTest : public e2e::E2eTest {
protected:
  std::string PrefsFolder() const { return sandbox_->data_home() + "/Nuvex/OruUpdater/1.0"; }
  std::string PrefsPath() const { return PrefsFolder() + "/NuvexUpdaterPrefs.dat"; }

  void WritePrefs(const std::string& body) {
    ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
    oru_testing::WriteFile(PrefsPath(), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                                        "<Preferences>\n" +
                                            body + "\n</Preferences>\n");
  }

  // Runs every look and expects the state it found to be the state it left.
  void ExpectEveryLookChangesNothing() {
    for (const std::vector<std::string>& look : kLooks) {
      const std::vector<std::string> before = StateOf(sandbox_->root());
      ChildProgram child = oru_testing::StartProgram(ORU_ORUCTL, look);
      const std::string output = oru_testing::ReadAll(child);
      const int status = oru_testing::FinishProgram(child);
      const std::vector<std::string> after = StateOf(sandbox_->root());
      std::string command = "oructl";
      for (const std::string& word : look) {
        command += " " + word;
      }
      EXPECT_GE(status, 0) << command << " ended by a signal";
      EXPECT_LE(status, 2) << command;
      EXPECT_EQ(before, after) << command << " changed what it looked at\n" << output;
      if (look.back() == "--json" && status != 2) {
        EXPECT_TRUE(nlohmann::json::accept(output)) << command << " printed\n" << output;
      }
    }
  }
};

TEST_F(OructlReadOnlyTest, OnAFreshMachine) {
  ExpectEveryLookChangesNothing();
  EXPECT_FALSE(platform::PathExists(sandbox_->data_home()));
}

TEST_F(OructlReadOnlyTest, WhileTheLauncherWaitsForTheInstaller) {
  e2e::LauncherWaitingForTheInstaller stage(ZeltoPath());
  ASSERT_TRUE(stage.Waits());
  ExpectEveryLookChangesNothing();
  EXPECT_EQ(stage.PostAndWait(), 0);
  ASSERT_TRUE(stage.zelto.WaitForStart());
}

TEST_F(OructlReadOnlyTest, WhenTheInstallerIsGone) {
  WritePrefs("<LogLevel>3</LogLevel>");
  UpdaterLock launcher(kOruLauncherKey);
  ExpectEveryLookChangesNothing();
}

TEST_F(OructlReadOnlyTest, WithAStalePreferencesLock) {
  WritePrefs("<LogLevel>3</LogLevel>");
  ASSERT_TRUE(e2e::LeaveStalePrefsLock(PrefsPath()));
  ExpectEveryLookChangesNothing();
  EXPECT_TRUE(esd::ResourceLocker::IsHeldByAnyone(PrefsPath()));
}

TEST_F(OructlReadOnlyTest, WhenTheInstallersUninstallStampDiffersFromTheStoredOne) {
  WritePrefs("<LogLevel>3</LogLevel>\n<uninstallts>1700000000</uninstallts>");
  const std::string inventory = sandbox_->local_data() + "/Nuvex/OruUpdaterInventory/1.0";
  ASSERT_TRUE(platform::CreateDirectoryTree(inventory));
  oru_testing::WriteFile(inventory + "/uninstallts", "1800000000\n");
  ExpectEveryLookChangesNothing();
  EXPECT_TRUE(platform::PathExists(PrefsPath()));
}

TEST_F(OructlReadOnlyTest, WithACorruptPreferencesFile) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  oru_testing::WriteFile(PrefsPath(), "<Preferences><LogLevel>2</Lo");
  ExpectEveryLookChangesNothing();
}

TEST_F(OructlReadOnlyTest, WithALogOfSeveralRuns) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  UpdaterLock installer(kUpdateInstallerKey);
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(e2e::HandOverOnce(), 0);
    ASSERT_TRUE(zelto.WaitForStart());
  }
  // A record with bytes that are no UTF-8 and control characters in it.
  std::ofstream(PrefsFolder() + "/oruu.log", std::ios::app)
      << "11/22/26 10:00:00:000 | [INFO] |  | UPDATER | SHARED |  |  |  | 7 | caf\xE9 "
         "\x01\x1b[0m\n";
  ExpectEveryLookChangesNothing();
}

} // namespace

namespace {

const char kToken[] = "eyJhbGciOiJIUzI1NiJ9.eyJzdWIiOiJzdXBwb3J0In0.c2lnbmVk";

std::string RunTool(const std::vector<std::string>& arguments) {
  ChildProgram child = oru_testing::StartProgram(ORU_ORUCTL, arguments);
  const std::string output = oru_testing::ReadAll(child);
  EXPECT_EQ(oru_testing::FinishProgram(child), 0) << arguments.front() << "\n" << output;
  return output;
}

std::string Shell(const std::string& command) {
  ChildProgram child = oru_testing::StartProgram("/bin/sh", {"-c", command});
  const std::string output = oru_testing::ReadAll(child);
  EXPECT_EQ(oru_testing::FinishProgram(child), 0) << command;
  return output;
}

std::string RawLogLine(const std::string& message) {
  return "11/24/26 04:00:00:000 | [INFO] |  | UPDATER | SHARED |  |  |  | 77 | " + message + "\n";
}

// A report of a sandbox after a hand-over: every piece there, the secrets
// planted in a log line (written past the library, as an older program
// might have) and in a preference value masked, and nothing it read changed.
TEST_F(OructlReadOnlyTest, ABugReportHoldsEveryPieceWithItsSecretsMaskedAndChangesNothing) {
  {
    e2e::LauncherWaitingForTheInstaller handover(ZeltoPath());
    ASSERT_TRUE(handover.Waits());
    EXPECT_EQ(handover.PostAndWait(), 0);
  }
  RunTool({"prefs", "set", "DisplayLang", kToken});
  const std::string log = PrefsFolder() + "/oruu.log";
  oru_testing::WriteFile(log, oru_testing::ReadFile(log) +
                                  RawLogLine(std::string("got ") + kToken) +
                                  RawLogLine("proxy <password>hunter2</password> set"));
  oru_testing::WriteFile(PrefsFolder() + "/oruu 2026-11-23 10-00-00.log", RawLogLine("older"));
  oru_testing::WriteFile(PrefsPath() + ".corrupt-20261123-141502", "<Preferences><broken>");
  char folder[] = "/tmp/oru-report-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string archive = std::string(folder) + "/report.tar.gz";

  const std::vector<std::string> before = StateOf(sandbox_->root());
  const std::string said = RunTool({"bug-report", "-o", archive});
  EXPECT_EQ(StateOf(sandbox_->root()), before);

  const std::string listing = Shell("tar -tzf '" + archive + "'");
  for (const char* piece :
       {"MANIFEST.txt", "system.json", "looks/status.json", "looks/explain.json",
        "looks/doctor.json", "looks/prefs-list.json", "looks/log-sessions.json",
        "looks/semaphores.json", "prefs/NuvexUpdaterPrefs.dat",
        "prefs/NuvexUpdaterPrefs.dat.holder", "prefs/NuvexUpdaterPrefs.dat.corrupt-20261123-141502",
        "logs/oruu.log", "logs/oruu 2026-11-23 10-00-00.log"}) {
    EXPECT_NE(listing.find(std::string(piece) + "\n"), std::string::npos) << piece << "\n"
                                                                          << listing;
  }
  const std::string unpacked = std::string(folder) + "/unpacked";
  Shell("mkdir '" + unpacked + "' && tar -xzf '" + archive + "' -C '" + unpacked + "'");
  const std::string everything = Shell("cat '" + unpacked + "'/*.* '" + unpacked + "'/*/*");
  EXPECT_EQ(everything.find("eyJhbGciOi"), std::string::npos);
  EXPECT_EQ(everything.find("hunter2"), std::string::npos);
  const std::string kept_log = oru_testing::ReadFile(unpacked + "/logs/oruu.log");
  EXPECT_NE(kept_log.find("| 77 | Found access/device token. Log skipped.\n"), std::string::npos);
  EXPECT_NE(kept_log.find("proxy <password>****</password> set"), std::string::npos);
  EXPECT_NE(kept_log.find("Oru Launcher"), std::string::npos) << "the hand-over's records";
  EXPECT_NE(oru_testing::ReadFile(unpacked + "/prefs/NuvexUpdaterPrefs.dat")
                .find("<DisplayLang>Found access/device token. Log skipped.</DisplayLang>"),
            std::string::npos);
  EXPECT_TRUE(nlohmann::json::accept(oru_testing::ReadFile(unpacked + "/looks/status.json")));
  // The log's two, the preference in the file and in prefs list, and the
  // planted run's last message as log sessions shows it.
  EXPECT_NE(said.find("redacted: 5 secrets: looks/prefs-list.json (1), looks/log-sessions.json "
                      "(1), prefs/NuvexUpdaterPrefs.dat (1), logs/oruu.log (2)"),
            std::string::npos)
      << said;
  EXPECT_NE(oru_testing::ReadFile(unpacked + "/MANIFEST.txt").find("logs/oruu.log"),
            std::string::npos);
  Shell("rm -rf '" + std::string(folder) + "'");
}

// A log past what one log may give keeps its newest records, and the
// report says that it cut.
TEST_F(OructlReadOnlyTest, ABugReportKeepsTheNewestPartOfALargeLogAndSaysItCut) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  std::string big;
  while (big.size() < (5u << 20)) {
    big += RawLogLine("filler " + std::string(200, 'x'));
  }
  big += RawLogLine("the newest");
  oru_testing::WriteFile(PrefsFolder() + "/oruu.log", big);
  char folder[] = "/tmp/oru-report-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string archive = std::string(folder) + "/report.tar.gz";
  const std::string said = RunTool({"bug-report", "-o", archive});
  EXPECT_NE(said.find("cut: the newest"), std::string::npos) << said;
  const std::string kept = Shell("tar -xzOf '" + archive + "' logs/oruu.log");
  EXPECT_LE(kept.size(), 4u << 20);
  EXPECT_GT(kept.size(), (4u << 20) - 300);
  EXPECT_EQ(kept.substr(kept.size() - 11), "the newest\n");
  EXPECT_EQ(kept.rfind("11/24/26", 0), 0u) << "cut at the start of a record";
  Shell("rm -rf '" + std::string(folder) + "'");
}

// As the user whose folders they are, not root: the report is made the
// same way and changes nothing.
TEST_F(OructlReadOnlyTest, ABugReportAsTheUserHoldsTheirLogsAndPreferences) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  WritePrefs("<LogLevel>3</LogLevel>");
  oru_testing::WriteFile(PrefsFolder() + "/oruu.log", RawLogLine("the user's own record"));
  char folder[] = "/tmp/oru-report-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(folder, oru_testing::kOtherUid, oru_testing::kOtherUid), 0);
  }
  const std::string archive = std::string(folder) + "/report.tar.gz";
  std::vector<std::string> before;
  std::vector<std::string> after;
  const int status = oru_testing::RunAsUser(oru_testing::kOtherUid, sandbox_->root(), [&] {
    before = StateOf(sandbox_->root());
    ChildProgram child = oru_testing::StartProgram(ORU_ORUCTL, {"bug-report", "-o", archive});
    oru_testing::ReadAll(child);
    const int made = oru_testing::FinishProgram(child);
    after = StateOf(sandbox_->root());
    return made == 0 && before == after ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  struct stat info = {};
  ASSERT_EQ(stat(archive.c_str(), &info), 0);
  if (geteuid() == 0) {
    EXPECT_EQ(info.st_uid, oru_testing::kOtherUid);
  }
  EXPECT_NE(Shell("tar -xzOf '" + archive + "' logs/oruu.log").find("the user's own record"),
            std::string::npos);
  EXPECT_NE(Shell("tar -xzOf '" + archive + "' prefs/NuvexUpdaterPrefs.dat").find("<LogLevel>3"),
            std::string::npos);
  Shell("rm -rf '" + std::string(folder) + "'");
}

} // namespace
