#include "esd/updater_prefs.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/sandbox.h"

#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>
#include <vector>

namespace {

using oru_testing::ReadFile;
using oru_testing::RunInChild;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

constexpr int kNoPrivateMounts = 99;

// Runs `body` in a child that sees an empty, private /var/tmp (the folder
// of kind 2), so that nothing the test makes there reaches the machine.
int RunWithPrivateVarTmp(const std::function<int()>& body) {
  return RunInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/var/tmp", "tmpfs", 0, "size=4m") != 0) {
      return kNoPrivateMounts;
    }
    return body();
  });
}

std::vector<std::pair<int, std::string>> logged;
void Capture(int level, const std::string& message) {
  logged.emplace_back(level, message);
}

class UpdaterPrefsTest : public ::testing::Test {
protected:
  void SetUp() override {
    logged.clear();
    SetUpdaterPrefsLogHook(&Capture);
    SetUpdaterPrefsFolderOverride("");
  }
  void TearDown() override {
    SetUpdaterPrefsLogHook(nullptr);
    SetUpdaterPrefsFolderOverride("");
    // Any lock a test left behind goes with it.
    esd::ResourceLocker(PrefsPath(), 0).Unlock(true);
  }

  std::string PrefsFolder() const { return sandbox_.data_home() + "/Nuvex/OruUpdater/1.0"; }
  std::string PrefsPath() const { return PrefsFolder() + "/NuvexUpdaterPrefs.dat"; }
  std::string InventoryFolder() const {
    return sandbox_.local_data() + "/Nuvex/OruUpdaterInventory/1.0";
  }
  void WriteStamp(const std::string& stamp) {
    ASSERT_TRUE(platform::CreateDirectoryTree(InventoryFolder()));
    WriteFile(InventoryFolder() + "/uninstallts", stamp);
  }

  Sandbox sandbox_;
};

TEST_F(UpdaterPrefsTest, PrefsFolderIsMadeUnderTheUsersSupportFolder) {
  std::string folder;
  ASSERT_TRUE(GetUpdaterPrefsFolder(folder));
  EXPECT_EQ(folder, PrefsFolder());
  EXPECT_TRUE(platform::IsDirectory(folder));
}

TEST_F(UpdaterPrefsTest, NewFoldersTakeThePermissionBitsOfTheFolderAbove) {
  ASSERT_TRUE(platform::CreateDirectoryTree(sandbox_.data_home()));
  ASSERT_EQ(chmod(sandbox_.data_home().c_str(), 0751), 0);
  std::string folder;
  ASSERT_TRUE(GetUpdaterPrefsFolder(folder));
  for (const std::string& made : {sandbox_.data_home() + "/Nuvex", folder}) {
    struct stat info;
    ASSERT_EQ(stat(made.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0751, 0751u) << made;
  }
}

TEST_F(UpdaterPrefsTest, OverrideFolderWins) {
  SetUpdaterPrefsFolderOverride(sandbox_.Path("override"));
  std::string folder;
  ASSERT_TRUE(GetUpdaterPrefsFolder(folder));
  EXPECT_EQ(folder, sandbox_.Path("override"));
}

TEST_F(UpdaterPrefsTest, FallsBackToKind2WhenTheUsersFolderCannotBeMade) {
  WriteFile(sandbox_.Path("blocker"), "");
  oru_testing::ScopedEnv broken("XDG_DATA_HOME", sandbox_.Path("blocker/below"));
  const int status = RunWithPrivateVarTmp([] {
    std::string folder;
    return GetUpdaterPrefsFolder(folder) && folder == "/var/tmp/Nuvex/OruUpdater/1.0" &&
                   platform::IsDirectory(folder)
               ? 0
               : 1;
  });
  if (status == kNoPrivateMounts) {
    GTEST_SKIP() << "this machine does not allow a private mount namespace";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(UpdaterPrefsTest, EveryKeyHasItsTypeAndDefault) {
  NuvexUpdaterPrefs prefs(false);
  const std::string folder = PrefsFolder();
  EXPECT_EQ(prefs.prefsPath(), PrefsPath());
  const auto check_bool = [](esd::BasicPref<bool>& pref, const char* key, bool value) {
    EXPECT_EQ(pref.key, key);
    EXPECT_EQ(pref.defaultValue, value) << key;
  };
  const auto check_int = [](esd::BasicPref<int>& pref, const char* key, int value) {
    EXPECT_EQ(pref.key, key);
    EXPECT_EQ(pref.defaultValue, value) << key;
  };
  const auto check_text = [](esd::BasicPref<std::string>& pref, const char* key,
                             const std::string& value) {
    EXPECT_EQ(pref.key, key);
    EXPECT_EQ(pref.defaultValue, value) << key;
  };
  check_bool(prefs.AutoCheck, "AutoCheck", true);
  check_int(prefs.Automatic, "Automatic", 0);
  check_int(prefs.AutoCheckType, "AutoCheckType", 0);
  check_text(prefs.DownloadDir, "DownloadDir", folder + "/Install");
  check_text(prefs.UserCache, "UserCache", sandbox_.data_home() + "/Nuvex");
  check_text(prefs.UserCacheTillOruUPdater, "UserCacheTillOruUPdater",
             sandbox_.data_home() + "/Nuvex/OruUpdater");
  check_text(prefs.DisplayLang, "DisplayLang", "");
  check_bool(prefs.IsFirstRun, "IsFirstRun", true);
  check_bool(prefs.IsScheduledTaskAdded, "IsScheduledTaskAdded", false);
  check_bool(prefs.IsScheduledTaskNeeded, "IsScheduledTaskNeeded", true);
  check_bool(prefs.InBackground, "InBackground", false);
  check_bool(prefs.InTrayIcon, "InTrayIcon", false);
  check_int(prefs.AutoCheckFreq, "AutoCheckFreq", 0);
  check_int(prefs.UpdaterPrefSchedCheckFreq, "UpdaterPrefSchedCheckFreq", 0);
  check_text(prefs.LastDateCheck, "LastDateCheck", "");
  check_text(prefs.uninstallts, "uninstallts", "");
  check_int(prefs.UpdaterDailyScheduledTimeHH, "UpdaterDailyScheduledTimeHH", 2);
  check_int(prefs.UpdaterDailyScheduledTimeMM, "UpdaterDailyScheduledTimeMM", 0);
  check_bool(prefs.ShowNewProducts, "ShowNewProducts", false);
  check_bool(prefs.SilentCheck, "SilentCheck", false);
  EXPECT_EQ(prefs.ApplicationsEnabled.key, "ApplicationsEnabled");
  EXPECT_EQ(prefs.NotificationMessage.key, "NotificationMessage");
  EXPECT_EQ(prefs.ChannelsInstalled.key, "ChannelsInstalled");
  EXPECT_EQ(prefs.ChannelsEnabled.key, "ChannelsEnabled");
  EXPECT_EQ(prefs.MoxChannels.key, "MoxChannels");
  check_text(prefs.Launch, "Launch", "");
  check_text(prefs.ProxyServer, "ProxyServer", "");
  check_text(prefs.ProxyPort, "ProxyPort", "");
  check_int(prefs.ConnectionType, "ConnectionType", 0);
  check_text(prefs.LogFile, "LogFile", folder + "/oruu.log");
  check_text(prefs.logFileLib, "logFileLib", folder + "/oruuuLib.log");
  check_text(prefs.InstallerLogFile, "InstallerLogFile", folder + "/oruui.log");
  check_text(prefs.NotificationLogFile, "NotificationLogFile", folder + "/oruun.log");
  check_text(prefs.StartupLogFile, "StartupLogFile", folder + "/oruul.log");
  check_text(prefs.SilentNotificationLogFile, "SilentNotificationLogFile", folder + "/oruus.log");
  check_int(prefs.LogLevel, "LogLevel", 2);
  check_text(prefs.OSVersion, "OSVersion", "");
  check_text(prefs.VelUVersion, "VelUVersion", "");
  check_text(prefs.WebFeedOverriddenURL, "WebFeedOverriddenURL", "");
  check_text(prefs.WebFeedEtag, "WebFeedEtag", "");
  EXPECT_EQ(prefs.WebFeedSize.key, "WebFeedSize");
  EXPECT_EQ(prefs.WebFeedSize.defaultValue, 0u);
  EXPECT_EQ(prefs.WebFeedSeqNo.key, "WebFeedSeqNo");
  EXPECT_EQ(prefs.WebFeedSeqNo.defaultValue, 0u);
}

TEST_F(UpdaterPrefsTest, SlotsListEveryKeyOnceInTableOrderWithItsType) {
  NuvexUpdaterPrefs prefs(false);
  const auto& slots = prefs.Slots();
  ASSERT_EQ(slots.size(), 42u);
  std::set<std::string> keys;
  for (const auto& slot : slots) {
    keys.insert(slot->key());
  }
  EXPECT_EQ(keys.size(), 42u);
  EXPECT_STREQ(slots.front()->key(), "AutoCheck");
  EXPECT_STREQ(slots.front()->type(), "bool");
  EXPECT_STREQ(slots[5]->key(), "UserCacheTillOruUPdater");
  EXPECT_STREQ(slots[20]->type(), "map of bool");
  EXPECT_STREQ(slots[21]->type(), "map of string");
  EXPECT_STREQ(slots.back()->key(), "WebFeedSeqNo");
  EXPECT_STREQ(slots.back()->type(), "unsigned long");
}

TEST_F(UpdaterPrefsTest, ASlotReadsWritesAndResetsItsPreferenceAsText) {
  NuvexUpdaterPrefs prefs(false);
  esd::UpdaterPrefSlot* level = nullptr;
  esd::UpdaterPrefSlot* channels = nullptr;
  for (const auto& slot : prefs.Slots()) {
    level = std::string(slot->key()) == "LogLevel" ? slot.get() : level;
    channels = std::string(slot->key()) == "ChannelsEnabled" ? slot.get() : channels;
  }
  ASSERT_TRUE(level && channels);
  bool converted = false;
  EXPECT_FALSE(level->StoreText("x", converted));
  EXPECT_FALSE(converted);
  ASSERT_TRUE(level->StoreText("5", converted));
  ASSERT_TRUE(channels->StoreText("b=1,a=0", converted));
  std::string text;
  bool is_default = true;
  ASSERT_TRUE(level->ReadText(text, is_default));
  EXPECT_EQ(text, "5");
  EXPECT_FALSE(is_default);
  ASSERT_TRUE(channels->ReadText(text, is_default));
  EXPECT_EQ(text, "a=0,b=1");
  ASSERT_TRUE(level->Reset());
  ASSERT_TRUE(level->ReadText(text, is_default));
  EXPECT_EQ(text, "2");
  EXPECT_TRUE(is_default);
  EXPECT_EQ(level->DefaultText(), "2");
}

TEST_F(UpdaterPrefsTest, EveryPreferenceWritesThroughThisObject) {
  NuvexUpdaterPrefs prefs(false);
  ASSERT_TRUE(prefs.ChannelsEnabled.Set({{"x", true}}));
  ASSERT_TRUE(prefs.WebFeedSeqNo.Set(7));
  ASSERT_TRUE(prefs.logFileLib.Set("/l"));
  ASSERT_TRUE(prefs.NotificationMessage.Set({{"k", "v"}}));
  const std::string text = ReadFile(PrefsPath());
  EXPECT_NE(text.find("<WebFeedSeqNo>7</WebFeedSeqNo>"), std::string::npos);
  EXPECT_NE(text.find("<logFileLib>/l</logFileLib>"), std::string::npos);
  EXPECT_NE(text.find("<ChannelsEnabled>"), std::string::npos);
  EXPECT_NE(text.find("<NotificationMessage>"), std::string::npos);
}

TEST_F(UpdaterPrefsTest, LogLevelFromAFileWithoutThatElementIsTwo) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  WriteFile(PrefsPath(), "<Preferences><AutoCheck>0</AutoCheck></Preferences>");
  NuvexUpdaterPrefs prefs(false);
  int level = 0;
  ASSERT_TRUE(prefs.LogLevel.Get(level));
  EXPECT_EQ(level, 2);
  bool auto_check = true;
  ASSERT_TRUE(prefs.AutoCheck.Get(auto_check));
  EXPECT_FALSE(auto_check);
}

TEST_F(UpdaterPrefsTest, TheFileIsGuardedByTheResourceLock) {
  NuvexUpdaterPrefs prefs(false);
  ASSERT_NE(prefs.lockPolicy(), nullptr);
  esd::ResourceLocker other(PrefsPath(), 0);
  ASSERT_TRUE(other.Lock());
  EXPECT_FALSE(prefs.LogLevel.Set(3));
  ASSERT_TRUE(other.Unlock(false));
  EXPECT_TRUE(prefs.LogLevel.Set(3));
}

TEST_F(UpdaterPrefsTest, WithoutAnyPreferencesFolderTheyLiveInMemoryOnly) {
  WriteFile(sandbox_.Path("blocker"), "");
  oru_testing::ScopedEnv data_home("XDG_DATA_HOME", sandbox_.Path("blocker/a"));
  const int status = RunWithPrivateVarTmp([] {
    // A file where kind 2's updater folder would go.
    WriteFile("/var/tmp/Nuvex", "");
    NuvexUpdaterPrefs prefs(false);
    int level = 0;
    const bool ok = prefs.prefsPath().empty() && prefs.lockPolicy() == nullptr &&
                    prefs.LogFile.defaultValue.empty() &&
                    prefs.UserCacheTillOruUPdater.defaultValue.empty() &&
                    prefs.LogLevel.Get(level) && level == 2 && !prefs.LogLevel.Set(3);
    return ok ? 0 : 1;
  });
  if (status == kNoPrivateMounts) {
    GTEST_SKIP() << "this machine does not allow a private mount namespace";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(UpdaterPrefsTest, EnterpriseFlagChoosesTheOtherFileAndTheFirstCallDecides) {
  const int status = RunInChild([&] {
    NuvexUpdaterPrefs& first = GetUpdaterPrefs(true);
    NuvexUpdaterPrefs& second = GetUpdaterPrefs(false);
    const bool same = &first == &second;
    const bool enterprise = first.prefsPath() == PrefsFolder() + "/NuvexUpdaterOrueePrefs.dat";
    return same && enterprise ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(UpdaterPrefsTest, NormalFlagUsesNuvexUpdaterPrefsDat) {
  const int status =
      RunInChild([&] { return GetUpdaterPrefs(false).prefsPath() == PrefsPath() ? 0 : 1; });
  EXPECT_EQ(status, 0);
}

TEST_F(UpdaterPrefsTest, MissingInventoryFolderIsLogged) {
  oru_testing::ScopedEnv local("XDG_DATA_DIRS", sandbox_.Path("no-such-folder"));
  NuvexUpdaterPrefs prefs(false);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0].first, 2);
  EXPECT_EQ(logged[0].second, "Could not get Updater Inventory path on machine ");
}

TEST_F(UpdaterPrefsTest, StampEqualToTheStoredValueLeavesThePreferencesFileAlone) {
  {
    NuvexUpdaterPrefs prefs(false);
    ASSERT_TRUE(prefs.uninstallts.Set("1700000000"));
    ASSERT_TRUE(prefs.AutoCheck.Set(false));
  }
  WriteStamp("1700000000\n");
  logged.clear();
  NuvexUpdaterPrefs prefs(false);
  bool auto_check = true;
  ASSERT_TRUE(prefs.AutoCheck.Get(auto_check));
  EXPECT_FALSE(auto_check);
  EXPECT_TRUE(logged.empty());
}

TEST_F(UpdaterPrefsTest, StampThatDiffersDiscardsTheFileAndStartsFromDefaults) {
  {
    NuvexUpdaterPrefs prefs(false);
    ASSERT_TRUE(prefs.uninstallts.Set("1700000000"));
    ASSERT_TRUE(prefs.AutoCheck.Set(false));
  }
  WriteStamp("1800000000 trailing words");
  NuvexUpdaterPrefs prefs(false);
  EXPECT_FALSE(platform::PathExists(PrefsPath()));
  bool auto_check = false;
  ASSERT_TRUE(prefs.AutoCheck.Get(auto_check));
  EXPECT_TRUE(auto_check);
  std::string stamp = "x";
  ASSERT_TRUE(prefs.uninstallts.Get(stamp));
  EXPECT_EQ(stamp, "");
  // The new file works and is guarded as before.
  ASSERT_TRUE(prefs.LogLevel.Set(4));
  EXPECT_NE(ReadFile(PrefsPath()).find("<LogLevel>4</LogLevel>"), std::string::npos);
}

TEST_F(UpdaterPrefsTest, CorruptFileNeverHurtsConstruction) {
  ASSERT_TRUE(platform::CreateDirectoryTree(PrefsFolder()));
  WriteFile(PrefsPath(), "<Preferences><AutoCheck>0</Au");
  NuvexUpdaterPrefs prefs(false);
  bool auto_check = false;
  ASSERT_TRUE(prefs.AutoCheck.Get(auto_check));
  EXPECT_TRUE(auto_check);
}

} // namespace
