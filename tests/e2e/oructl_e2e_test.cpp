// oructl against real processes in the sandbox of the end-to-end tests.
#include "launcher/handover.h"
#include "locks/resource_locker.h"
#include "locks/updater_lock.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/memory_disk_linux.h"
#include "testing/namespaces.h"
#include "testing/run_as_user.h"
#include "testing/sandbox.h"
#include "tests/e2e/e2e_fixture.h"
#include "tests/e2e/e2e_support.h"

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <semaphore.h>
#include <signal.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using oru_testing::ChildProgram;

struct Result {
  int exit_code = -1;
  std::string output;
};

class OructlTest : public e2e::E2eTest {
protected:
  Result Oructl(const std::vector<std::string>& arguments) {
    ChildProgram child = oru_testing::StartProgram(ORU_ORUCTL, arguments);
    Result result;
    result.output = oru_testing::ReadAll(child);
    result.exit_code = oru_testing::FinishProgram(child);
    return result;
  }

  std::string PrefsFolder() const { return sandbox_->data_home() + "/Nuvex/OruUpdater/1.0"; }
  std::string PrefsPath() const { return PrefsFolder() + "/NuvexUpdaterPrefs.dat"; }

  static bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }

  // A process that took the preferences lock and was killed holding it.
  void LeaveStalePrefsLock() {
    ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
    ASSERT_TRUE(e2e::LeaveStalePrefsLock(PrefsPath()));
  }
};

TEST_F(OructlTest, StatusWhileTheLauncherWaitsForARunningInstaller) {
  e2e::LauncherWaitingForTheInstaller stage(ZeltoPath());
  ASSERT_TRUE(stage.Waits());
  const Result status = Oructl({"status"});
  EXPECT_EQ(status.exit_code, 0) << status.output;
  EXPECT_TRUE(Has(status.output, "=> installer running, launcher waiting for it")) << status.output;
  EXPECT_TRUE(Has(status.output, "VelUpdater1_Sync_OruLauncherWait (rendezvous")) << status.output;
  EXPECT_EQ(stage.PostAndWait(), 0);
  // The launcher is done; this test still plays the running installer.
  EXPECT_TRUE(Has(Oructl({"status"}).output, "=> installer running, no launcher"));
}

TEST_F(OructlTest, StatusWhenTheInstallerIsGone) {
  UpdaterLock launcher(kOruLauncherKey); // a launcher runs; no installer does
  const Result status = Oructl({"status", "--json"});
  EXPECT_EQ(status.exit_code, 0) << status.output;
  EXPECT_TRUE(Has(status.output, "\"launcher running, installer gone\"")) << status.output;
}

TEST_F(OructlTest, StatusFindsAStaleLockLeftByAKilledProcessAndUnlockPrefsFreesIt) {
  LeaveStalePrefsLock();
  const Result status = Oructl({"status"});
  EXPECT_EQ(status.exit_code, 1) << status.output;
  EXPECT_TRUE(Has(status.output, "=> stale preferences lock")) << status.output;
  EXPECT_EQ(Oructl({"unlock-prefs"}).exit_code, 2);
  const Result unlock = Oructl({"unlock-prefs", "--force"});
  EXPECT_EQ(unlock.exit_code, 0) << unlock.output;
  EXPECT_EQ(Oructl({"status"}).exit_code, 0);
  EXPECT_EQ(Oructl({"unlock-prefs", "--force"}).exit_code, 1);
}

TEST_F(OructlTest, UnlockPrefsRefusesWhileTheRecordedHolderLivesAndNamesIt) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  const pid_t holder = fork();
  if (holder == 0) {
    close(gate[0]);
    esd::ResourceLocker locker(PrefsPath(), 3000);
    const bool locked = locker.Lock();
    (void)!write(gate[1], locked ? "1" : "0", 1);
    pause();
    _exit(0);
  }
  close(gate[1]);
  char locked = '0';
  ASSERT_EQ(read(gate[0], &locked, 1), 1);
  close(gate[0]);
  ASSERT_EQ(locked, '1');
  const Result status = Oructl({"status"});
  EXPECT_EQ(status.exit_code, 0) << status.output;
  EXPECT_TRUE(Has(status.output, "held by process " + std::to_string(holder) + ", which is alive"))
      << status.output;
  EXPECT_EQ(Oructl({"unlock-prefs", "--force"}).exit_code, 2);
  EXPECT_TRUE(esd::ResourceLocker::IsHeldByAnyone(PrefsPath()));
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_EQ(Oructl({"status"}).exit_code, 1);
  EXPECT_EQ(Oructl({"prefs", "set", "LogLevel", "4"}).exit_code, 0); // recovers it by itself
  EXPECT_FALSE(esd::ResourceLocker::IsHeldByAnyone(PrefsPath()));
}

TEST_F(OructlTest, ASemaphoreTakenByAProgramWithoutRecordIsNeverCalledStale) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  const std::string name =
      esd::SystemSemaphoreName(esd::ResourceLocker::SemaphoreName(PrefsPath()));
  sem_t* foreign = sem_open(name.c_str(), O_CREAT | O_EXCL, 0700, 1);
  ASSERT_NE(foreign, SEM_FAILED);
  const Result status = Oructl({"status"});
  EXPECT_EQ(status.exit_code, 0) << status.output;
  EXPECT_TRUE(Has(status.output, "keeps no holder record (not judged)")) << status.output;
  EXPECT_EQ(Oructl({"unlock-prefs", "--force"}).exit_code, 0);
  sem_close(foreign);
}

// Eight scripts at once, each setting its own key 500 times with oructl,
// while an observer reads every key under the lock again and again.
TEST_F(OructlTest, PrefsSetFromEightProcessesAtOnceNeverFailsAndNoValueGoesBack) {
  constexpr int kLanes = 8;
  constexpr int kSetsEach = 500;
  const std::vector<std::string> keys = {"Automatic",
                                         "AutoCheckType",
                                         "AutoCheckFreq",
                                         "UpdaterPrefSchedCheckFreq",
                                         "UpdaterDailyScheduledTimeHH",
                                         "UpdaterDailyScheduledTimeMM",
                                         "ConnectionType",
                                         "LogLevel"};
  // Each set's save ends in an fsync, which on a disk another build writes
  // to can wait seconds for that build's writeback, longer than any writer
  // waits for the lock: the files live on a disk in memory.
  const oru_testing::MemoryDisk disk(sandbox_->data_home(), 256 * 1024 * 1024);
  ASSERT_TRUE(disk.mounted() || geteuid() != 0);
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  std::vector<std::string> observe = {"observe", PrefsPath(), std::to_string(kSetsEach)};
  observe.insert(observe.end(), keys.begin(), keys.end());
  ChildProgram observer = oru_testing::StartProgram(ORU_PREFS_HELPER, observe);
  const int failed = oru_testing::RunInLanes(ORU_ORUCTL, kLanes, kSetsEach, [&](int lane, int i) {
    return std::vector<std::string>{"prefs", "set", keys[static_cast<size_t>(lane)],
                                    std::to_string(i + 1)};
  });
  const std::string seen = oru_testing::ReadAll(observer);
  EXPECT_EQ(oru_testing::FinishProgram(observer), 0) << seen;
  long samples = 0;
  long regressions = -1;
  EXPECT_EQ(std::sscanf(seen.c_str(), "samples %ld regressions %ld", &samples, &regressions), 2);
  std::printf("sets: %d, failed: %d; observer samples: %ld, values gone back: %ld\n",
              kLanes * kSetsEach, failed, samples, regressions);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(regressions, 0);
  for (const std::string& key : keys) {
    EXPECT_EQ(Oructl({"prefs", "get", key}).output, std::to_string(kSetsEach) + "\n") << key;
  }
}

std::vector<std::string> JsonArgv(const std::string& json) {
  std::vector<std::string> argv;
  size_t at = json.find("\"argv\":[");
  if (at == std::string::npos) {
    return argv;
  }
  at += 8;
  while (json[at] == '"') {
    const size_t end = json.find('"', at + 1);
    argv.push_back(json.substr(at + 1, end - at - 1));
    at = end + 1;
    if (json[at] == ',') {
      ++at;
    }
  }
  return argv;
}

TEST_F(OructlTest, ExplainPrintsExactlyTheArgumentVectorTheLauncherPasses) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  UpdaterLock installer(kUpdateInstallerKey);
  const Result explain = Oructl({"explain", "--json"});
  EXPECT_EQ(explain.exit_code, 0) << explain.output;
  const std::vector<std::string> predicted = JsonArgv(explain.output);
  ASSERT_EQ(predicted.size(), 6u) << explain.output;

  ASSERT_EQ(e2e::HandOverOnce(), 0);
  ASSERT_TRUE(zelto.WaitForStart());
  EXPECT_EQ(zelto.Arguments(), predicted);
}

TEST_F(OructlTest, ExplainSaysWhenNoInstallerRuns) {
  const Result explain = Oructl({"explain"});
  EXPECT_EQ(explain.exit_code, 1);
  EXPECT_TRUE(Has(explain.output, "plan: no installer runs")) << explain.output;
}

TEST_F(OructlTest, DoctorPassesOnAHealthySandbox) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  const Result doctor = Oructl({"doctor"});
  EXPECT_EQ(doctor.exit_code, 0) << doctor.output;
  EXPECT_FALSE(Has(doctor.output, "FAIL")) << doctor.output;
}

TEST_F(OructlTest, DoctorFindsAMissingZelto) {
  ASSERT_TRUE(platform::CreateDirectoryTree(sandbox_->local_data()));
  const Result doctor = Oructl({"doctor"});
  EXPECT_EQ(doctor.exit_code, 1);
  EXPECT_TRUE(Has(doctor.output, "FAIL  Zelto: " + ZeltoPath() + " is missing")) << doctor.output;
}

TEST_F(OructlTest, DoctorFindsAZeltoThatIsNotExecutable) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  ASSERT_EQ(chmod(ZeltoPath().c_str(), 0644), 0);
  const Result doctor = Oructl({"doctor"});
  EXPECT_EQ(doctor.exit_code, 1);
  EXPECT_TRUE(Has(doctor.output, "is not executable")) << doctor.output;
  EXPECT_TRUE(Has(doctor.output, "fix: chmod +x")) << doctor.output;
}

TEST_F(OructlTest, DoctorFindsACorruptPreferencesFile) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  oru_testing::WriteFile(PrefsPath(), "<Preferences><LogLevel>2</Lo");
  const Result doctor = Oructl({"doctor"});
  EXPECT_EQ(doctor.exit_code, 1);
  EXPECT_TRUE(Has(doctor.output, "does not parse")) << doctor.output;
  EXPECT_EQ(oru_testing::ReadFile(PrefsPath()), "<Preferences><LogLevel>2</Lo");
}

TEST_F(OructlTest, DoctorFindsAStalePreferencesLock) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  LeaveStalePrefsLock();
  const Result doctor = Oructl({"doctor"});
  EXPECT_EQ(doctor.exit_code, 1);
  EXPECT_TRUE(Has(doctor.output, "which died holding it")) << doctor.output;
  EXPECT_TRUE(Has(doctor.output, "oructl unlock-prefs --force)")) << doctor.output;
}

TEST_F(OructlTest, DoctorFindsALogFolderThatIsMissing) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  ASSERT_EQ(Oructl({"prefs", "set", "LogFile", sandbox_->Path("gone/oruu.log")}).exit_code, 0);
  const Result doctor = Oructl({"doctor"});
  EXPECT_EQ(doctor.exit_code, 1);
  EXPECT_TRUE(Has(doctor.output, "FAIL  log file")) << doctor.output;
}

TEST_F(OructlTest, DoctorFindsTooFewSemaphoreSets) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  std::string limits;
  {
    std::ifstream in("/proc/sys/kernel/sem");
    std::getline(in, limits);
  }
  // The limits belong to this test's own IPC namespace.
  { std::ofstream("/proc/sys/kernel/sem") << "250 32000 32 4"; }
  const Result doctor = Oructl({"doctor"});
  { std::ofstream("/proc/sys/kernel/sem") << limits; }
  EXPECT_EQ(doctor.exit_code, 1);
  EXPECT_TRUE(Has(doctor.output, "FAIL  System V semaphore sets")) << doctor.output;
}

// A process of the updater holding the preferences, driven through a pipe.
class PrefsHolder {
public:
  PrefsHolder() {
    int input[2];
    if (pipe(input) != 0) {
      return;
    }
    child_ = oru_testing::StartProgram(ORU_PREFS_HOLDER, {}, input[0], input[1]);
    close(input[0]);
    commands_ = input[1];
    ready_ = Answer() == "ready";
  }
  ~PrefsHolder() {
    close(commands_);
    oru_testing::FinishProgram(child_);
  }
  bool ready() const { return ready_; }
  std::string Ask(const std::string& command) {
    const std::string line = command + "\n";
    (void)!write(commands_, line.data(), line.size());
    return Answer();
  }

private:
  std::string Answer() {
    char line[256] = "";
    if (!child_.output || !fgets(line, sizeof line, child_.output)) {
      return "";
    }
    std::string text = line;
    if (!text.empty() && text.back() == '\n') {
      text.pop_back();
    }
    return text;
  }

  ChildProgram child_;
  int commands_ = -1;
  bool ready_ = false;
};

TEST_F(OructlTest, PrefsSetByTheToolIsSeenByARunningProcessAndTheOtherWayRound) {
  PrefsHolder holder;
  ASSERT_TRUE(holder.ready());
  EXPECT_EQ(holder.Ask("get"), "2");
  ASSERT_EQ(Oructl({"prefs", "set", "LogLevel", "4"}).exit_code, 0);
  EXPECT_EQ(holder.Ask("get"), "4");
  EXPECT_EQ(holder.Ask("set 7"), "ok");
  const Result get = Oructl({"prefs", "get", "LogLevel"});
  EXPECT_EQ(get.exit_code, 0);
  EXPECT_EQ(get.output, "7\n");
}

TEST_F(OructlTest, PrefsListShowsEveryKeyTypedAndResetRestoresTheDefault) {
  ASSERT_EQ(Oructl({"prefs", "set", "ChannelsEnabled", "stable=1,beta=0"}).exit_code, 0);
  EXPECT_EQ(Oructl({"prefs", "get", "ChannelsEnabled"}).output, "beta=0,stable=1\n");
  ASSERT_EQ(Oructl({"prefs", "set", "AutoCheck", "0"}).exit_code, 0);
  const Result list = Oructl({"prefs", "list"});
  EXPECT_EQ(list.exit_code, 0);
  EXPECT_TRUE(Has(list.output, "AutoCheck (bool) = 0\n")) << list.output;
  EXPECT_TRUE(Has(list.output, "LogLevel (int) = 2 [default]\n")) << list.output;
  EXPECT_TRUE(Has(list.output, "WebFeedSize (unsigned long) = 0 [default]\n")) << list.output;
  ASSERT_EQ(Oructl({"prefs", "reset", "AutoCheck"}).exit_code, 0);
  EXPECT_EQ(Oructl({"prefs", "get", "AutoCheck"}).output, "1\n");
}

TEST_F(OructlTest, JsonCarriesNumbersBooleansAndMapsTyped) {
  ASSERT_EQ(Oructl({"prefs", "set", "ChannelsEnabled", "stable=1,beta=0"}).exit_code, 0);
  ASSERT_EQ(Oructl({"prefs", "set", "LogLevel", "4"}).exit_code, 0);
  const auto get = nlohmann::json::parse(Oructl({"prefs", "get", "LogLevel", "--json"}).output);
  EXPECT_EQ(get, nlohmann::json::parse(R"({"key":"LogLevel","value":4})"));
  const auto list = nlohmann::json::parse(Oructl({"prefs", "list", "--json"}).output);
  ASSERT_TRUE(list.is_array());
  for (const auto& entry : list) {
    if (entry["key"] == "AutoCheck") {
      EXPECT_EQ(entry["value"], true);
      EXPECT_EQ(entry["default"], true);
    } else if (entry["key"] == "ChannelsEnabled") {
      EXPECT_EQ(entry["value"], nlohmann::json::parse(R"({"beta":false,"stable":true})"));
    } else if (entry["key"] == "WebFeedSize") {
      EXPECT_TRUE(entry["value"].is_number_unsigned());
    }
  }
  UpdaterLock launcher(kOruLauncherKey);
  const auto status = nlohmann::json::parse(Oructl({"status", "--json"}).output);
  EXPECT_TRUE(status["locks"][0]["key"].is_number_integer());
  EXPECT_EQ(status["locks"][0]["exists"], true);
  EXPECT_TRUE(status["log_lock"]["users"].is_number_integer());
  const auto explain = nlohmann::json::parse(Oructl({"explain", "--json"}).output);
  EXPECT_EQ(explain["log_level"], 4);
  EXPECT_EQ(explain["launcher_running"], true);
}

TEST_F(OructlTest, BadPrefsInputIsAOneLineErrorWithExitTwoAndChangesNothing) {
  ASSERT_EQ(Oructl({"prefs", "set", "LogLevel", "3"}).exit_code, 0);
  const std::string before = oru_testing::ReadFile(PrefsPath());
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"prefs", "get", "NoSuchKey"},
        std::vector<std::string>{"prefs", "set", "NoSuchKey", "1"},
        std::vector<std::string>{"prefs", "set", "LogLevel", "three"},
        std::vector<std::string>{"prefs", "set", "AutoCheck", "yes"},
        std::vector<std::string>{"prefs", "set", "WebFeedSize", "-1"},
        std::vector<std::string>{"prefs", "set", "ChannelsEnabled", "a=maybe"},
        std::vector<std::string>{"prefs", "set", "DisplayLang", "bell\x07"},
        std::vector<std::string>{"prefs", "set", "DisplayLang", "bad \xff"},
        std::vector<std::string>{"prefs", "frobnicate"}, std::vector<std::string>{"prefs"},
        std::vector<std::string>{"nonsense"}}) {
    ChildProgram child = oru_testing::StartProgram(ORU_ORUCTL, arguments);
    oru_testing::ReadAll(child);
    EXPECT_EQ(oru_testing::FinishProgram(child), 2) << arguments.back();
  }
  EXPECT_EQ(oru_testing::ReadFile(PrefsPath()), before);
}

TEST_F(OructlTest, ValueThatCannotBeStoredIsRefusedSayingWhy) {
  ChildProgram child =
      oru_testing::StartProgram(ORU_ORUCTL, {"prefs", "set", "DisplayLang", "bell\x07"});
  oru_testing::ReadAll(child);
  EXPECT_EQ(oru_testing::FinishProgram(child), 2);
  // Refused before anything was read or written: no file was made.
  EXPECT_FALSE(platform::PathExists(PrefsPath()));
}

TEST_F(OructlTest, CorruptPreferencesFileIsMovedAsideWholeAndSaidSo) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  const std::string corrupt = "<Preferences><LogLevel>2</Lo";
  oru_testing::WriteFile(PrefsPath(), corrupt);
  EXPECT_EQ(Oructl({"prefs", "set", "LogLevel", "3"}).exit_code, 0);
  EXPECT_EQ(Oructl({"prefs", "get", "LogLevel"}).output, "3\n");
  int copies = 0;
  for (const auto& entry : std::filesystem::directory_iterator(PrefsFolder())) {
    if (entry.path().filename().string().rfind("NuvexUpdaterPrefs.dat.corrupt-", 0) == 0) {
      ++copies;
      EXPECT_EQ(oru_testing::ReadFile(entry.path().string()), corrupt);
    }
  }
  EXPECT_EQ(copies, 1);
}

TEST_F(OructlTest, PreferencesFileThatCannotBeReadIsReportedNeverShownAsDefaults) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  const std::string stored =
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<Preferences>\n<LogLevel>4</LogLevel>\n"
      "</Preferences>\n";
  oru_testing::WriteFile(PrefsPath(), stored);
  ASSERT_EQ(chmod(PrefsPath().c_str(), 0000), 0);
  const int status = oru_testing::RunAsUser(oru_testing::kOtherUid, sandbox_->root(), [&] {
    const Result get = Oructl({"prefs", "get", "LogLevel"});
    const Result set = Oructl({"prefs", "set", "LogLevel", "5"});
    // The error goes to standard error; no value is printed.
    const bool refused = get.exit_code == 2 && get.output.empty() && set.exit_code == 2;
    return refused ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  ASSERT_EQ(chmod(PrefsPath().c_str(), 0600), 0);
  EXPECT_EQ(oru_testing::ReadFile(PrefsPath()), stored);
}

std::string LogLine(const std::string& time, const std::string& thread, const std::string& level,
                    const std::string& message) {
  return time + " | [" + level + "] |  | UPDATER | SHARED |  |  |  | " + thread + " | " + message +
         "\n";
}

TEST_F(OructlTest, LogSessionsReportExactlyTheUnfinishedRun) {
  const std::string log = sandbox_->Path("oruu.log");
  oru_testing::WriteFile(
      log, LogLine("11/22/26 10:00:00:000", "111", "INFO", ">>> Nuvex Updater Log Begin >>>") +
               LogLine("11/22/26 10:00:00:001", "111", "INFO", "Oru Launcher : x") +
               LogLine("11/22/26 10:00:00:002", "222", "INFO", ">>> Nuvex Updater Log Begin >>>") +
               LogLine("11/22/26 10:00:00:003", "111", "INFO", "<<< Nuvex Updater Log End <<<") +
               "\n\n" +
               LogLine("11/22/26 10:00:00:004", "222", "INFO",
                       "Oru Launcher  : Acquiring kSyncOruLauncherWaitKey Lock."));
  const Result sessions = Oructl({"log", "sessions", "--file", log, "--json"});
  EXPECT_EQ(sessions.exit_code, 1) << sessions.output;
  EXPECT_TRUE(Has(sessions.output, "{\"thread\":\"111\"")) << sessions.output;
  EXPECT_TRUE(Has(sessions.output, "\"finished\":true")) << sessions.output;
  EXPECT_TRUE(Has(sessions.output, "{\"thread\":\"222\"")) << sessions.output;
  EXPECT_EQ(sessions.output.find("\"finished\":false"),
            sessions.output.rfind("\"finished\":false"));
  EXPECT_TRUE(
      Has(Oructl({"log", "sessions", "--file", log}).output,
          "run 222: 11/22/26 10:00:00:002 .. 11/22/26 10:00:00:004, 2 records, UNFINISHED"));
}

TEST_F(OructlTest, LogFiltersByLevelFieldThreadAndTime) {
  const std::string log = sandbox_->Path("oruu.log");
  oru_testing::WriteFile(log, LogLine("11/22/26 10:00:00:000", "111", "DEBUG", "debug line") +
                                  LogLine("11/22/26 10:00:05:000", "222", "WARN", "warn line") +
                                  LogLine("11/22/26 10:00:09:000", "111", "INFO", "info line"));
  EXPECT_EQ(Oructl({"log", "--file", log, "--level", "WARN"}).output,
            LogLine("11/22/26 10:00:05:000", "222", "WARN", "warn line"));
  EXPECT_EQ(
      Oructl({"log", "--file", log, "--thread", "111", "--since", "11/22/26 10:00:01"}).output,
      LogLine("11/22/26 10:00:09:000", "111", "INFO", "info line"));
  EXPECT_TRUE(Has(Oructl({"log", "--file", log, "--field", "UPDATER", "--json"}).output,
                  "\"message\":\"debug line\""));
  EXPECT_EQ(Oructl({"log", "--file", log, "--field", "nobody"}).output, "");
}

TEST_F(OructlTest, LogReadsRotatedCopiesBeforeTheLiveFile) {
  const std::string log = sandbox_->Path("oruu.log");
  oru_testing::WriteFile(sandbox_->Path("oruu 2026-11-22 09-00-00.log"),
                         LogLine("11/22/26 09:00:00:000", "1", "INFO", "older"));
  oru_testing::WriteFile(log, LogLine("11/22/26 10:00:00:000", "1", "INFO", "newer"));
  EXPECT_EQ(Oructl({"log", "--file", log}).output,
            LogLine("11/22/26 09:00:00:000", "1", "INFO", "older") +
                LogLine("11/22/26 10:00:00:000", "1", "INFO", "newer"));
}

TEST_F(OructlTest, LogJsonIsValidUtf8WhateverBytesTheLogHolds) {
  const std::string log = sandbox_->Path("oruu.log");
  oru_testing::WriteFile(log,
                         LogLine("11/22/26 10:00:00:000", "7", "INFO", "caf\xE9 \x01 \xFF\xFE"));
  const Result json = Oructl({"log", "--json", "--file", log});
  ASSERT_EQ(json.exit_code, 0);
  const auto records = nlohmann::json::parse(json.output); // throws on invalid UTF-8
  ASSERT_EQ(records.size(), 1u);
  // Each byte that is not UTF-8 becomes U+FFFD; the control byte is kept, escaped.
  EXPECT_EQ(records[0]["message"], "caf\xEF\xBF\xBD \x01 \xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(records[0]["line"], 1);
  EXPECT_NE(json.output.find("\\u0001"), std::string::npos) << json.output;
}

// The updater's own log before anything wrote it. (A log named with --file
// that is not there is an error: OructlLogTest.ALogNamedOnTheCommandLine...)
TEST_F(OructlTest, NoLogYetIsNoEntries) {
  const Result missing = Oructl({"log"});
  EXPECT_EQ(missing.exit_code, 0);
  EXPECT_EQ(missing.output, "no entries\n");
  const Result sessions = Oructl({"log", "sessions"});
  EXPECT_EQ(sessions.exit_code, 0);
  EXPECT_EQ(sessions.output, "no entries\n");
  const Result json = Oructl({"log", "--json"});
  EXPECT_EQ(json.exit_code, 0);
  EXPECT_EQ(json.output, "[]\n");
}

TEST_F(OructlTest, UnreadableLogOrALineThatDoesNotParseIsAnError) {
  ASSERT_EQ(mkdir(sandbox_->Path("folder.log").c_str(), 0755), 0);
  EXPECT_EQ(Oructl({"log", "--file", sandbox_->Path("folder.log")}).exit_code, 2);
  const std::string log = sandbox_->Path("oruu.log");
  oru_testing::WriteFile(log, LogLine("11/22/26 10:00:00:000", "1", "INFO", "fine") +
                                  "this | is | not | a | log | line\n");
  EXPECT_EQ(Oructl({"log", "--file", log}).exit_code, 2);
  EXPECT_EQ(Oructl({"log", "--file", log, "--level", "LOUD"}).exit_code, 2);
  EXPECT_EQ(Oructl({"log", "--file", log, "--since", "soonish"}).exit_code, 2);
}

// The tools take the launcher's own choice of log file: a stored LogFile
// the launcher refuses is not where they look either.
TEST_F(OructlTest, ARefusedLogFileIsNeitherExplainedNorReadAsTheLog) {
  const std::string refused = sandbox_->Path("chosen\t.log");
  oru_testing::WriteFile(refused, LogLine("11/22/26 10:00:00:000", "1", "INFO", "not this one"));
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  oru_testing::WriteFile(PrefsPath(), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                                      "<Preferences>\n<LogFile>" +
                                          refused + "</LogFile>\n</Preferences>\n");
  const std::string default_log = PrefsFolder() + "/oruu.log";
  oru_testing::WriteFile(default_log, LogLine("11/22/26 10:00:00:000", "1", "INFO", "this one"));

  const auto explained = nlohmann::json::parse(Oructl({"explain", "--json"}).output);
  EXPECT_EQ(explained["log_file"], default_log);
  EXPECT_EQ(explained["log_file_refused"],
            "Oru Launcher : WARNING - LogFile preference refused: it holds a control character. "
            "Using the default log file.");
  EXPECT_EQ(Oructl({"log"}).output, LogLine("11/22/26 10:00:00:000", "1", "INFO", "this one"));
}

TEST_F(OructlTest, OptionsAreReadTheSameWayByEveryCommand) {
  EXPECT_EQ(Oructl({"-h"}).exit_code, 0);
  for (const char* command : {"status", "explain", "doctor", "prefs", "unlock-prefs", "log"}) {
    const Result help = Oructl({command, "-h"});
    EXPECT_EQ(help.exit_code, 0) << command;
    EXPECT_EQ(help.output.rfind("Usage: oructl ", 0), 0u) << command;
  }
  const Result version = Oructl({"--version"});
  EXPECT_TRUE(std::regex_match(version.output, std::regex("oructl [0-9]+\\.[0-9]+\\.[0-9]+\n")))
      << version.output;

  const oru_testing::ErrorCapture errors;
  ChildProgram slip = oru_testing::StartProgram(ORU_ORUCTL, {"stauts"}, -1, -1, errors.fd());
  EXPECT_EQ(oru_testing::ReadAll(slip), "");
  EXPECT_EQ(oru_testing::FinishProgram(slip), 2);
  EXPECT_EQ(errors.Text(),
            "oructl: unknown command 'stauts' (did you mean 'status'?) (see oructl --help)\n");

  const std::string log = sandbox_->Path("oruu.log");
  oru_testing::WriteFile(log, LogLine("11/22/26 10:00:00:000", "1", "INFO", "quiet") +
                                  LogLine("11/22/26 10:00:01:000", "1", "WARN", "loud"));
  const Result warnings = Oructl({"log", "--level=WARN", "--file=" + log});
  EXPECT_EQ(warnings.exit_code, 0);
  EXPECT_EQ(warnings.output, LogLine("11/22/26 10:00:01:000", "1", "WARN", "loud"));
  // A negative number is a value, never an option.
  EXPECT_EQ(Oructl({"prefs", "set", "LogLevel", "-1"}).exit_code, 0);
  EXPECT_EQ(Oructl({"prefs", "get", "LogLevel"}).output, "-1\n");
  // After "--" an option's name is a value.
  EXPECT_EQ(Oructl({"prefs", "set", "DisplayLang", "--", "--json"}).exit_code, 0);
  EXPECT_EQ(Oructl({"prefs", "get", "DisplayLang"}).output, "--json\n");
}

// The surface is one table: "help CMD" is CMD's own help, a command's help
// shows its subcommands' options, and completion offers what parsing takes.
TEST_F(OructlTest, HelpUsageAndCompletionComeFromTheSameTable) {
  const Result asked = Oructl({"help", "log"});
  EXPECT_EQ(asked.exit_code, 0);
  EXPECT_EQ(asked.output, Oructl({"log", "--help"}).output);
  EXPECT_EQ(asked.output.rfind("Usage: oructl log ", 0), 0u) << asked.output;
  EXPECT_NE(asked.output.find("oructl log write [--file PATH] [--level NAME] [--tag TEXT]"),
            std::string::npos)
      << asked.output;
  EXPECT_EQ(Oructl({"--complete", "prefs", "reset", "--"}).output, "words\n--all\n--help\n");
  EXPECT_EQ(Oructl({"--complete", "log", "write", "--t"}).output, "words\n--tag\n");
  EXPECT_EQ(Oructl({"--complete", "log", "--file", ""}).output, "files\n");
  const std::string keys = Oructl({"--complete", "prefs", "get", "LogL"}).output;
  EXPECT_EQ(keys, "words\nLogLevel\n");
  EXPECT_EQ(Oructl({"help", "nothing"}).exit_code, 2);
}

TEST_F(OructlTest, EveryCommandHasAManual) {
  for (const char* command : {"status", "explain", "doctor", "prefs", "unlock-prefs", "log"}) {
    const Result help = Oructl({command, "--help"});
    EXPECT_EQ(help.exit_code, 0) << command;
    EXPECT_EQ(help.output.rfind("Usage: oructl " + std::string(command), 0), 0u) << command;
  }
  EXPECT_EQ(Oructl({"--help"}).exit_code, 0);
  EXPECT_EQ(Oructl({}).exit_code, 2);
}

} // namespace
