#include "platform/xdg_folders_linux.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

XdgEnvironment HomeOnly() {
  return XdgEnvironment::ForHome("/home/u");
}

XdgEnvironment AllSet() {
  XdgEnvironment env = HomeOnly();
  env.data_home = "/x/data";
  env.cache_home = "/x/cache";
  env.config_home = "/x/config";
  env.state_home = "/x/state";
  env.data_dirs = "/x/share1:/x/share2";
  env.config_dirs = "/x/xdg1:/x/xdg2";
  env.tmpdir = "/x/tmp";
  return env;
}

struct Row {
  FolderDomain domain;
  FolderType type;
  const char* with_defaults;  // only HOME=/home/u
  const char* with_variables; // every variable set (AllSet)
};

constexpr FolderDomain kUser = FolderDomain::kUser;
constexpr FolderDomain kLocal = FolderDomain::kLocal;

const Row kRows[] = {
    {kUser, kApplicationSupportFolderType, "/home/u/.local/share", "/x/data"},
    {kLocal, kApplicationSupportFolderType, "/usr/local/share", "/x/share1"},
    {kUser, kCachesFolderType, "/home/u/.cache", "/x/cache"},
    {kLocal, kCachesFolderType, "/var/cache", "/var/cache"},
    {kUser, kPreferencesFolderType, "/home/u/.config", "/x/config"},
    {kLocal, kPreferencesFolderType, "/etc/xdg", "/x/xdg1"},
    {kUser, kTemporaryFolderType, "/tmp", "/x/tmp"},
    {kLocal, kTemporaryFolderType, "/var/tmp", "/var/tmp"},
    {kUser, kDesktopFolderType, "/home/u/Desktop", "/home/u/Desktop"},
    {kUser, kDocumentsFolderType, "/home/u/Documents", "/home/u/Documents"},
    {kUser, kFontsFolderType, "/home/u/.local/share/fonts", "/x/data/fonts"},
    {kUser, kFlntFolderType, "/home/u/.local/share/fonts", "/x/data/fonts"},
    {kLocal, kFontsFolderType, "/usr/local/share/fonts", "/usr/local/share/fonts"},
    {kLocal, kFlntFolderType, "/usr/local/share/fonts", "/usr/local/share/fonts"},
    {kUser, kApplicationsFolderType, "/home/u/.local/bin", "/home/u/.local/bin"},
    {kLocal, kApplicationsFolderType, "/opt", "/opt"},
    {kLocal, kSystemFolderType, "/usr", "/usr"},
    {kLocal, kSharedUserDataFolderType, "/var/lib", "/var/lib"},
    {kUser, kDomainTopLevelFolderType, "/home/u", "/home/u"},
    {kLocal, kDomainTopLevelFolderType, "/", "/"},
    {kLocal, kUtilitiesFolderType, "/opt", "/opt"},
};

class XdgRowTest : public ::testing::TestWithParam<Row> {};

TEST_P(XdgRowTest, DefaultsUnderTheHomeFolder) {
  std::string out;
  ASSERT_TRUE(XdgFolderPath(GetParam().domain, GetParam().type, HomeOnly(), out));
  EXPECT_EQ(out, GetParam().with_defaults);
}

TEST_P(XdgRowTest, HonoursTheStandardVariables) {
  std::string out;
  ASSERT_TRUE(XdgFolderPath(GetParam().domain, GetParam().type, AllSet(), out));
  EXPECT_EQ(out, GetParam().with_variables);
}

std::string RowName(const ::testing::TestParamInfo<Row>& info) {
  const FolderType type = info.param.type;
  std::string name = info.param.domain == kUser ? "User_" : "Local_";
  for (int shift = 24; shift >= 0; shift -= 8) {
    const char c = static_cast<char>((type >> shift) & 0xFF);
    name += (c >= 'a' && c <= 'z') ? c : 'X';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(EveryFolder, XdgRowTest, ::testing::ValuesIn(kRows), RowName);

TEST(XdgFoldersTest, FoldersWithoutACounterpartInTheDomainFail) {
  const struct {
    FolderDomain domain;
    FolderType type;
  } missing[] = {{kLocal, kDesktopFolderType},
                 {kLocal, kDocumentsFolderType},
                 {kUser, kSystemFolderType},
                 {kUser, kSharedUserDataFolderType},
                 {kUser, kUtilitiesFolderType},
                 {kUser, MakeFolderType('x', 'x', 'x', 'x')},
                 {kLocal, MakeFolderType('x', 'x', 'x', 'x')}};
  for (const auto& folder : missing) {
    std::string out = "untouched";
    EXPECT_FALSE(XdgFolderPath(folder.domain, folder.type, AllSet(), out)) << folder.type;
    EXPECT_EQ(out, "untouched");
  }
}

TEST(XdgFoldersTest, RelativeVariablesAreIgnored) {
  XdgEnvironment env = HomeOnly();
  env.data_home = "relative/data";
  env.data_dirs = "relative:/x/share2";
  env.tmpdir = "tmp";
  std::string out;
  ASSERT_TRUE(XdgFolderPath(kUser, kApplicationSupportFolderType, env, out));
  EXPECT_EQ(out, "/home/u/.local/share");
  ASSERT_TRUE(XdgFolderPath(kLocal, kApplicationSupportFolderType, env, out));
  EXPECT_EQ(out, "/x/share2");
  ASSERT_TRUE(XdgFolderPath(kUser, kTemporaryFolderType, env, out));
  EXPECT_EQ(out, "/tmp");
}

TEST(XdgFoldersTest, TrailingSlashesAndEmptyListEntriesAreDropped) {
  XdgEnvironment env = HomeOnly();
  env.home = "/home/u/";
  env.data_dirs = "::/x/share//:/y";
  std::string out;
  ASSERT_TRUE(XdgFolderPath(kLocal, kApplicationSupportFolderType, env, out));
  EXPECT_EQ(out, "/x/share");
  ASSERT_TRUE(XdgFolderPath(kUser, kDesktopFolderType, env, out));
  EXPECT_EQ(out, "/home/u/Desktop");
}

TEST(XdgFoldersTest, WithoutAHomeFolderOnlyVariablesAndLocalFoldersResolve) {
  XdgEnvironment env;
  std::string out = "untouched";
  EXPECT_FALSE(XdgFolderPath(kUser, kApplicationSupportFolderType, env, out));
  EXPECT_FALSE(XdgFolderPath(kUser, kDomainTopLevelFolderType, env, out));
  EXPECT_FALSE(XdgUserLogsFolder(env, out));
  EXPECT_EQ(out, "untouched");
  env.data_home = "/x/data";
  ASSERT_TRUE(XdgFolderPath(kUser, kApplicationSupportFolderType, env, out));
  EXPECT_EQ(out, "/x/data");
  ASSERT_TRUE(XdgFolderPath(kLocal, kCachesFolderType, env, out));
  EXPECT_EQ(out, "/var/cache");
}

TEST(XdgFoldersTest, UserLogsFolderIsTheStateHome) {
  std::string out;
  ASSERT_TRUE(XdgUserLogsFolder(HomeOnly(), out));
  EXPECT_EQ(out, "/home/u/.local/state");
  ASSERT_TRUE(XdgUserLogsFolder(AllSet(), out));
  EXPECT_EQ(out, "/x/state");
}

TEST(XdgFoldersTest, FromProcessReadsTheVariables) {
  oru_testing::Sandbox sandbox;
  const XdgEnvironment env = XdgEnvironment::FromProcess();
  EXPECT_EQ(env.home, sandbox.home());
  EXPECT_EQ(env.data_home, sandbox.data_home());
  EXPECT_EQ(env.cache_home, sandbox.cache_home());
  EXPECT_EQ(env.config_home, sandbox.config_home());
  EXPECT_EQ(env.state_home, sandbox.state_home());
  EXPECT_EQ(env.data_dirs, sandbox.local_data());
  EXPECT_EQ(env.config_dirs, sandbox.local_config());
  EXPECT_EQ(env.tmpdir, sandbox.tmp());
}

TEST(XdgFoldersTest, FromProcessFallsBackToThePasswdHome) {
  oru_testing::ScopedEnv no_home("HOME");
  EXPECT_FALSE(XdgEnvironment::FromProcess().home.empty());
}

TEST(XdgFoldersTest, ForHomeIgnoresThisProcesssVariables) {
  oru_testing::Sandbox sandbox;
  const XdgEnvironment env = XdgEnvironment::ForHome("/home/other");
  std::string out;
  ASSERT_TRUE(XdgFolderPath(kUser, kApplicationSupportFolderType, env, out));
  EXPECT_EQ(out, "/home/other/.local/share");
}

} // namespace
} // namespace platform
