#include "esd/format_string.h"
#include "esd/updater_prefs.h"
#include "launcher/log_file_rule.h"
#include "launcher/updater_log.h"
#include "launcher/user_local_path.h"
#include "locks/resource_locker.h"
#include "locks/updater_lock.h"
#include "platform/folders.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/namespaces.h"
#include "testing/sandbox.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>

namespace {

using oru_testing::RunInChild;
using oru_testing::Sandbox;

std::vector<std::string> Messages(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> messages;
  std::string line;
  while (std::getline(in, line)) {
    size_t position = 0;
    for (int separator = 0; separator < 9 && position != std::string::npos; ++separator) {
      position = line.find(" | ", position);
      position = position == std::string::npos ? position : position + 3;
    }
    messages.push_back(position == std::string::npos ? line : line.substr(position));
  }
  return messages;
}

bool Contains(const std::vector<std::string>& messages, const std::string& message) {
  return std::find(messages.begin(), messages.end(), message) != messages.end();
}

// The facade and the preferences are process-wide: every test runs its
// body in a child of its own.
class UpdaterLogTest : public ::testing::Test {
protected:
  std::string PrefsFolder() const { return sandbox_.data_home() + "/Nuvex/OruUpdater/1.0"; }
  std::string PrefsFile() const { return PrefsFolder() + "/NuvexUpdaterPrefs.dat"; }
  std::string DefaultLog() const { return PrefsFolder() + "/oruu.log"; }

  void WritePrefs(const std::string& body) {
    ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
    oru_testing::WriteFile(PrefsFile(), "<Preferences>" + body + "</Preferences>");
  }

  Sandbox sandbox_;
};

TEST(UpdaterLogLevelTest, FacadeLevelsMapThroughTheTable) {
  const int32_t expected[] = {30, 30, 20, 20, 30, 30, 30, 30, 30, 0};
  for (int level = 1; level <= 10; ++level) {
    EXPECT_EQ(UpdaterLogLibraryLevel(level), expected[level - 1]) << level;
  }
  EXPECT_EQ(UpdaterLogLibraryLevel(0), 30);
  EXPECT_EQ(UpdaterLogLibraryLevel(11), 30);
  EXPECT_EQ(UpdaterLogLibraryLevel(-1), 30);
}

TEST(FormatStringTest, MessageAndIntegerGiveMessageEqualsInteger) {
  std::string out;
  ASSERT_TRUE(esd::FormatString(out, "%0 = %1", "x", 5));
  EXPECT_EQ(out, "x = 5");
}

TEST(FormatStringTest, PlaceholderAboveNineStopsAndFails) {
  std::string out;
  EXPECT_FALSE(esd::FormatString(out, "a%12b", "x", 5));
  EXPECT_EQ(out, "a");
}

TEST(FormatStringTest, LonePercentAtTheEndIsKept) {
  std::string out;
  ASSERT_TRUE(esd::FormatString(out, "100%", "x", 5));
  EXPECT_EQ(out, "100%");
}

TEST(FormatStringTest, DoublePercentAndPercentBeforeALetter) {
  std::string out;
  ASSERT_TRUE(esd::FormatString(out, "%%0 %s %2%9", "x", 5, "two", "", "", "", "", "", "", "nine"));
  EXPECT_EQ(out, "%0 %s twonine");
}

TEST(FormatStringTest, EmptyFormatGivesEmptyOutput) {
  std::string out = "old";
  ASSERT_TRUE(esd::FormatString(out, "", "x", 5));
  EXPECT_EQ(out, "");
}

TEST_F(UpdaterLogTest, AbsentLevelMeansTwoAndIsWrittenBackWithTheDefaultFile) {
  const int status = RunInChild([&] {
    UpdaterLogStart();
    UpdaterLogClose();
    std::string file;
    int level = 0;
    NuvexUpdaterPrefs& prefs = GetUpdaterPrefs(false);
    prefs.SetPrefsPath(prefs.prefsPath());
    if (!prefs.GetPref<std::string>("LogFile", file, "") || file != DefaultLog()) {
      return 1;
    }
    return prefs.GetPref<int>("LogLevel", level, -1) && level == 2 ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
  const auto messages = Messages(DefaultLog());
  ASSERT_GE(messages.size(), 5u);
  EXPECT_EQ(messages[0], ">>> Nuvex Updater Log Begin >>>");
  EXPECT_EQ(messages[1], "Application Version: 10.0.0.22");
  EXPECT_EQ(messages[2], "cmdline option: -logFile = " + DefaultLog());
  EXPECT_EQ(messages[3], "cmdline option: -logLevel = 2");
  EXPECT_EQ(messages[4], "<<< Nuvex Updater Log End <<<");
}

TEST_F(UpdaterLogTest, LevelZeroOrNegativeTurnsLoggingOff) {
  for (const char* level : {"0", "-5"}) {
    WritePrefs(std::string("<LogLevel>") + level + "</LogLevel><LogFile>" +
               sandbox_.Path("off.log") + "</LogFile>");
    const int status = RunInChild([&] {
      UpdaterLogStart();
      UpdaterLogWrite(1, "never");
      UpdaterLogClose();
      return 0;
    });
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(platform::PathExists(sandbox_.Path("off.log"))) << level;
  }
}

TEST_F(UpdaterLogTest, LockLinesNeedLevelThree) {
  for (const char* level : {"2", "3"}) {
    const std::string log = sandbox_.Path(std::string("level") + level + ".log");
    WritePrefs(std::string("<LogLevel>") + level + "</LogLevel><LogFile>" + log + "</LogFile>");
    const int status = RunInChild([&] {
      UpdaterLogStart();
      UpdaterLogWrite(3, "lock line");
      UpdaterLogWrite(2, "launcher line");
      UpdaterLogClose();
      return 0;
    });
    EXPECT_EQ(status, 0);
    const auto messages = Messages(log);
    EXPECT_TRUE(Contains(messages, "launcher line"));
    EXPECT_EQ(Contains(messages, "lock line"), std::string(level) == "3") << level;
  }
}

TEST_F(UpdaterLogTest, SyncWaitLockLinesReachTheLogThroughTheHookAtLevelThree) {
  const std::string log = sandbox_.Path("locks.log");
  WritePrefs("<LogLevel>3</LogLevel><LogFile>" + log + "</LogFile>");
  const int status = RunInChild([&] {
    if (!oru_testing::EnterPrivateIpcNamespace()) {
      return 3; // the set this makes and removes must touch nothing else
    }
    UpdaterLogStart();
    NuvexUpdaterSyncWaitLockRelease("HookTestLock");
    UpdaterLogClose();
    return 0;
  });
  if (status == 3) {
    GTEST_SKIP() << "needs a private IPC namespace (root)";
  }
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(
      Contains(Messages(log), "NuvexUpdaterSyncWaitLockRelease : Releasing Lock  = HookTestLock"));
}

// Both sync-wait calls in a private IPC namespace, on a log opened with
// UpdaterLogOpen alone (no UpdaterLogStart) at `level`: a release first
// raises the rendezvous, so that the acquire does not block. Returns the
// child's status (3: no private namespace) and the log's messages.
int RunSyncWaitCallsOnAnOpenedLog(int level, const std::string& log,
                                  std::vector<std::string>& messages) {
  const int status = RunInChild([&] {
    if (!oru_testing::EnterPrivateIpcNamespace()) {
      return 3; // the sets this makes and removes must touch nothing else
    }
    UpdaterLogOpen(log, level, "", "UPDATER", "SHARED");
    UpdaterLock_Wait raised("OpenedLogLock");
    raised.Release();
    NuvexUpdaterSyncWaitLockAcquire("OpenedLogLock");
    NuvexUpdaterSyncWaitLockRelease("OpenedLogLock");
    UpdaterLogWrite(2, "launcher line");
    UpdaterLogClose();
    return 0;
  });
  messages = Messages(log);
  return status;
}

const char kAcquiringLine[] = "NuvexUpdaterSyncWaitLockAcquire : Acquiring Lock  = OpenedLogLock";
const char kReleasingLine[] = "NuvexUpdaterSyncWaitLockRelease : Releasing Lock  = OpenedLogLock";

TEST_F(UpdaterLogTest, SyncWaitLinesReachALogOpenedWithUpdaterLogOpenAtLevelThree) {
  std::vector<std::string> messages;
  const int status = RunSyncWaitCallsOnAnOpenedLog(3, sandbox_.Path("opened3.log"), messages);
  if (status == 3) {
    GTEST_SKIP() << "needs a private IPC namespace (root)";
  }
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(Contains(messages, kAcquiringLine));
  EXPECT_TRUE(Contains(messages, kReleasingLine));
}

TEST_F(UpdaterLogTest, SyncWaitLinesOfALogOpenedWithUpdaterLogOpenAreDroppedAtLevelTwo) {
  std::vector<std::string> at_two;
  std::vector<std::string> at_three;
  const int status_two = RunSyncWaitCallsOnAnOpenedLog(2, sandbox_.Path("opened2.log"), at_two);
  const int status_three = RunSyncWaitCallsOnAnOpenedLog(3, sandbox_.Path("opened3.log"), at_three);
  if (status_two == 3 || status_three == 3) {
    GTEST_SKIP() << "needs a private IPC namespace (root)";
  }
  EXPECT_EQ(status_two, 0);
  EXPECT_TRUE(Contains(at_two, "launcher line"));
  EXPECT_FALSE(Contains(at_two, kAcquiringLine));
  EXPECT_FALSE(Contains(at_two, kReleasingLine));
  // The same calls with only the level changed write both lines: they are
  // dropped because of the level, not because nothing wrote them.
  EXPECT_TRUE(Contains(at_three, kAcquiringLine));
  EXPECT_TRUE(Contains(at_three, kReleasingLine));
}

// Other programs turn logging off when the preferences lock cannot be had.
// Held for ever by a program that keeps no record, the launcher's run still
// logs, to the default file at level 2, and says which lock it was.
TEST_F(UpdaterLogTest, APreferencesLockNobodyLetsGoStillLogsToTheDefaultWithAWarning) {
  WritePrefs("<LogLevel>3</LogLevel><LogFile>" + sandbox_.Path("stored.log") + "</LogFile>");
  const int status = RunInChild([&] {
    if (!oru_testing::EnterPrivateIpcAndShm()) {
      return 3; // the semaphore this leaves must touch nothing else
    }
    const std::string name =
        esd::SystemSemaphoreName(esd::ResourceLocker::SemaphoreName(PrefsFile()));
    if (sem_open(name.c_str(), O_CREAT | O_EXCL, 0700, 1) == SEM_FAILED) {
      return 4;
    }
    UpdaterLogStart();
    UpdaterLogWrite(3, "lock line");
    UpdaterLogWrite(2, "launcher line");
    UpdaterLogClose();
    return 0;
  });
  if (status == 3) {
    GTEST_SKIP() << "needs a private IPC and mount namespace (root)";
  }
  ASSERT_EQ(status, 0);
  EXPECT_FALSE(platform::PathExists(sandbox_.Path("stored.log")));
  const auto messages = Messages(DefaultLog());
  EXPECT_TRUE(Contains(messages, std::string(kPrefsLockRefusedLine) + PrefsFile()));
  EXPECT_TRUE(Contains(messages, "cmdline option: -logLevel = 2"));
  EXPECT_TRUE(Contains(messages, "launcher line"));
  EXPECT_FALSE(Contains(messages, "lock line"));
}

TEST_F(UpdaterLogTest, PathWithoutSlashOpensWithoutPlacementAndStillWritesTheBanner) {
  const int status = RunInChild([&] {
    const bool placed = UpdaterLogOpen("bare.log", 2, "", "UPDATER", "SHARED");
    UpdaterLogClose();
    return placed ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
  std::string logs;
  ASSERT_TRUE(platform::GetUserLogsFolder(logs));
  // Without a placement, opening puts the library's default file straight
  // into the user's logs folder.
  const auto messages = Messages(logs + "/OOBE.log");
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages[0], ">>> Nuvex Updater Log Begin >>>");
}

TEST_F(UpdaterLogTest, TextWithANullValueWritesNull) {
  const std::string log = sandbox_.Path("text.log");
  const int status = RunInChild([&] {
    UpdaterLogOpen(log, 2, "", "UPDATER", "SHARED");
    UpdaterLogText(2, "value: ", nullptr);
    UpdaterLogText(2, "value: ", "v");
    UpdaterLogValue(2, "Oru Launcher : ", "Already running!");
    UpdaterLogInt(2, "count", -3);
    UpdaterLogMessage(2, "copied");
    UpdaterLogClose();
    return 0;
  });
  EXPECT_EQ(status, 0);
  const auto messages = Messages(log);
  EXPECT_EQ(messages, (std::vector<std::string>{">>> Nuvex Updater Log Begin >>>", "value: <NULL>",
                                                "value: v", "Oru Launcher :  = Already running!",
                                                "count = -3", "copied",
                                                "<<< Nuvex Updater Log End <<<", "", ""}));
}

TEST_F(UpdaterLogTest, CloseWithoutAnOpenLogDoesNothing) {
  const int status = RunInChild([] {
    UpdaterLogClose();
    UpdaterLogWrite(1, "nothing");
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(UpdaterLogTest, LinesBeyondTheConfiguredLevelOrWithoutATargetAreDropped) {
  const std::string log = sandbox_.Path("gate.log");
  const int status = RunInChild([&] {
    UpdaterLogOpen(log, 1, "", "UPDATER", "SHARED");
    UpdaterLogWrite(2, "too verbose");
    UpdaterLogClose();
    UpdaterLogWrite(1, "after close");
    return 0;
  });
  EXPECT_EQ(status, 0);
  const auto messages = Messages(log);
  EXPECT_FALSE(Contains(messages, "too verbose"));
  EXPECT_FALSE(Contains(messages, "after close"));
}

TEST_F(UpdaterLogTest, StartingAgainWhileOpenAddsASecondTargetBesideTheFirst) {
  const std::string log = sandbox_.Path("twice.log");
  const int status = RunInChild([&] {
    UpdaterLogOpen(log, 2, "", "UPDATER", "SHARED");
    UpdaterLogOpen(log, 2, "", "UPDATER", "SHARED");
    UpdaterLogWrite(2, "seen by both");
    UpdaterLogClose();
    return 0;
  });
  EXPECT_EQ(status, 0);
  const auto messages = Messages(log);
  EXPECT_EQ(std::count(messages.begin(), messages.end(), "seen by both"), 2);
}

TEST_F(UpdaterLogTest, PrefsLinesGoThroughTheFacadeOnceItIsOpen) {
  const std::string log = sandbox_.Path("hook.log");
  WritePrefs("<LogLevel>2</LogLevel><LogFile>" + log + "</LogFile>");
  oru_testing::ScopedEnv no_inventory("XDG_DATA_DIRS", sandbox_.Path("nowhere"));
  const int status = RunInChild([&] {
    UpdaterLogStart();
    NuvexUpdaterPrefs second(false); // a second instance logs the missing inventory again
    UpdaterLogClose();
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(Contains(Messages(log), "Could not get Updater Inventory path on machine "));
}

TEST(LogFileRuleTest, PathIsInsideComparesStandardFormsByWholeComponents) {
  EXPECT_TRUE(PathIsInside("/home/u/a/oruu.log", "/home/u/a"));
  EXPECT_TRUE(PathIsInside("/home/u/a", "/home/u/a/"));
  EXPECT_TRUE(PathIsInside("/home//u/./a/b/../c.log", "/home/u/a"));
  EXPECT_FALSE(PathIsInside("/home/u/ab/oruu.log", "/home/u/a"));
  EXPECT_FALSE(PathIsInside("/home/u/a/../../etc/passwd", "/home/u/a"));
  EXPECT_FALSE(PathIsInside("relative/oruu.log", "/home/u/a"));
  EXPECT_FALSE(PathIsInside("/home/u/a/x", ""));
}

TEST_F(UpdaterLogTest, LogFileWithAControlCharacterIsRefusedWithOneLineAndTheDefaultIsUsed) {
  const std::string chosen = sandbox_.Path("chosen.log");
  WritePrefs("<LogLevel>2</LogLevel><LogFile>" + chosen + "\nforged | line</LogFile>");
  const int status = RunInChild([&] {
    UpdaterLogStart();
    UpdaterLogClose();
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(platform::PathExists(chosen));
  const auto messages = Messages(DefaultLog());
  EXPECT_TRUE(Contains(messages, "cmdline option: -logFile = " + DefaultLog()));
  EXPECT_EQ(std::count(messages.begin(), messages.end(),
                       "Oru Launcher : WARNING - LogFile preference refused: it holds a control "
                       "character. Using the default log file."),
            1);
  // The stored value is the user's and stays as it was.
  EXPECT_NE(oru_testing::ReadFile(PrefsFile()).find("forged | line"), std::string::npos);
}

TEST_F(UpdaterLogTest, LogFileOutsideTheUpdaterFolderIsUsedWhenNoOtherUserIsInvolved) {
  const std::string chosen = sandbox_.Path("chosen.log");
  WritePrefs("<LogLevel>2</LogLevel><LogFile>" + chosen + "</LogFile>");
  const int status = RunInChild([&] {
    UpdaterLogStart();
    UpdaterLogClose();
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(Contains(Messages(chosen), "cmdline option: -logFile = " + chosen));
}

TEST_F(UpdaterLogTest, UserLocalPathCacheWinsOverTheFolderLookup) {
  const int status = RunInChild([&] {
    SetUserLocalPathCache("/cached/folder");
    std::string path;
    return GetUserLocalPath(path) && path == "/cached/folder" ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  std::string path;
  ASSERT_TRUE(GetUserLocalPath(path));
  EXPECT_EQ(path, PrefsFolder());
}

} // namespace

namespace {

int default_file_asked = 0;
std::string CountedDefaultFile() {
  ++default_file_asked;
  return "/default/oruu.log";
}

} // namespace

TEST(UpdaterLogChoiceTest, TheStoredFileAndLevelStandAndTheDefaultIsNotAsked) {
  default_file_asked = 0;
  const UpdaterLogChoice choice = ChooseUpdaterLog("/some/where.log", 4, &CountedDefaultFile, true);
  EXPECT_EQ(choice.file, "/some/where.log");
  EXPECT_EQ(choice.level, 4);
  EXPECT_FALSE(choice.fileIsDefault);
  EXPECT_FALSE(choice.levelIsDefault);
  EXPECT_TRUE(choice.refusal.empty());
  EXPECT_EQ(default_file_asked, 0);
}

TEST(UpdaterLogChoiceTest, NothingStoredMeansTheDefaultFileAndLevelTwo) {
  const UpdaterLogChoice choice = ChooseUpdaterLog("", -1, &CountedDefaultFile, true);
  EXPECT_EQ(choice.file, "/default/oruu.log");
  EXPECT_EQ(choice.level, 2);
  EXPECT_TRUE(choice.fileIsDefault);
  EXPECT_TRUE(choice.levelIsDefault);
  EXPECT_TRUE(choice.refusal.empty());
}

TEST(UpdaterLogChoiceTest, ARefusedFileMeansTheDefaultWithTheLineThatSaysWhy) {
  for (const bool looking_only : {false, true}) {
    const UpdaterLogChoice choice =
        ChooseUpdaterLog("/some/where\t.log", 3, &CountedDefaultFile, looking_only);
    EXPECT_EQ(choice.file, "/default/oruu.log");
    EXPECT_TRUE(choice.fileIsDefault);
    EXPECT_EQ(choice.level, 3);
    EXPECT_EQ(choice.refusal, "Oru Launcher : WARNING - LogFile preference refused: it holds a "
                              "control character. Using the default log file.");
  }
}
