#include "platform/console_user.h"
#include "platform/folders.h"
#include "platform/folders_internal.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/namespaces.h"
#include "testing/run_as_user.h"
#include "testing/sandbox.h"

#include <functional>
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {
namespace {

using oru_testing::Sandbox;
using oru_testing::ScopedEnv;
using oru_testing::WriteFile;

std::string OwnExecutable() {
  char buffer[4096];
  const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
  return length > 0 ? std::string(buffer, static_cast<size_t>(length)) : std::string();
}

mode_t ModeOf(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0;
}

// The console user's home when it is someone else, else this process's.
std::string ExpectedConsoleHome(const Sandbox& sandbox) {
  ConsoleUser user;
  if (GetConsoleUser(user) && user.uid != geteuid()) {
    return user.home;
  }
  return sandbox.home();
}

class FoldersTest : public ::testing::Test {
protected:
  // Points a variable below a regular file, where no folder can be made.
  void BreakVariable(const char* name) {
    WriteFile(sandbox_.Path("blocker"), "");
    broken_.emplace_back(std::make_unique<ScopedEnv>(name, sandbox_.Path("blocker/below")));
  }

  Sandbox sandbox_;
  std::vector<std::unique_ptr<ScopedEnv>> broken_;
};

struct SystemKindRow {
  int kind;
  std::function<std::string(const Sandbox&)> expected;
};

class FindSystemFolderKindTest : public ::testing::TestWithParam<SystemKindRow> {
protected:
  Sandbox sandbox_;
};

TEST_P(FindSystemFolderKindTest, ResolvesToItsFolder) {
  const std::string expected = GetParam().expected(sandbox_);
  std::string out = "untouched";
  // Folders inside the sandbox are made on request; fixed system folders
  // are only looked up, and are found exactly when they exist.
  const bool in_sandbox = expected.rfind(sandbox_.root(), 0) == 0;
  const bool found =
      FindSystemFolder(static_cast<SystemFolderKind>(GetParam().kind), out, /*create=*/in_sandbox);
  if (in_sandbox || IsDirectory(expected)) {
    ASSERT_TRUE(found);
    EXPECT_EQ(out, expected);
    EXPECT_TRUE(IsDirectory(out));
  } else {
    EXPECT_FALSE(found);
    EXPECT_EQ(out, "untouched");
  }
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, FindSystemFolderKindTest,
    ::testing::Values(SystemKindRow{0, [](const Sandbox& s) { return s.data_home() + "/fonts"; }},
                      SystemKindRow{1, [](const Sandbox& s) { return s.tmp(); }},
                      SystemKindRow{2, [](const Sandbox&) { return std::string("/var/tmp"); }},
                      SystemKindRow{3, [](const Sandbox& s) { return s.home() + "/Desktop"; }},
                      SystemKindRow{4, [](const Sandbox& s) { return s.home() + "/Documents"; }},
                      SystemKindRow{5, [](const Sandbox& s) { return s.cache_home(); }},
                      SystemKindRow{6, [](const Sandbox& s) { return s.config_home(); }},
                      SystemKindRow{7, [](const Sandbox& s) { return s.data_home(); }},
                      SystemKindRow{8, [](const Sandbox& s) { return s.local_data(); }},
                      SystemKindRow{9, [](const Sandbox& s) { return s.local_data(); }},
                      SystemKindRow{
                          10, [](const Sandbox&) { return std::string("/usr/local/share/fonts"); }},
                      SystemKindRow{11, [](const Sandbox&) { return std::string("/usr"); }},
                      SystemKindRow{12, [](const Sandbox&) { return std::string("/usr"); }},
                      SystemKindRow{13, [](const Sandbox& s) { return s.local_data(); }},
                      SystemKindRow{14, [](const Sandbox&) { return std::string("/"); }}),
    [](const ::testing::TestParamInfo<SystemKindRow>& info) {
      return "Kind" + std::to_string(info.param.kind);
    });

TEST_F(FoldersTest, SystemFolderKind14IsTheRootWithoutAnyLookup) {
  ScopedEnv no_home("HOME");
  std::string out;
  ASSERT_TRUE(FindSystemFolder(static_cast<SystemFolderKind>(14), out, false));
  EXPECT_EQ(out, "/");
}

TEST_F(FoldersTest, SystemFolderKind15AndAboveFailAndLeaveTheOutput) {
  for (int kind : {15, 16, 32, 1000, -1}) {
    std::string out = "untouched";
    EXPECT_FALSE(FindSystemFolder(static_cast<SystemFolderKind>(kind), out, true)) << kind;
    EXPECT_EQ(out, "untouched");
  }
}

TEST_F(FoldersTest, WithoutCreateAMissingFolderIsNotFound) {
  std::string out = "untouched";
  EXPECT_FALSE(FindSystemFolder(static_cast<SystemFolderKind>(7), out, false));
  EXPECT_EQ(out, "untouched");
  EXPECT_FALSE(IsDirectory(sandbox_.data_home()));
}

TEST_F(FoldersTest, ThePathOfAMissingFolderIsWhereItWouldBeMadeAndNothingIsMade) {
  std::string looked_up;
  ASSERT_TRUE(SystemFolderPathOf(SystemFolderKind::kUserSupport, looked_up));
  EXPECT_FALSE(IsDirectory(sandbox_.data_home()));
  std::string made;
  ASSERT_TRUE(FindSystemFolder(SystemFolderKind::kUserSupport, made, true));
  EXPECT_EQ(looked_up, made);
}

TEST_F(FoldersTest, ThePathOfKind14IsTheRootAndUnknownKindsFail) {
  std::string out = "untouched";
  EXPECT_FALSE(SystemFolderPathOf(static_cast<SystemFolderKind>(15), out));
  EXPECT_EQ(out, "untouched");
  ASSERT_TRUE(SystemFolderPathOf(SystemFolderKind::kRoot, out));
  EXPECT_EQ(out, "/");
}

TEST_F(FoldersTest, CreateMakesMissingUserFoldersPrivate) {
  std::string out;
  ASSERT_TRUE(FindSystemFolder(static_cast<SystemFolderKind>(7), out, true));
  EXPECT_EQ(ModeOf(sandbox_.home() + "/.local") & 0777, 0700u);
  EXPECT_EQ(ModeOf(out) & 0777, 0700u);
}

TEST_F(FoldersTest, FolderThatCannotBeMadeIsNotFound) {
  BreakVariable("XDG_CACHE_HOME");
  std::string out = "untouched";
  EXPECT_FALSE(FindSystemFolder(static_cast<SystemFolderKind>(5), out, true));
  EXPECT_EQ(out, "untouched");
}

TEST_F(FoldersTest, OverlongFolderPathIsNotFound) {
  const std::string deep = sandbox_.root() + "/" + std::string(1100, 'd');
  ScopedEnv long_cache("XDG_CACHE_HOME", deep);
  std::string out = "untouched";
  EXPECT_FALSE(FindSystemFolder(static_cast<SystemFolderKind>(5), out, true));
  EXPECT_EQ(out, "untouched");
}

struct StandardKindRow {
  int kind;
  std::function<std::string(const Sandbox&)> expected;
};

class GetStandardPathKindTest : public ::testing::TestWithParam<StandardKindRow> {
protected:
  Sandbox sandbox_;
};

TEST_P(GetStandardPathKindTest, ResolvesAndReportsSuccess) {
  std::string out;
  ASSERT_TRUE(GetStandardPath(static_cast<StandardPathKind>(GetParam().kind), out));
  EXPECT_EQ(out, GetParam().expected(sandbox_));
}

std::string Exe(const Sandbox&) {
  return OwnExecutable();
}
std::string ExeFolder(const Sandbox&) {
  return DirName(OwnExecutable());
}
std::string ConsoleSupport(const Sandbox& s) {
  ConsoleUser user;
  if (GetConsoleUser(user) && user.uid != geteuid()) {
    return user.home + "/.local/share";
  }
  return s.data_home();
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, GetStandardPathKindTest,
    ::testing::Values(
        StandardKindRow{0, [](const Sandbox&) { return std::string("/opt"); }},
        StandardKindRow{2, [](const Sandbox& s) { return s.local_data(); }},
        StandardKindRow{3, [](const Sandbox& s) { return s.local_data(); }},
        StandardKindRow{9, [](const Sandbox& s) { return s.home(); }},
        StandardKindRow{10, [](const Sandbox& s) { return ExpectedConsoleHome(s) + "/Documents"; }},
        StandardKindRow{12, ConsoleSupport},
        StandardKindRow{13, [](const Sandbox&) { return std::string("/var/lib"); }},
        StandardKindRow{15, [](const Sandbox&) { return std::string("/tmp"); }},
        StandardKindRow{16, Exe}, StandardKindRow{17, ExeFolder},
        StandardKindRow{18, [](const Sandbox& s) { return s.local_data() + "/Nuvex"; }},
        StandardKindRow{19, [](const Sandbox& s) { return ConsoleSupport(s) + "/Nuvex"; }},
        StandardKindRow{20, [](const Sandbox&) { return std::string("/var/lib/Nuvex"); }},
        StandardKindRow{21, [](const Sandbox& s) { return s.local_data() + "/Nuvex/OOBE"; }},
        StandardKindRow{22, [](const Sandbox& s) { return ConsoleSupport(s) + "/Nuvex/OOBE"; }},
        StandardKindRow{23, [](const Sandbox&) { return std::string("/var/lib/Nuvex/OOBE"); }},
        StandardKindRow{
            24, [](const Sandbox&) { return std::string("/opt/Nuvex Application Manager/"); }},
        StandardKindRow{25, [](const Sandbox& s) { return s.local_data() + "/Nuvex/OOBE/Zelto"; }},
        StandardKindRow{26,
                        [](const Sandbox& s) { return ConsoleSupport(s) + "/Nuvex/OOBE/Zelto"; }},
        StandardKindRow{27,
                        [](const Sandbox& s) {
                          return s.local_data() + "/Nuvex/NuvexApplicationManager/OruRefs";
                        }},
        StandardKindRow{28, [](const Sandbox& s) { return s.local_data() + "/Nuvex/NdcRefs"; }},
        StandardKindRow{
            29, [](const Sandbox& s) { return s.local_data() + "/Nuvex/Nuvex Desktop Common"; }},
        StandardKindRow{30, [](const Sandbox&) { return std::string("/opt/Nuvex Vornica/"); }},
        StandardKindRow{31, [](const Sandbox& s) { return s.local_config(); }},
        StandardKindRow{32,
                        [](const Sandbox& s) {
                          ConsoleUser user;
                          if (GetConsoleUser(user) && user.uid != geteuid()) {
                            return user.home + "/.local/state";
                          }
                          return s.state_home();
                        }}),
    [](const ::testing::TestParamInfo<StandardKindRow>& info) {
      return "Kind" + std::to_string(info.param.kind);
    });

TEST_F(FoldersTest, StandardPathKindsWithoutMeaningFailAndLeaveTheOutput) {
  for (int kind : {1, 4, 5, 6, 7, 8, 11, 14, 33, 34, 1000, -1}) {
    std::string out = "untouched";
    EXPECT_FALSE(GetStandardPath(static_cast<StandardPathKind>(kind), out)) << kind;
    EXPECT_EQ(out, "untouched") << kind;
  }
}

TEST_F(FoldersTest, StandardPathKind1ReturnsFalse) {
  std::string out;
  EXPECT_FALSE(GetStandardPath(static_cast<StandardPathKind>(1), out));
}

TEST_F(FoldersTest, StandardPathKind33ReturnsFalse) {
  std::string out;
  EXPECT_FALSE(GetStandardPath(static_cast<StandardPathKind>(33), out));
}

TEST_F(FoldersTest, SuffixKindsAppendToWhateverTheOutputHeldWhenTheLookupFails) {
  BreakVariable("XDG_DATA_DIRS");
  std::string out = "prefix";
  ASSERT_TRUE(GetStandardPath(static_cast<StandardPathKind>(18), out));
  EXPECT_EQ(out, "prefix/Nuvex");
  out.clear();
  ASSERT_TRUE(GetStandardPath(static_cast<StandardPathKind>(25), out));
  EXPECT_EQ(out, "/Nuvex/OOBE/Zelto");
}

TEST_F(FoldersTest, ConsoleSuffixKindsAppendEvenWhenTheUsersFolderCannotBeMade) {
  BreakVariable("XDG_DATA_HOME");
  // Another console user's folders do not depend on this process's
  // variables; this process's own lookup fails.
  ConsoleUser user;
  const bool other_console_user = GetConsoleUser(user) && user.uid != geteuid();
  const std::string expected =
      other_console_user ? user.home + "/.local/share/Nuvex" : std::string("prefix/Nuvex");
  std::string out = "prefix";
  ASSERT_TRUE(GetStandardPath(static_cast<StandardPathKind>(19), out));
  EXPECT_EQ(out, expected);
  out = "prefix";
  GetUserNuvexSupportFolder(out);
  EXPECT_EQ(out, expected);
}

TEST_F(FoldersTest, StandardPathsWithALookupResultFailWhenTheLookupFails) {
  BreakVariable("XDG_DATA_DIRS");
  std::string out = "untouched";
  EXPECT_FALSE(GetStandardPath(static_cast<StandardPathKind>(2), out));
  EXPECT_FALSE(GetStandardPath(static_cast<StandardPathKind>(3), out));
  EXPECT_EQ(out, "untouched");
}

TEST_F(FoldersTest, StandardPathKind17IsTheFolderOfKind16) {
  std::string bundle;
  std::string parent;
  ASSERT_TRUE(GetStandardPath(static_cast<StandardPathKind>(16), bundle));
  ASSERT_TRUE(GetStandardPath(static_cast<StandardPathKind>(17), parent));
  EXPECT_EQ(parent, DirName(bundle));
}

TEST_F(FoldersTest, LogsFolderKindMakesEveryMissingLevelPrivate) {
  std::string out;
  ASSERT_TRUE(GetStandardPath(static_cast<StandardPathKind>(32), out));
  EXPECT_TRUE(IsDirectory(out));
  EXPECT_EQ(ModeOf(sandbox_.home() + "/.local") & 0777, 0700u);
  EXPECT_EQ(ModeOf(out) & 0777, 0700u);
}

TEST_F(FoldersTest, LogsFolderKindFailsWhenTheFolderCannotBeMade) {
  BreakVariable("XDG_STATE_HOME");
  std::string out = "untouched";
  EXPECT_FALSE(GetStandardPath(static_cast<StandardPathKind>(32), out));
  EXPECT_EQ(out, "untouched");
}

TEST_F(FoldersTest, UserLogsFolderIsMadeWithMode0700) {
  std::string out;
  ASSERT_TRUE(GetUserLogsFolder(out));
  EXPECT_EQ(out, ExpectedConsoleHome(sandbox_) == sandbox_.home()
                     ? sandbox_.state_home()
                     : ExpectedConsoleHome(sandbox_) + "/.local/state");
  EXPECT_EQ(ModeOf(out) & 0777, 0700u);
  // An existing folder is fine too.
  EXPECT_TRUE(GetUserLogsFolder(out));
}

// Run as root for a console user who is someone else: the levels made
// under that user's home belong to that user, never to root. (The lookup
// itself hands the identity back before making them; each new level takes
// the owner of the folder it is made in.)
TEST(UserLogsFolderAsRootTest, LevelsMadeUnderTheConsoleUsersHomeBelongToThatUser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root: plays a console user other than the caller";
  }
  Sandbox sandbox;
  const std::string home = sandbox.Path("console-home");
  const uid_t user = oru_testing::kOtherUid;
  ASSERT_EQ(mkdir(home.c_str(), 0700), 0);
  ASSERT_EQ(chown(home.c_str(), user, user), 0);
  const int status = oru_testing::RunInChild([&] {
    if (!oru_testing::EnterPrivateIpcAndShm() ||
        !oru_testing::MountConsoleUser(sandbox.Path("scratch"), user, home)) {
      return 77;
    }
    std::string logs;
    if (!GetUserLogsFolder(logs) || logs != home + "/.local/state") {
      return 1;
    }
    for (const std::string& level : {home + "/.local", logs}) {
      struct stat info;
      if (stat(level.c_str(), &info) != 0 || info.st_uid != user || info.st_gid != user ||
          (info.st_mode & 0777) != 0700) {
        return 2;
      }
    }
    return 0;
  });
  if (status == 77) {
    GTEST_SKIP() << "needs a private mount namespace";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(FoldersTest, UserLogsFolderFailsWhenItCannotBeMade) {
  BreakVariable("XDG_STATE_HOME");
  std::string out = "untouched";
  EXPECT_FALSE(GetUserLogsFolder(out));
  EXPECT_EQ(out, "untouched");
}

TEST_F(FoldersTest, ConsoleUserHomeIsThisProcesssHomeWithoutAnotherConsoleUser) {
  std::string out;
  ASSERT_TRUE(GetConsoleUserHome(out));
  EXPECT_EQ(out, ExpectedConsoleHome(sandbox_));
}

TEST_F(FoldersTest, HomeFolderIsHome) {
  std::string out;
  ASSERT_TRUE(GetHomeFolder(out));
  EXPECT_EQ(out, sandbox_.home());
  EXPECT_EQ(HomeDirectory(), sandbox_.home());
}

TEST_F(FoldersTest, HomeFolderAtTheLookupLimitOrLongerLeavesTheOutputAlone) {
  // The lookup hands out at most 1024 bytes with the terminating NUL.
  const std::string fits = "/" + std::string(kMaxFolderPathBytes - 2, 'h');
  const std::string too_long = "/" + std::string(kMaxFolderPathBytes - 1, 'h');
  std::string out = "untouched";
  {
    const oru_testing::ScopedEnv home("HOME", too_long);
    EXPECT_TRUE(GetHomeFolder(out));
    EXPECT_EQ(out, "untouched");
  }
  const oru_testing::ScopedEnv home("HOME", fits);
  EXPECT_TRUE(GetHomeFolder(out));
  EXPECT_EQ(out, fits);
}

TEST(BundleFolderTest, BareExecutableGivesItsOwnPathNotItsFolder) {
  std::string out;
  ASSERT_TRUE(GetBundleFolder(out));
  EXPECT_EQ(out, OwnExecutable());
}

TEST(BundleFolderTest, BundleOfAnAppExecutableIsTheAppFolder) {
  EXPECT_EQ(internal::BundlePathForExecutable("/x/Zelto.app/Contents/MacOS/Zelto"), "/x/Zelto.app");
  EXPECT_EQ(internal::BundlePathForExecutable("/x/bin/tool"), "/x/bin");
  EXPECT_EQ(internal::BundlePathForExecutable("/x/Contents/MacOS/tool"), "/x/Contents/MacOS");
}

TEST(BundleFolderTest, BundledExecutableGivesTheStandardisedBundlePath) {
  EXPECT_EQ(internal::SelectBundleFolder("/x/A.app/Contents/MacOS/A", "/x/./A.app/"), "/x/A.app");
}

TEST(BundleFolderTest, BareExecutableIsReturnedExactlyAsReported) {
  EXPECT_EQ(internal::SelectBundleFolder("/x//bin/./tool", "/x/bin"), "/x//bin/./tool");
}

class BundleVersionTest : public ::testing::Test {
protected:
  std::string MakeBundle(const std::string& plist) {
    const std::string bundle = sandbox_.Path("Vornica.app");
    EXPECT_TRUE(CreateDirectoryTree(bundle + "/Contents"));
    WriteFile(bundle + "/Contents/Info.plist", plist);
    return bundle;
  }

  static std::string XmlPlist(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           body + "\n</plist>\n";
  }

  Sandbox sandbox_;
};

TEST_F(BundleVersionTest, ReadsTheShortVersionAndLeavesThePlistPathInTheCallersString) {
  std::string bundle = MakeBundle(
      XmlPlist("<dict><key>CFBundleShortVersionString</key><string>4.2.1</string></dict>"));
  const std::string plist_path = bundle + "/Contents/Info.plist";
  std::string version;
  ASSERT_TRUE(GetBundleShortVersion(bundle, version));
  EXPECT_EQ(version, "4.2.1");
  EXPECT_EQ(bundle, plist_path);
}

TEST_F(BundleVersionTest, ReadsABinaryPropertyList) {
  plist_t dict = plist_new_dict();
  plist_dict_set_item(dict, "CFBundleShortVersionString", plist_new_string("7.0"));
  char* bytes = nullptr;
  uint32_t length = 0;
  plist_to_bin(dict, &bytes, &length);
  plist_free(dict);
  std::string bundle = MakeBundle(std::string(bytes, length));
  free(bytes);
  std::string version;
  ASSERT_TRUE(GetBundleShortVersion(bundle, version));
  EXPECT_EQ(version, "7.0");
}

TEST_F(BundleVersionTest, MissingPlistFails) {
  std::string bundle = sandbox_.Path("Nothing.app");
  std::string version = "untouched";
  EXPECT_FALSE(GetBundleShortVersion(bundle, version));
  EXPECT_EQ(version, "untouched");
}

TEST_F(BundleVersionTest, PlistThatIsNotADictionaryFails) {
  std::string bundle = MakeBundle(XmlPlist("<array><string>4.2.1</string></array>"));
  std::string version = "untouched";
  EXPECT_FALSE(GetBundleShortVersion(bundle, version));
  EXPECT_EQ(version, "untouched");
}

TEST_F(BundleVersionTest, PlistWithoutTheKeyFails) {
  std::string bundle =
      MakeBundle(XmlPlist("<dict><key>CFBundleVersion</key><string>9</string></dict>"));
  std::string version = "untouched";
  EXPECT_FALSE(GetBundleShortVersion(bundle, version));
  EXPECT_EQ(version, "untouched");
}

TEST_F(BundleVersionTest, VersionThatIsNotTextFails) {
  std::string bundle = MakeBundle(
      XmlPlist("<dict><key>CFBundleShortVersionString</key><integer>4</integer></dict>"));
  std::string version = "untouched";
  EXPECT_FALSE(GetBundleShortVersion(bundle, version));
  EXPECT_EQ(version, "untouched");
}

TEST_F(BundleVersionTest, GarbageFails) {
  std::string bundle = MakeBundle("\x01\x02not a property list");
  std::string version = "untouched";
  EXPECT_FALSE(GetBundleShortVersion(bundle, version));
  EXPECT_EQ(version, "untouched");
}

TEST(ScopedEffectiveUserTest, ActsAsTheUserAndRestoresTheSavedIdentity) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "switching to another user needs root";
  }
  const int status = oru_testing::RunInChild([] {
    {
      const ScopedEffectiveUser as_nobody(65534);
      if (!as_nobody.active() || geteuid() != 65534) {
        return 1;
      }
    }
    return geteuid() == 0 ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

TEST(ScopedEffectiveUserTest, SameUserNeedsNoSwitch) {
  const ScopedEffectiveUser same(geteuid());
  EXPECT_TRUE(same.active());
}

TEST(ScopedEffectiveUserTest, ForbiddenSwitchIsReportedAndChangesNothing) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root to become an unprivileged user first";
  }
  const int status = oru_testing::RunInChild([] {
    if (setresuid(65534, 65534, 65534) != 0) {
      return 3;
    }
    const ScopedEffectiveUser as_other(65533);
    return (!as_other.active() && geteuid() == 65534) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

} // namespace
} // namespace platform
