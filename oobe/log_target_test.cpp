#include "oobe/log_manager.h"
#include "oobe/log_target.h"
#include "platform/folders.h"
#include "platform/os_info.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/log_test_support.h"
#include "testing/run_as_user.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <iterator>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace oobe {
namespace {

using oobe::testing::LinesOf;
using oobe::testing::UtcMs;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

const int64_t kTime = UtcMs(2026, 11, 16, 4, 31, 7, 42);

class LogTargetTest : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(target_.SetLogFile("test.log", sandbox_.root().c_str()));
    ASSERT_TRUE(target_.Open());
  }
  void TearDown() override { target_.Close(); }

  bool WriteAt(int32_t level, const char* message, bool lock = true) {
    return target_.Write(level, "f1", "f2", "f3", "f4", "f5", "f6", message, nullptr, kTime, lock);
  }

  std::vector<std::string> Lines() { return LinesOf(path_); }

  std::string Tid() const { return std::to_string(platform::GetCurrentThreadId()); }

  Sandbox sandbox_;
  std::string path_ = sandbox_.Path("test.log");
  LogTargetDefault target_{"UPDATER"};
};

TEST_F(LogTargetTest, LineHasTheFullLayout) {
  ASSERT_TRUE(WriteAt(kLevelInfo, "text"));
  ASSERT_EQ(Lines().size(), 1u);
  EXPECT_EQ(Lines()[0],
            "11/16/26 04:31:07:042 | [INFO] | f1 | f2 | f3 | f4 | f5 | f6 | " + Tid() + " | text");
}

TEST_F(LogTargetTest, LineAtTheThresholdIsWrittenAndBelowItIsNot) {
  target_.SetLevel(kLevelWarn);
  ASSERT_TRUE(WriteAt(kLevelWarn, "equal"));
  ASSERT_TRUE(WriteAt(kLevelInfo, "below"));
  ASSERT_EQ(Lines().size(), 1u);
  EXPECT_EQ(testing::MessageOf(Lines()[0]), "equal");
}

TEST_F(LogTargetTest, ThresholdNoneSuppressesEveryLineBelowIt) {
  target_.SetLevel(kLevelNone);
  for (int level : {kLevelTrace, kLevelDebug, kLevelInfo, kLevelWarn, kLevelError, kLevelFatal}) {
    ASSERT_TRUE(WriteAt(level, "x"));
  }
  EXPECT_TRUE(Lines().empty());
  ASSERT_TRUE(WriteAt(kLevelNone, "none"));
  EXPECT_EQ(Lines().size(), 1u);
}

TEST_F(LogTargetTest, LevelOutsideTheTableIsNamedAll) {
  ASSERT_TRUE(WriteAt(35, "odd"));
  EXPECT_NE(Lines().at(0).find(" | [ALL] | "), std::string::npos);
}

TEST_F(LogTargetTest, NullFieldIsEmptyBetweenTwoSeparators) {
  ASSERT_TRUE(target_.Write(kLevelInfo, nullptr, "f2", nullptr, "f4", nullptr, nullptr, "m",
                            nullptr, kTime, true));
  EXPECT_EQ(Lines().at(0),
            "11/16/26 04:31:07:042 | [INFO] |  | f2 |  | f4 |  |  | " + Tid() + " | m");
}

TEST_F(LogTargetTest, MessageWithATokenIsSkippedAtLevelWarn) {
  ASSERT_TRUE(WriteAt(kLevelInfo, "a eyJhbGciOi.eyJzdWIi b"));
  EXPECT_EQ(Lines().at(0), "11/16/26 04:31:07:042 | [WARN] | f1 | f2 | f3 | f4 | f5 | f6 | " +
                               Tid() + " | Found access/device token. Log skipped.");
}

TEST_F(LogTargetTest, CredentialsAreMaskedInTheLine) {
  ASSERT_TRUE(WriteAt(kLevelInfo, "proxy <Password>hunter2</Password>"));
  EXPECT_EQ(testing::MessageOf(Lines().at(0)), "proxy <Password>****</Password>");
}

TEST_F(LogTargetTest, FormatIsAppliedOnlyWithArguments) {
  ASSERT_TRUE(WriteAt(kLevelInfo, "100% literal %s"));
  EXPECT_EQ(testing::MessageOf(Lines().at(0)), "100% literal %s");
}

void WriteFormatted(LogTargetDefault& target, int64_t time, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  target.Write(kLevelInfo, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, format, &arguments,
               time, true);
  va_end(arguments);
}

TEST_F(LogTargetTest, FormattedMessagesAreCutAt4095Characters) {
  WriteFormatted(target_, kTime, "%s=%d", "value", 5);
  WriteFormatted(target_, kTime, "%s", std::string(5000, 'x').c_str());
  EXPECT_EQ(testing::MessageOf(Lines().at(0)), "value=5");
  EXPECT_EQ(testing::MessageOf(Lines().at(1)), std::string(4095, 'x'));
}

TEST_F(LogTargetTest, TimeZeroMeansNow) {
  ASSERT_TRUE(target_.Write(kLevelInfo, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "m",
                            nullptr, 0, true));
  const std::string line = Lines().at(0);
  ASSERT_GE(line.size(), 21u);
  EXPECT_EQ(line[2], '/');
  EXPECT_EQ(line[17], ':');
}

TEST_F(LogTargetTest, WithoutTheFileLockNothingIsWrittenAndTrueIsReported) {
  LogTargetDefault unopened("UNOPENED");
  ASSERT_TRUE(unopened.SetLogFile("other.log", sandbox_.root().c_str()));
  EXPECT_TRUE(unopened.Write(kLevelInfo, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             "dropped", nullptr, kTime, true));
  EXPECT_TRUE(LinesOf(sandbox_.Path("other.log")).empty());
}

TEST_F(LogTargetTest, WritingWithoutAskingForTheLockWorksWithoutOne) {
  ASSERT_TRUE(WriteAt(kLevelInfo, "unlocked", false));
  EXPECT_EQ(testing::MessageOf(Lines().at(0)), "unlocked");
}

TEST_F(LogTargetTest, OnMacOS105TheThreadFieldIsEmptyButItsSeparatorStays) {
  target_.ShowThreadIds(false);
  ASSERT_TRUE(WriteAt(kLevelInfo, "text"));
  EXPECT_EQ(Lines().at(0),
            "11/16/26 04:31:07:042 | [INFO] | f1 | f2 | f3 | f4 | f5 | f6 |  | text");
}

TEST_F(LogTargetTest, NewFileGetsMode0666AndAnExistingOneKeepsItsMode) {
  struct stat info;
  ASSERT_EQ(stat(path_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0666u);
  const std::string existing = sandbox_.Path("existing.log");
  WriteFile(existing, "");
  ASSERT_EQ(chmod(existing.c_str(), 0640), 0);
  LogTargetDefault other("OTHER");
  ASSERT_TRUE(other.SetLogFile("existing.log", sandbox_.root().c_str()));
  ASSERT_TRUE(other.Open());
  ASSERT_EQ(stat(existing.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);
  other.Close();
}

// The log is opened to be read as well, to look at its end; a user who may
// write to it but not read it (mode 0622) still appends to it.
TEST(LogTargetAccessTest, ALogThisUserMayOnlyWriteToIsAppendedToAllTheSame) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root: a second user";
  }
  Sandbox sandbox;
  const std::string folder = sandbox.Path("logs");
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  ASSERT_EQ(chmod(sandbox.root().c_str(), 0755), 0);
  WriteFile(folder + "/write-only.log", "");
  ASSERT_EQ(chmod((folder + "/write-only.log").c_str(), 0622), 0);
  const std::string users_own = sandbox.Path("user");
  ASSERT_EQ(mkdir(users_own.c_str(), 0700), 0);
  const int status = oru_testing::RunAsUser(oru_testing::kOtherUid, users_own, [&] {
    LogTargetDefault target("WRITE-ONLY");
    if (!target.SetLogFile("write-only.log", folder.c_str()) || !target.Open()) {
      return 1;
    }
    target.Write(kLevelInfo, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                 "from a user who cannot read the log", nullptr, 0, true);
    return target.UnwrittenRecords() == 0 ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
  const auto lines = LinesOf(folder + "/write-only.log");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(oobe::testing::MessageOf(lines[0]), "from a user who cannot read the log");
}

TEST_F(LogTargetTest, NullLineSetsTheStreamsBadBit) {
  target_.WriteLine(nullptr);
  ASSERT_TRUE(WriteAt(kLevelInfo, "after"));
  EXPECT_TRUE(Lines().empty());
}

TEST_F(LogTargetTest, HeaderBlockWithoutTheClientBundleHasFourLabelledLines) {
  const HeaderBlock& header = target_.Header();
  EXPECT_EQ(header.ruleBefore, std::string(78, '*'));
  EXPECT_EQ(header.ruleAfter, std::string(78, '*'));
  ASSERT_EQ(header.lines.size(), 4u);
  std::vector<std::string> labels;
  for (const auto& entry : header.lines) {
    labels.push_back(entry.first);
  }
  EXPECT_EQ(labels,
            (std::vector<std::string>{"Bit: ", "OS Locale: ", "OS Name: ", "OS Version: "}));
}

TEST_F(LogTargetTest, HeaderBitnessOnA64BitMachineIs64) {
  EXPECT_EQ(target_.Header().lines.at("Bit: "), "64");
}

TEST_F(LogTargetTest, HeaderNamesTheSystem) {
  platform::OSVersion version;
  platform::GetOSVersion(version);
  std::string name;
  std::string triple;
  platform::FormatOSName(version, name);
  platform::FormatVersionTriple(version, triple);
  EXPECT_EQ(target_.Header().lines.at("OS Name: "), name);
  EXPECT_EQ(target_.Header().lines.at("OS Version: "), triple);
}

TEST_F(LogTargetTest, WriteHeaderWritesTheBlockInMapOrderAndClearsThePendingFlag) {
  target_.WriteHeader(kLevelInfo, "a", "b", "c", "d", nullptr, false);
  const auto lines = Lines();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(testing::MessageOf(lines[0]), std::string(78, '*'));
  EXPECT_EQ(testing::MessageOf(lines[1]).rfind("Bit: ", 0), 0u);
  EXPECT_EQ(testing::MessageOf(lines[2]).rfind("OS Locale: ", 0), 0u);
  EXPECT_EQ(testing::MessageOf(lines[3]).rfind("OS Name: ", 0), 0u);
  EXPECT_EQ(testing::MessageOf(lines[4]).rfind("OS Version: ", 0), 0u);
  EXPECT_EQ(testing::MessageOf(lines[5]), std::string(78, '*'));
  EXPECT_NE(lines[0].find(" | [INFO] | a | b | c | d |  |  | "), std::string::npos);
  EXPECT_FALSE(target_.HeaderPending());
}

TEST_F(LogTargetTest, WriteHeaderWithADescriptionReplacesTheStoredBlock) {
  HeaderBlock block{"--", {{"K: ", "v"}}, "=="};
  target_.WriteHeader(kLevelInfo, nullptr, nullptr, nullptr, nullptr, &block, false);
  const auto lines = Lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(testing::MessageOf(lines[1]), "K: v");
  EXPECT_EQ(target_.Header().ruleAfter, "==");
}

TEST(HeaderBlockTest, ClientBundleAddsItsVersionAsTheSecondLine) {
  // The client bundle lives under the machine's /opt; a child with a private
  // /opt keeps the test off the machine.
  const int status = oru_testing::RunInChild([] {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/opt", "tmpfs", 0, "size=1m") != 0) {
      return 99;
    }
    const std::string contents = "/opt/Nuvex Vornica/Dex/Vornica.app/Contents";
    if (!platform::CreateDirectoryTree(contents)) {
      return 2;
    }
    WriteFile(contents + "/Info.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>CFBundleShortVersionString</key><string>3.4.5</string></dict></plist>\n");
    const HeaderBlock block = ComposeHeaderBlock();
    if (block.lines.size() != 5 || block.lines.count("Dex Version: ") != 1 ||
        block.lines.at("Dex Version: ") != "3.4.5") {
      return 1;
    }
    return std::next(block.lines.begin())->first == "Dex Version: " ? 0 : 3;
  });
  if (status == 99) {
    GTEST_SKIP() << "this machine does not allow a private mount namespace";
  }
  EXPECT_EQ(status, 0);
}

TEST(HeaderBlockTest, HeaderAfterRotationRepeatsTheValuesComposedAtConstruction) {
  Sandbox sandbox;
  oru_testing::ScopedEnv german("LANGUAGE", "de");
  LogTargetDefault target("ROTATE");
  ASSERT_TRUE(target.SetLogFile("r.log", sandbox.root().c_str()));
  oru_testing::ScopedEnv french("LANGUAGE", "fr");
  ASSERT_EQ(truncate(sandbox.Path("r.log").c_str(), 10485760), 0);
  ASSERT_TRUE(target.Open());
  ASSERT_TRUE(target.Write(kLevelInfo, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "x",
                           nullptr, kTime, true));
  const auto lines = LinesOf(sandbox.Path("r.log"));
  ASSERT_EQ(lines.size(), 7u);
  EXPECT_EQ(testing::MessageOf(lines[2]), "OS Locale: de_DE");
  target.Close();
}

class LevelMarkerTest : public ::testing::Test {
protected:
  std::string LogsFolder() {
    std::string folder;
    EXPECT_TRUE(platform::GetUserLogsFolder(folder));
    return folder;
  }

  int32_t LevelAfterSetting(int32_t requested) {
    LogTargetDefault target("MARKERS");
    target.SetLevel(requested);
    return target.GetLevel();
  }

  Sandbox sandbox_;
};

TEST_F(LevelMarkerTest, NoMarkerKeepsTheRequestedLevel) {
  EXPECT_EQ(LevelAfterSetting(kLevelWarn), kLevelWarn);
}

TEST_F(LevelMarkerTest, TargetTraceMarkerSetsTrace) {
  WriteFile(LogsFolder() + "/OOBE.trace", "");
  EXPECT_EQ(LevelAfterSetting(kLevelError), kLevelTrace);
}

TEST_F(LevelMarkerTest, TargetDebugMarkerLowersToDebugButNeverRaises) {
  WriteFile(LogsFolder() + "/OOBE.debug", "");
  EXPECT_EQ(LevelAfterSetting(kLevelError), kLevelDebug);
  EXPECT_EQ(LevelAfterSetting(kLevelTrace), kLevelTrace);
}

TEST_F(LevelMarkerTest, TargetDebugMarkerStopsBeforeTheSharedTraceMarker) {
  WriteFile(LogsFolder() + "/OOBE.debug", "");
  WriteFile(LogsFolder() + "/asu.trace", "");
  EXPECT_EQ(LevelAfterSetting(kLevelError), kLevelDebug);
}

TEST_F(LevelMarkerTest, SharedTraceMarkerSetsTrace) {
  WriteFile(LogsFolder() + "/asu.trace", "keeplogs");
  EXPECT_EQ(LevelAfterSetting(kLevelInfo), kLevelTrace);
}

TEST_F(LevelMarkerTest, SharedDebugMarkerLowersToDebug) {
  WriteFile(LogsFolder() + "/asu.debug", "");
  EXPECT_EQ(LevelAfterSetting(kLevelInfo), kLevelDebug);
  EXPECT_EQ(LevelAfterSetting(kLevelTrace), kLevelTrace);
}

TEST_F(LevelMarkerTest, AFolderIsNoMarker) {
  ASSERT_EQ(mkdir((LogsFolder() + "/asu.trace").c_str(), 0700), 0);
  EXPECT_EQ(LevelAfterSetting(kLevelInfo), kLevelInfo);
}

TEST_F(LevelMarkerTest, ConstructionAppliesInfo) {
  LogTargetDefault target("NEW");
  EXPECT_EQ(target.GetLevel(), kLevelInfo);
  EXPECT_EQ(target.GetName(), "NEW");
  EXPECT_FALSE(target.HeaderPending());
  EXPECT_FALSE(target.IsOpened());
}

class LogManagerTest : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_TRUE(target_.SetLogFile("m.log", sandbox_.root().c_str())); }

  Sandbox sandbox_;
  LogTargetDefault target_{"MANAGED"};
  LogManager& manager_ = LogManager::Instance();
};

TEST_F(LogManagerTest, RegisteringTheSameTargetTwiceAddsNoSecondEntryOrReference) {
  ASSERT_TRUE(manager_.AddTarget(&target_));
  ASSERT_TRUE(manager_.AddTarget(&target_));
  EXPECT_EQ(manager_.TargetsNamed("MANAGED").size(), 1u);
  EXPECT_EQ(target_.RefCount(), 1);
  ASSERT_TRUE(manager_.RemoveTarget("MANAGED", &target_));
  EXPECT_EQ(target_.RefCount(), 0);
  EXPECT_FALSE(target_.IsOpened());
  EXPECT_TRUE(manager_.TargetsNamed("MANAGED").empty());
}

TEST_F(LogManagerTest, NullOrUnopenableTargetsAreNotRegistered) {
  EXPECT_FALSE(manager_.AddTarget(nullptr));
  LogTargetDefault disabled("DISABLED");
  EXPECT_FALSE(disabled.SetLogFile("a/b.log", sandbox_.root().c_str()));
  EXPECT_FALSE(manager_.AddTarget(&disabled));
  EXPECT_TRUE(manager_.TargetsNamed("DISABLED").empty());
}

TEST_F(LogManagerTest, RemovingFromAnUnknownNameOrANullTargetFails) {
  EXPECT_FALSE(manager_.RemoveTarget("NOBODY", &target_));
  EXPECT_FALSE(manager_.RemoveTarget("MANAGED", nullptr));
}

TEST_F(LogManagerTest, WriteReachesEveryTargetUnderTheNameInOrder) {
  LogTargetDefault second("MANAGED");
  ASSERT_TRUE(second.SetLogFile("m2.log", sandbox_.root().c_str()));
  ASSERT_TRUE(manager_.AddTarget(&target_));
  ASSERT_TRUE(manager_.AddTarget(&second));
  manager_.Write("MANAGED", kLevelInfo, "a", "b", "c", "d", "", "", "both", kTime);
  manager_.Write("OTHER", kLevelInfo, "a", "b", "c", "d", "", "", "nobody", kTime);
  EXPECT_EQ(LinesOf(sandbox_.Path("m.log")).size(), 1u);
  EXPECT_EQ(LinesOf(sandbox_.Path("m2.log")).size(), 1u);
  ASSERT_TRUE(manager_.RemoveTarget("MANAGED", &target_));
  ASSERT_TRUE(manager_.RemoveTarget("MANAGED", &second));
}

} // namespace
} // namespace oobe
