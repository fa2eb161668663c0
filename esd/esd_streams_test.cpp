#include "esd/esd_streams.h"
#include "platform/paths.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>

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

// Other programs open these streams by the path and follow what is there;
// here a link at the name or a FIFO leaves the stream not open (at once, not
// blocked on the FIFO), and nothing a link names is touched.
TEST(EsdStreamsTest, ALinkOrAFifoAtTheNameLeavesTheStreamNotOpen) {
  Sandbox sandbox;
  WriteFile(sandbox.Path("target"), "kept");
  ASSERT_EQ(symlink(sandbox.Path("target").c_str(), sandbox.Path("link").c_str()), 0);
  ASSERT_EQ(mkfifo(sandbox.Path("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(ESDifstream(sandbox.Path("link"), "rb", std::ios::binary).is_open());
  EXPECT_FALSE(ESDofstream(sandbox.Path("link"), "wb", std::ios::binary).is_open());
  EXPECT_FALSE(ESDifstream(sandbox.Path("fifo"), "rb", std::ios::binary).is_open());
  EXPECT_FALSE(ESDofstream(sandbox.Path("fifo"), "wb", std::ios::binary).is_open());
  EXPECT_EQ(ReadFile(sandbox.Path("target")), "kept");
}

// A name relative to the working folder opens as the path did.
TEST(EsdStreamsTest, ARelativeNameIsTakenFromTheWorkingFolder) {
  Sandbox sandbox;
  WriteFile(sandbox.Path("in"), "relative");
  char before[4096];
  ASSERT_NE(getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(chdir(sandbox.root().c_str()), 0);
  ESDifstream file("in", "rb", std::ios::binary);
  std::string text;
  EXPECT_TRUE(file.is_open() && (*file.stream() >> text));
  EXPECT_EQ(text, "relative");
  ASSERT_EQ(chdir(before), 0);
}

} // namespace
