#include "esd/esd_streams.h"
#include "platform/paths.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace {

using oru_testing::ReadFile;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

TEST(EsdStreamsTest, BothWrappersArePolymorphicAndNotCopyable) {
  EXPECT_TRUE(std::has_virtual_destructor_v<ESDifstream>);
  EXPECT_TRUE(std::has_virtual_destructor_v<ESDofstream>);
  EXPECT_FALSE(std::is_copy_constructible_v<ESDifstream>);
  EXPECT_FALSE(std::is_copy_assignable_v<ESDofstream>);
}

TEST(EsdStreamsTest, InputStreamOpensAtTheEndWithBinaryAndAtEnd) {
  Sandbox sandbox;
  WriteFile(sandbox.Path("in"), "12345");
  ESDifstream file(sandbox.Path("in"), "rb", std::ios::binary | std::ios::ate);
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(file.stream()->tellg(), 5);
}

TEST(EsdStreamsTest, TheOwnedStreamIsHandedOutByPointerAndIsTheSameEachTime) {
  Sandbox sandbox;
  WriteFile(sandbox.Path("in"), "abc");
  ESDifstream file(sandbox.Path("in"), "rb", std::ios::binary);
  std::ifstream* stream = file.stream();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(file.stream(), stream);
  std::string text;
  *stream >> text;
  EXPECT_EQ(text, "abc");
}

// The mode text is not used: "wb" on an input stream neither creates nor
// empties anything, and nonsense text opens as "rb" does.
TEST(EsdStreamsTest, TheModeTextIsAcceptedAndNotUsed) {
  Sandbox sandbox;
  WriteFile(sandbox.Path("in"), "kept");
  {
    ESDifstream file(sandbox.Path("in"), "wb", std::ios::binary);
    EXPECT_TRUE(file.is_open());
    ESDifstream other(sandbox.Path("in"), "not a mode", std::ios::binary);
    EXPECT_TRUE(other.is_open());
    ESDifstream missing(sandbox.Path("missing"), "wb", std::ios::binary);
    EXPECT_FALSE(missing.is_open());
  }
  EXPECT_EQ(ReadFile(sandbox.Path("in")), "kept");
  EXPECT_FALSE(platform::PathExists(sandbox.Path("missing")));
  ESDofstream out(sandbox.Path("out"), "rb", std::ios::binary);
  EXPECT_TRUE(out.is_open());
  EXPECT_TRUE(platform::PathExists(sandbox.Path("out")));
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

TEST(EsdStreamsTest, CloseClosesTheInnerStreamAndWritesEverything) {
  Sandbox sandbox;
  ESDofstream out(sandbox.Path("out"), "wb", std::ios::binary);
  *out.stream() << "line\n";
  out.close();
  EXPECT_FALSE(out.is_open());
  EXPECT_FALSE(out.stream()->is_open());
  EXPECT_EQ(ReadFile(sandbox.Path("out")), "line\n");
  ESDifstream in(sandbox.Path("out"), "rb", std::ios::binary);
  in.close();
  EXPECT_FALSE(in.is_open());
}

// The destructor deletes the stream, which flushes what is buffered.
TEST(EsdStreamsTest, DestroyingThroughTheWrapperFlushesWithoutAClose) {
  Sandbox sandbox;
  {
    auto file = std::make_unique<ESDofstream>(sandbox.Path("out"), "wb", std::ios::binary);
    *file->stream() << "buffered";
    EXPECT_EQ(ReadFile(sandbox.Path("out")), "");
  }
  EXPECT_EQ(ReadFile(sandbox.Path("out")), "buffered");
}

} // namespace
