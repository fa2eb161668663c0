#include "platform/os_info.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace platform {
namespace {

TEST(OsInfoTest, I386MachineIs32Bit) {
  EXPECT_EQ(BitnessForMachine("i386"), 32u);
}

TEST(OsInfoTest, X86_64MachineIs64Bit) {
  EXPECT_EQ(BitnessForMachine("x86_64"), 64u);
}

TEST(OsInfoTest, UnknownMachineSuchAsI686IsAlso64Bit) {
  EXPECT_EQ(BitnessForMachine("i686"), 64u);
  EXPECT_EQ(BitnessForMachine("I386"), 64u);
  EXPECT_EQ(BitnessForMachine(""), 64u);
}

TEST(OsInfoTest, MachineBitnessFollowsUname) {
  struct utsname name;
  ASSERT_EQ(uname(&name), 0);
  uint32_t bits = 0;
  ASSERT_TRUE(GetMachineBitness(bits));
  EXPECT_EQ(bits, BitnessForMachine(name.machine));
}

TEST(OsInfoTest, ReleaseVersionReadsMajorMinorPatch) {
  OSVersion version;
  ASSERT_TRUE(ParseReleaseVersion("6.1.0-18-amd64", version));
  EXPECT_EQ(version.major, 6);
  EXPECT_EQ(version.minor, 1);
  EXPECT_EQ(version.patch, 0);
  ASSERT_TRUE(ParseReleaseVersion("5.15.153.1-microsoft-standard-WSL2", version));
  EXPECT_EQ(version.major, 5);
  EXPECT_EQ(version.minor, 15);
  EXPECT_EQ(version.patch, 153);
}

TEST(OsInfoTest, ReleaseVersionWithMissingPartsGivesZeros) {
  OSVersion version{9, 9, 9};
  ASSERT_TRUE(ParseReleaseVersion("6.8", version));
  EXPECT_EQ(version.major, 6);
  EXPECT_EQ(version.minor, 8);
  EXPECT_EQ(version.patch, 0);
  ASSERT_TRUE(ParseReleaseVersion("7-rc1", version));
  EXPECT_EQ(version.major, 7);
  EXPECT_EQ(version.minor, 0);
  EXPECT_EQ(version.patch, 0);
}

TEST(OsInfoTest, UnreadableVersionLeavesTheOutputUnchanged) {
  for (const char* release : {"", "linux", "-1.2.3", "99999999999999999999999.1.1"}) {
    OSVersion version{1, 2, 3};
    EXPECT_FALSE(ParseReleaseVersion(release, version)) << release;
    EXPECT_EQ(version.major, 1);
    EXPECT_EQ(version.minor, 2);
    EXPECT_EQ(version.patch, 3);
  }
}

TEST(OsInfoTest, OSVersionIsTheKernelRelease) {
  struct utsname name;
  ASSERT_EQ(uname(&name), 0);
  OSVersion expected;
  ASSERT_TRUE(ParseReleaseVersion(name.release, expected));
  OSVersion version{-1, -1, -1};
  GetOSVersion(version);
  EXPECT_EQ(version.major, expected.major);
  EXPECT_EQ(version.minor, expected.minor);
  EXPECT_EQ(version.patch, expected.patch);
}

TEST(OsInfoTest, FormatOSNameOf10_9_0IsMacOS10_9_0) {
  std::string text;
  FormatOSNameAs("Mac OS", OSVersion{10, 9, 0}, text);
  EXPECT_EQ(text, "Mac OS 10.9.0");
}

TEST(OsInfoTest, FormatOSNameUsesThisSystemsName) {
  std::string text = "old";
  ASSERT_TRUE(FormatOSName(OSVersion{10, 9, 0}, text));
  EXPECT_EQ(text, std::string(kOSDisplayName) + " 10.9.0");
  EXPECT_STREQ(kOSDisplayName, "Linux");
}

TEST(OsInfoTest, FormatVersionTripleJoinsWithDots) {
  std::string text;
  ASSERT_TRUE(FormatVersionTriple(OSVersion{10, 15, 7}, text));
  EXPECT_EQ(text, "10.15.7");
  ASSERT_TRUE(FormatVersionTriple(OSVersion{-1, 0, 9223372036854775807}, text));
  EXPECT_EQ(text, "-1.0.9223372036854775807");
}

TEST(OsInfoTest, ThreadIdsAreHiddenOnlyOnMacOS105AndOlder) {
  EXPECT_FALSE(ThreadIdsShownOnMacVersion(true, OSVersion{10, 5, 8}));
  EXPECT_FALSE(ThreadIdsShownOnMacVersion(true, OSVersion{10, 4, 0}));
  EXPECT_TRUE(ThreadIdsShownOnMacVersion(true, OSVersion{10, 6, 0}));
  EXPECT_TRUE(ThreadIdsShownOnMacVersion(true, OSVersion{10, 15, 7}));
  EXPECT_TRUE(ThreadIdsShownOnMacVersion(true, OSVersion{11, 0, 0}));
  EXPECT_TRUE(ThreadIdsShownOnMacVersion(false, OSVersion{10, 5, 0}));
}

TEST(OsInfoTest, LinuxAlwaysShowsThreadIds) {
  EXPECT_TRUE(ThreadIdsShown());
}

TEST(OsInfoTest, ThreadIdIsTheKernelsIdOfTheCallingThread) {
  EXPECT_EQ(GetCurrentThreadId(), static_cast<uint64_t>(getpid()));
  uint64_t other = 0;
  std::thread([&other] { other = GetCurrentThreadId(); }).join();
  EXPECT_NE(other, 0u);
  EXPECT_NE(other, GetCurrentThreadId());
}

} // namespace
} // namespace platform
