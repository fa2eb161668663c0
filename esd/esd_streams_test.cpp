#include "esd/esd_streams.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>

namespace {

using oru_testing::ReadFile;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

TEST(EsdStreamsTest, InputStreamOpensWithTheOpenModeAndIgnoresTheModeText) {
  Sandbox sandbox;
  WriteFile(sandbox.Path("in"), "12345");
  ESDifstream file(sandbox.Path("in"), "this text is not used", std::ios::binary | std::ios::ate);
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(file.stream()->tellg(), 5);
  file.close();
  EXPECT_FALSE(file.is_open());
}

TEST(EsdStreamsTest, InputStreamOnAMissingFileIsNotOpen) {
  Sandbox sandbox;
  ESDifstream file(sandbox.Path("missing"), "rb", std::ios::binary);
  EXPECT_FALSE(file.is_open());
}

TEST(EsdStreamsTest, BinaryOutputStreamTruncates) {
  Sandbox sandbox;
  WriteFile(sandbox.Path("out"), "old and longer");
  {
    ESDofstream file(sandbox.Path("out"), "wb", std::ios::binary);
    ASSERT_TRUE(file.is_open());
    *file.stream() << "new";
  }
  EXPECT_EQ(ReadFile(sandbox.Path("out")), "new");
}

TEST(EsdStreamsTest, OutputStreamCloseWritesEverything) {
  Sandbox sandbox;
  ESDofstream file(sandbox.Path("out"), "wb", std::ios::binary);
  *file.stream() << "line\n";
  file.close();
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(ReadFile(sandbox.Path("out")), "line\n");
}

} // namespace
