#include "oobe/log_rotation.h"
#include "oobe/log_target.h"
#include "platform/folders.h"
#include "platform/paths.h"
#include "testing/log_test_support.h"
#include "testing/sandbox.h"

#include <algorithm>
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace oobe {
namespace {

using oobe::testing::LinesOf;
using oobe::testing::LocalDate;
using oobe::testing::MessageOf;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

constexpr uint64_t kTenMiB = 10485760;

int64_t NowSeconds() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return now.tv_sec;
}

class LogFilePlacementTest : public ::testing::Test {
protected:
  void Grow(uint64_t size) { ASSERT_EQ(truncate(live_.c_str(), static_cast<off_t>(size)), 0); }

  uint64_t SizeOf(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
  }

  // Names in the log folder other than the live log, sorted.
  std::vector<std::string> Copies() {
    std::vector<std::string> names;
    DIR* dir = opendir(folder_.c_str());
    while (const struct dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != ".." && name != "test.log") {
        names.push_back(name);
      }
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
  }

  void WriteLineAt(int64_t seconds, const char* message) {
    target_.Write(kLevelInfo, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, message,
                  nullptr, seconds * 1000, true);
  }

  Sandbox sandbox_;
  std::string folder_ = sandbox_.Path("logs");
  std::string live_ = folder_ + "/test.log";
  LogTargetDefault target_{"ROTATING"};
};

TEST_F(LogFilePlacementTest, SizeLimitsFollowTheThreshold) {
  EXPECT_EQ(LogTargetDefault::SizeLimitForLevel(kLevelTrace), 52428800u);
  EXPECT_EQ(LogTargetDefault::SizeLimitForLevel(kLevelDebug), 20971520u);
  EXPECT_EQ(LogTargetDefault::SizeLimitForLevel(kLevelInfo), kTenMiB);
  EXPECT_EQ(LogTargetDefault::SizeLimitForLevel(kLevelError), kTenMiB);
}

TEST_F(LogFilePlacementTest, FileNameWithAFolderPartDisablesTheTarget) {
  ASSERT_TRUE(platform::CreateDirectoryTree(folder_));
  EXPECT_FALSE(target_.SetLogFile("a/b.log", folder_.c_str()));
  EXPECT_FALSE(target_.IsEnabled());
  EXPECT_FALSE(target_.Open());
}

TEST_F(LogFilePlacementTest, EmptyFileNameKeepsTheCurrentOne) {
  ASSERT_TRUE(platform::CreateDirectoryTree(folder_));
  ASSERT_TRUE(target_.SetLogFile(nullptr, folder_.c_str()));
  EXPECT_EQ(target_.GetFilePath(), folder_ + "/OOBE.log");
  EXPECT_TRUE(platform::IsFile(folder_ + "/OOBE.log"));
}

TEST_F(LogFilePlacementTest, MissingFolderIsTheConsoleUsersLogsFolderWithVornicaDex) {
  ASSERT_TRUE(target_.SetLogFile("dex.log", nullptr));
  std::string logs;
  ASSERT_TRUE(platform::GetUserLogsFolder(logs));
  EXPECT_EQ(target_.GetFilePath(), logs + "/Vornica/Dex/dex.log");
  EXPECT_EQ(target_.GetFileName(), "dex.log");
  struct stat info;
  ASSERT_EQ(stat(target_.GetFilePath().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0666u);
}

TEST_F(LogFilePlacementTest, FileThatCannotBeCreatedDisablesTheTarget) {
  EXPECT_FALSE(target_.SetLogFile("x.log", sandbox_.Path("missing-folder").c_str()));
  EXPECT_FALSE(target_.IsEnabled());
}

class RotationTest : public LogFilePlacementTest {
protected:
  void SetUp() override {
    ASSERT_TRUE(platform::CreateDirectoryTree(folder_));
    ASSERT_TRUE(target_.SetLogFile("test.log", folder_.c_str()));
  }
  void TearDown() override { target_.Close(); }
};

TEST_F(RotationTest, FileOfExactlyTheLimitIsRotated) {
  Grow(kTenMiB);
  ASSERT_TRUE(target_.Open());
  EXPECT_EQ(SizeOf(live_), 0u);
  const auto copies = Copies();
  ASSERT_EQ(copies.size(), 1u);
  EXPECT_EQ(copies[0].rfind("test " + LocalDate(0) + " ", 0), 0u) << copies[0];
  EXPECT_EQ(copies[0].substr(copies[0].size() - 4), ".log");
  EXPECT_EQ(copies[0].size(), std::string("test 2026-11-16 04-31-07.log").size());
  EXPECT_EQ(SizeOf(folder_ + "/" + copies[0]), kTenMiB);
}

TEST_F(RotationTest, FileJustBelowTheLimitIsKept) {
  Grow(kTenMiB - 1);
  ASSERT_TRUE(target_.Open());
  EXPECT_EQ(SizeOf(live_), kTenMiB - 1);
  EXPECT_TRUE(Copies().empty());
}

TEST_F(RotationTest, FifteenMiBIsKeptAtDebugAndRotatedAtInfo) {
  Grow(15 * 1048576);
  target_.SetLevel(kLevelDebug);
  ASSERT_TRUE(target_.Open());
  EXPECT_TRUE(Copies().empty());
  target_.Close();
  target_.SetLevel(kLevelInfo);
  ASSERT_TRUE(target_.Open());
  EXPECT_EQ(Copies().size(), 1u);
}

TEST_F(RotationTest, FileOverTheLimitAtOpenIsRotatedAndTheFirstLineFollowsTheHeader) {
  Grow(kTenMiB + 5);
  ASSERT_TRUE(target_.Open());
  EXPECT_TRUE(target_.HeaderPending());
  WriteLineAt(NowSeconds(), "first");
  const auto lines = LinesOf(live_);
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(MessageOf(lines[0]), std::string(78, '*'));
  EXPECT_EQ(MessageOf(lines[5]), std::string(78, '*'));
  EXPECT_EQ(MessageOf(lines[6]), "first");
  EXPECT_FALSE(target_.HeaderPending());
}

TEST_F(RotationTest, SecondRotationInOneSecondKeepsTheFirstCopy) {
  Grow(kTenMiB);
  ASSERT_TRUE(target_.CheckSizeAndCleanUp());
  Grow(kTenMiB);
  ASSERT_TRUE(target_.CheckSizeAndCleanUp());
  const auto copies = Copies();
  ASSERT_GE(copies.size(), 2u);
  for (const std::string& copy : copies) {
    EXPECT_EQ(SizeOf(folder_ + "/" + copy), kTenMiB) << copy;
  }
}

TEST_F(RotationTest, TemporaryCopyLeftByAKilledRotationGoesAtTheNextAndNeverCarriesACopysName) {
  // What a rotation killed during its copy leaves: part of a log under the
  // temporary name, the live file still full.
  oru_testing::WriteFile(folder_ + "/.test.log.rotating", "half a cop");
  Grow(kTenMiB);
  ASSERT_TRUE(target_.CheckSizeAndCleanUp());
  const auto copies = Copies();
  ASSERT_EQ(copies.size(), 1u) << "the temporary is gone, one whole copy is there";
  EXPECT_EQ(copies[0].rfind("test " + LocalDate(0) + " ", 0), 0u) << copies[0];
  EXPECT_EQ(SizeOf(folder_ + "/" + copies[0]), kTenMiB);
  EXPECT_EQ(SizeOf(live_), 0u);
}

TEST_F(RotationTest, ChecksRunEvery900SecondsOneLineLate) {
  ASSERT_TRUE(target_.Open());
  const int64_t opened = NowSeconds();
  Grow(kTenMiB);
  WriteLineAt(opened + 1000, "a"); // previous line time is the open: no check
  EXPECT_TRUE(Copies().empty());
  WriteLineAt(opened + 1001, "b"); // previous line 1000 s after the last check
  EXPECT_EQ(Copies().size(), 1u);
  const auto lines = LinesOf(live_);
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(MessageOf(lines[6]), "b");
}

TEST_F(RotationTest, UnreadableSizeFailsAndTheNextLineTriesAgain) {
  ASSERT_TRUE(target_.Open());
  const int64_t opened = NowSeconds();
  ASSERT_EQ(unlink(live_.c_str()), 0);
  EXPECT_FALSE(target_.CheckSizeAndCleanUp());
  WriteLineAt(opened + 900, "x");
  WriteLineAt(opened + 901, "y"); // check fails: the clean-up time is not stamped
  WriteFile(live_, "");
  Grow(kTenMiB);
  WriteLineAt(opened + 902, "z"); // so this line checks again and rotates
  EXPECT_EQ(Copies().size(), 1u);
}

// Another program (or the user) deleted the live log and made it again
// while this target held the old one open: the file the path names now is
// the one copied and the one emptied, never the unlinked one.
TEST_F(RotationTest, LiveFileMadeAgainUnderAnOpenTargetIsCopiedAndEmptiedItself) {
  ASSERT_TRUE(target_.Open());
  const int64_t opened = NowSeconds();
  WriteLineAt(opened, "in the old file");
  ASSERT_EQ(unlink(live_.c_str()), 0);
  const std::string first_line = "the new file's first line\n";
  WriteFile(live_, first_line);
  Grow(kTenMiB);
  ASSERT_TRUE(target_.CheckSizeAndCleanUp());
  EXPECT_EQ(SizeOf(live_), 0u);
  const auto copies = Copies();
  ASSERT_EQ(copies.size(), 1u);
  const std::string copy = folder_ + "/" + copies[0];
  EXPECT_EQ(SizeOf(copy), kTenMiB);
  EXPECT_EQ(oru_testing::ReadFile(copy).compare(0, first_line.size(), first_line), 0);
  WriteLineAt(opened + 1, "after the rotation");
  const auto lines = LinesOf(live_);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(MessageOf(lines.back()), "after the rotation");
  EXPECT_LT(SizeOf(live_), 4096u);
}

TEST_F(RotationTest, KeepLogsMarkerKeepsEveryCopy) {
  const std::string old_copy = "test " + LocalDate(-5) + " 01-00-00.log";
  WriteFile(folder_ + "/" + old_copy, "old");
  WriteFile(folder_ + "/asu.trace", "keeplogs");
  Grow(kTenMiB);
  ASSERT_TRUE(target_.Open());
  const auto copies = Copies();
  EXPECT_NE(std::find(copies.begin(), copies.end(), old_copy), copies.end());
  EXPECT_EQ(copies.size(), 3u); // the old copy, the new copy, the marker
}

TEST_F(RotationTest, KeepLogsMarkerWithANewlineDoesNotCount) {
  const std::string old_copy = "test " + LocalDate(-5) + " 01-00-00.log";
  WriteFile(folder_ + "/" + old_copy, "old");
  WriteFile(folder_ + "/asu.trace", "keeplogs\n");
  Grow(kTenMiB);
  ASSERT_TRUE(target_.Open());
  const auto copies = Copies();
  EXPECT_EQ(std::find(copies.begin(), copies.end(), old_copy), copies.end());
}

TEST_F(RotationTest, CopiesFromTheDayBeforeYesterdayAreDeletedWhateverTheirNumber) {
  const std::string old_copy = "test " + LocalDate(-2) + " 23-59-59.log";
  const std::string yesterday = "test " + LocalDate(-1) + " 10-00-00.log";
  WriteFile(folder_ + "/" + old_copy, "old");
  WriteFile(folder_ + "/" + yesterday, "kept");
  target_.RemoveOldCopies(LogTargetDefault::kDaysOfCopies);
  EXPECT_FALSE(platform::PathExists(folder_ + "/" + old_copy));
  EXPECT_TRUE(platform::PathExists(folder_ + "/" + yesterday));
}

TEST_F(RotationTest, OfFourCopiesFromTodayTheTwoOldestAreRemoved) {
  const std::string today = LocalDate(0);
  for (const char* time : {"01-00-00", "02-00-00", "03-00-00", "04-00-00"}) {
    WriteFile(folder_ + "/test " + today + " " + time + ".log", time);
  }
  target_.RemoveOldCopies(LogTargetDefault::kDaysOfCopies);
  EXPECT_EQ(Copies(), (std::vector<std::string>{"test " + today + " 03-00-00.log",
                                                "test " + today + " 04-00-00.log"}));
  EXPECT_TRUE(platform::PathExists(live_));
}

// The clean-up removes regular files only: a folder or a link named after
// the log (which a plain remove would take, link or empty folder) stays, and
// nothing a link names is touched.
TEST_F(RotationTest, FoldersAndLinksNamedAfterTheLogAreLeftByTheCleanUp) {
  const std::string old_copy = "test " + LocalDate(-5) + " 01-00-00.log";
  WriteFile(folder_ + "/other.log", "kept");
  ASSERT_EQ(mkdir((folder_ + "/test-folder").c_str(), 0700), 0);
  ASSERT_EQ(symlink("other.log", (folder_ + "/test-link").c_str()), 0);
  ASSERT_EQ(symlink("other.log", (folder_ + "/" + old_copy).c_str()), 0);
  target_.RemoveOldCopies(LogTargetDefault::kDaysOfCopies);
  EXPECT_EQ(Copies(),
            (std::vector<std::string>{"other.log", old_copy, "test-folder", "test-link"}));
  EXPECT_EQ(oru_testing::ReadFile(folder_ + "/other.log"), "kept");
}

TEST_F(RotationTest, TheLogsOwnLevelMarkersGoAndOtherFilesNamedAfterItStay) {
  WriteFile(folder_ + "/test.trace", "");
  WriteFile(folder_ + "/test.debug", "");
  WriteFile(folder_ + "/test-notes.txt", "");
  WriteFile(folder_ + "/other.log", "");
  target_.RemoveOldCopies(LogTargetDefault::kDaysOfCopies);
  EXPECT_EQ(Copies(), (std::vector<std::string>{"other.log", "test-notes.txt"}));
}

// Other programs delete every file whose name begins with the log's stem:
// one rotation of oruu.log took the live logs of the other programs of the
// updater beside it. Only this log's old copies and level markers go.
TEST_F(RotationTest, CleanUpLeavesTheLogsOfOtherProgramsBesideIt) {
  LogTargetDefault updater("UPDATER");
  ASSERT_TRUE(updater.SetLogFile("oruu.log", folder_.c_str()));
  const std::string old_day = LocalDate(-5);
  std::vector<std::string> kept = {"notes.txt",
                                   "oruu-notes.txt",
                                   "oruu " + old_day + " 01-00-00.txt",
                                   "oruu " + old_day + " 1-00-00.log",
                                   "oruu " + old_day + " 01-00-00_1.log",
                                   "oruu.log",
                                   "oruui " + old_day + " 01-00-00.log",
                                   "oruui.log",
                                   "oruul.log",
                                   "oruun.log",
                                   "oruus.log",
                                   "oruuuLib.log"};
  for (const std::string& name : kept) {
    WriteFile(folder_ + "/" + name, "data");
  }
  for (const std::string& gone :
       {"oruu " + old_day + " 01-00-00.log", "oruu " + old_day + " 01-00-00_03.log",
        std::string("oruu.trace"), std::string("oruu.debug")}) {
    WriteFile(folder_ + "/" + gone, "old");
  }
  updater.RemoveOldCopies(LogTargetDefault::kDaysOfCopies);
  std::sort(kept.begin(), kept.end());
  EXPECT_EQ(Copies(), kept);
}

TEST(RotatedCopyNameTest, IsBuiltAndRecognisedByOneRule) {
  EXPECT_EQ(RotatedCopyName("oruu.log", "2026-11-24 04-31-07", 0), "oruu 2026-11-24 04-31-07.log");
  EXPECT_EQ(RotatedCopyName("oruu.log", "2026-11-24 04-31-07", 7),
            "oruu 2026-11-24 04-31-07_07.log");
  EXPECT_EQ(RotatedCopyName("oruu", "2026-11-24 04-31-07", 0), "oruu 2026-11-24 04-31-07");
  for (const char* live : {"oruu.log", "oruu", "a.b.log"}) {
    for (int suffix : {0, 1, 99}) {
      EXPECT_TRUE(IsRotatedCopyName(live, RotatedCopyName(live, "2026-01-02 03-04-05", suffix)))
          << live << " " << suffix;
    }
  }
  EXPECT_FALSE(IsRotatedCopyName("oruu.log", "oruu.log"));
  EXPECT_FALSE(IsRotatedCopyName("oruu.log", "oruui 2026-01-02 03-04-05.log"));
  EXPECT_FALSE(IsRotatedCopyName("oruu.log", "oruu 2026-01-02 03-04-05.txt"));
  EXPECT_FALSE(IsRotatedCopyName("oruu.log", "oruu 2026-01-02 03-04-5.log"));
  EXPECT_FALSE(IsRotatedCopyName("oruu.log", "oruu 2026-01-02 03-04-05_1.log"));
  EXPECT_FALSE(IsRotatedCopyName("oruu.log", "oruu 2026-01-02 03-04-05 .log"));
  EXPECT_FALSE(IsRotatedCopyName("oruu", "oruu 2026-01-02 03-04-05.log"));
}

} // namespace
} // namespace oobe
