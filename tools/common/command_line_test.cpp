#include "tools/common/command_line.h"

#include <gtest/gtest.h>

namespace oru_tools {
namespace {

CommandLine LogLike() {
  return CommandLine({{"json", false}, {"level", true}, {"since", true}, {"file", true}});
}

TEST(CommandLineTest, ValuesComeSpacedOrAfterAnEqualsSign) {
  CommandLine line = LogLike();
  ASSERT_TRUE(line.Parse({"--level=WARN", "--file", "a b.log", "--json"})) << line.error();
  EXPECT_EQ(line.Value("level"), "WARN");
  EXPECT_EQ(line.Value("file"), "a b.log");
  EXPECT_TRUE(line.Has("json"));
  EXPECT_FALSE(line.Has("since"));
}

TEST(CommandLineTest, WordsStayInOrderAroundOptions) {
  CommandLine line = LogLike();
  ASSERT_TRUE(line.Parse({"set", "--json", "Key", "value"})) << line.error();
  EXPECT_EQ(line.words(), (std::vector<std::string>{"set", "Key", "value"}));
}

TEST(CommandLineTest, ANegativeNumberIsAWordOrAValueNeverAnOption) {
  CommandLine line = LogLike();
  ASSERT_TRUE(line.Parse({"set", "LogLevel", "-1", "--since", "-2h"})) << line.error();
  EXPECT_EQ(line.words(), (std::vector<std::string>{"set", "LogLevel", "-1"}));
  EXPECT_EQ(line.Value("since"), "-2h");
}

TEST(CommandLineTest, ShortNamesAreTheSameOptionsJoinedOrSpaced) {
  CommandLine line({{"lines", true, 'n'}, {"follow", false, 'f'}, {"json", false}});
  ASSERT_TRUE(line.Parse({"-n", "10", "-f"})) << line.error();
  EXPECT_EQ(line.Value("lines"), "10");
  EXPECT_TRUE(line.Has("follow"));
  ASSERT_TRUE(line.Parse({"-n5", "--json"})) << line.error();
  EXPECT_EQ(line.Value("lines"), "5");
  EXPECT_FALSE(line.Has("follow"));
  ASSERT_TRUE(line.Parse({"--lines=7"})) << line.error();
  EXPECT_EQ(line.Value("lines"), "7");
  EXPECT_FALSE(line.Parse({"-n"}));
  EXPECT_EQ(line.error(), "option '-n' needs a value");
  EXPECT_FALSE(line.Parse({"-x"}));
  EXPECT_EQ(line.error().rfind("unknown option '-x'", 0), 0u) << line.error();
}

TEST(CommandLineTest, DoubleDashEndsTheOptions) {
  CommandLine line = LogLike();
  ASSERT_TRUE(line.Parse({"write", "--", "--json", "-x"})) << line.error();
  EXPECT_FALSE(line.Has("json"));
  EXPECT_EQ(line.words(), (std::vector<std::string>{"write", "--json", "-x"}));
}

TEST(CommandLineTest, ShortAndLongHelp) {
  CommandLine line = LogLike();
  ASSERT_TRUE(line.Parse({"-h"}));
  EXPECT_TRUE(line.Has("help"));
  ASSERT_TRUE(line.Parse({"--help"}));
  EXPECT_TRUE(line.Has("help"));
}

TEST(CommandLineTest, AMisspeltOptionNamesTheOneMeant) {
  CommandLine line = LogLike();
  EXPECT_FALSE(line.Parse({"--levle", "WARN"}));
  EXPECT_EQ(line.error(), "unknown option '--levle' (did you mean '--level'?)");
  EXPECT_FALSE(line.Parse({"--colour"}));
  EXPECT_EQ(line.error(), "unknown option '--colour'");
  EXPECT_FALSE(line.Parse({"-x"}));
  EXPECT_EQ(line.error(), "unknown option '-x'");
}

TEST(CommandLineTest, AMissingValueIsSaid) {
  CommandLine line = LogLike();
  EXPECT_FALSE(line.Parse({"--level"}));
  EXPECT_EQ(line.error(), "option '--level' needs a value");
}

TEST(CommandLineTest, DidYouMeanOnlyForASlip) {
  EXPECT_EQ(DidYouMean("stauts", {"status", "explain"}), " (did you mean 'status'?)");
  EXPECT_EQ(DidYouMean("frobnicate", {"status", "explain"}), "");
  EXPECT_EQ(DidYouMean("status", {"status"}), "");
}

TEST(CommandLineTest, TheVersionIsTheProjects) {
  EXPECT_STREQ(ProjectVersion(), ORU_PROJECT_VERSION);
  EXPECT_NE(std::string(ProjectVersion()), "");
}

} // namespace
} // namespace oru_tools
