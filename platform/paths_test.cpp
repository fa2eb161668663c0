#include "platform/paths.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace platform {
namespace {

using oru_testing::Sandbox;
using oru_testing::WriteFile;

const std::string kNotUtf8 = "/tmp/\xC3\x28";

TEST(JoinPathTest, BaseEndingInSlashAndComponentStartingWithSlashGiveOneSlash) {
  EXPECT_EQ(JoinPath("/a/", "/b"), "/a/b");
}

TEST(JoinPathTest, PlainBaseAndComponentAreJoinedWithOneSlash) {
  EXPECT_EQ(JoinPath("/a", "b"), "/a/b");
}

TEST(JoinPathTest, RemovesOnlyOneLeadingSlashOfTheComponent) {
  EXPECT_EQ(JoinPath("/a", "//b"), "/a//b");
  EXPECT_EQ(JoinPath("/a/", "//b"), "/a//b");
}

TEST(JoinPathTest, EmptyBaseGivesAnAbsoluteComponent) {
  EXPECT_EQ(JoinPath("", "b"), "/b");
}

TEST(JoinPathTest, EmptyComponentLeavesATrailingSlash) {
  EXPECT_EQ(JoinPath("/a", ""), "/a/");
}

TEST(AppendPathComponentTest, SkipsAllLeadingSlashesOfTheComponent) {
  std::string base = "/a";
  AppendPathComponent(base, "///b");
  EXPECT_EQ(base, "/a/b");
}

TEST(AppendPathComponentTest, DoesNotDoubleTheBasesTrailingSlash) {
  std::string base = "/a/";
  AppendPathComponent(base, "b");
  EXPECT_EQ(base, "/a/b");
}

TEST(AppendPathComponentTest, EmptyComponentLeavesTheBaseUnchanged) {
  std::string base = "/a";
  AppendPathComponent(base, "");
  EXPECT_EQ(base, "/a");
}

TEST(AppendPathComponentTest, EmptyBaseStaysEmpty) {
  std::string base;
  AppendPathComponent(base, "b");
  EXPECT_EQ(base, "");
}

TEST(AppendPathComponentTest, ComponentOfOnlySlashesAddsOneSlash) {
  std::string base = "/a";
  AppendPathComponent(base, "///");
  EXPECT_EQ(base, "/a/");
}

TEST(DirNameTest, SingleNameUnderTheRootGivesTheRoot) {
  EXPECT_EQ(DirName("/x"), "/");
}

TEST(DirNameTest, NameWithoutSlashGivesTheEmptyString) {
  EXPECT_EQ(DirName("x"), "");
}

TEST(DirNameTest, GivesTheTextBeforeTheLastSlash) {
  EXPECT_EQ(DirName("/a/b/c"), "/a/b");
  EXPECT_EQ(DirName("/a/b/"), "/a/b");
  EXPECT_EQ(DirName("/"), "/");
}

TEST(BaseNameTest, PathEndingInSlashGivesTheEmptyString) {
  EXPECT_EQ(BaseName("/a/"), "");
}

TEST(BaseNameTest, GivesTheTextAfterTheLastSlashOrTheWholePath) {
  EXPECT_EQ(BaseName("/a/b"), "b");
  EXPECT_EQ(BaseName("b"), "b");
  EXPECT_EQ(BaseName(""), "");
}

TEST(GetPathExtensionTest, DotInAFolderNameCounts) {
  std::string ext;
  ASSERT_TRUE(GetPathExtension("/a.b/c", ext));
  EXPECT_EQ(ext, "b/c");
}

TEST(GetPathExtensionTest, GivesTheTextAfterTheLastDot) {
  std::string ext;
  ASSERT_TRUE(GetPathExtension("/tmp/file.tar.gz", ext));
  EXPECT_EQ(ext, "gz");
  ASSERT_TRUE(GetPathExtension("/tmp/file.", ext));
  EXPECT_EQ(ext, "");
}

TEST(GetPathExtensionTest, PathWithoutDotLeavesTheOutputUntouched) {
  std::string ext = "kept";
  EXPECT_FALSE(GetPathExtension("/tmp/file", ext));
  EXPECT_EQ(ext, "kept");
}

TEST(ReplacePathExtensionTest, ReplacesTheLastExtension) {
  std::string path = "/tmp/scratch.old.tiff";
  ASSERT_TRUE(ReplacePathExtension(path, "log"));
  EXPECT_EQ(path, "/tmp/scratch.old.log");
}

TEST(ReplacePathExtensionTest, RootHasNoRoomForAnExtensionAndFails) {
  std::string path = "/";
  EXPECT_FALSE(ReplacePathExtension(path, "log"));
  EXPECT_EQ(path, "/");
}

TEST(AppendPathComponentNSTest, FollowsTheFoundationRules) {
  std::string path = "/tmp/";
  ASSERT_TRUE(AppendPathComponentNS(path, "scratch.tiff"));
  EXPECT_EQ(path, "/tmp/scratch.tiff");
  path = "";
  ASSERT_TRUE(AppendPathComponentNS(path, "scratch.tiff"));
  EXPECT_EQ(path, "scratch.tiff");
}

TEST(DeleteLastPathComponentTest, FollowsTheFoundationRules) {
  std::string path = "/tmp/lock/";
  ASSERT_TRUE(DeleteLastPathComponent(path));
  EXPECT_EQ(path, "/tmp");
  path = "scratch.tiff";
  ASSERT_TRUE(DeleteLastPathComponent(path));
  EXPECT_EQ(path, "");
}

TEST(AppendPathExtensionTest, FollowsTheFoundationRules) {
  std::string path = "/tmp/";
  ASSERT_TRUE(AppendPathExtension(path, "tiff"));
  EXPECT_EQ(path, "/tmp.tiff");
}

TEST(AppendPathExtensionTest, ExtensionWithSlashIsAppendedAndNotLost) {
  std::string path = "/tmp/scratch";
  ASSERT_TRUE(AppendPathExtension(path, "a/b"));
  EXPECT_EQ(path, "/tmp/scratch.a/b");
}

TEST(DeletePathExtensionTest, FollowsTheFoundationRules) {
  std::string path = "scratch.bundle/";
  ASSERT_TRUE(DeletePathExtension(path));
  EXPECT_EQ(path, "scratch");
}

TEST(IsBareNameTest, NameWithoutFolderPartIsBare) {
  EXPECT_TRUE(IsBareName("scratch.tiff"));
  EXPECT_FALSE(IsBareName("/tmp/scratch.tiff"));
  EXPECT_FALSE(IsBareName("scratch/"));
}

TEST(IsBareNameTest, RootIsItsOwnLastComponent) {
  EXPECT_TRUE(IsBareName("/"));
}

TEST(FoundationWrappersTest, TextThatIsNotUtf8FailsAndIsLeftUntouched) {
  std::string path = kNotUtf8;
  EXPECT_FALSE(ReplacePathExtension(path, "x"));
  EXPECT_FALSE(AppendPathComponentNS(path, "x"));
  EXPECT_FALSE(DeleteLastPathComponent(path));
  EXPECT_FALSE(AppendPathExtension(path, "x"));
  EXPECT_FALSE(DeletePathExtension(path));
  EXPECT_FALSE(IsBareName("\xFF"));
  EXPECT_EQ(path, kNotUtf8);
  std::string good = "/tmp/a";
  EXPECT_FALSE(AppendPathComponentNS(good, "\xFF"));
  EXPECT_EQ(good, "/tmp/a");
}

class FileQueryTest : public ::testing::Test {
protected:
  Sandbox sandbox_;
};

TEST_F(FileQueryTest, FileAndFolderAreTellApart) {
  const std::string file = sandbox_.Path("file");
  WriteFile(file, "12345");
  EXPECT_TRUE(PathExists(file));
  EXPECT_TRUE(IsFile(file));
  EXPECT_FALSE(IsDirectory(file));
  EXPECT_TRUE(PathExists(sandbox_.root()));
  EXPECT_TRUE(IsDirectory(sandbox_.root()));
  EXPECT_FALSE(IsFile(sandbox_.root()));
}

TEST_F(FileQueryTest, MissingPathIsNeitherFileNorFolder) {
  const std::string missing = sandbox_.Path("missing");
  EXPECT_FALSE(PathExists(missing));
  EXPECT_FALSE(IsFile(missing));
  EXPECT_FALSE(IsDirectory(missing));
  EXPECT_FALSE(PathExists(""));
}

TEST_F(FileQueryTest, SymbolicLinksAreFollowed) {
  ASSERT_EQ(symlink(sandbox_.root().c_str(), sandbox_.Path("to-root").c_str()), 0);
  EXPECT_TRUE(IsDirectory(sandbox_.Path("to-root")));
  ASSERT_EQ(symlink("missing", sandbox_.Path("dangling").c_str()), 0);
  EXPECT_FALSE(PathExists(sandbox_.Path("dangling")));
}

TEST_F(FileQueryTest, FileSizeIsTheByteCount) {
  const std::string file = sandbox_.Path("file");
  WriteFile(file, "12345");
  uint64_t size = 0;
  ASSERT_TRUE(GetFileSize(file, size));
  EXPECT_EQ(size, 5u);
}

TEST_F(FileQueryTest, FileSizeOfALinkIsTheLinksOwn) {
  WriteFile(sandbox_.Path("file"), std::string(1000, 'x'));
  ASSERT_EQ(symlink("file", sandbox_.Path("link").c_str()), 0);
  uint64_t size = 0;
  ASSERT_TRUE(GetFileSize(sandbox_.Path("link"), size));
  EXPECT_EQ(size, 4u); // the length of the text "file"
}

TEST_F(FileQueryTest, FileSizeOfAMissingFileFailsAndLeavesTheOutput) {
  uint64_t size = 77;
  EXPECT_FALSE(GetFileSize(sandbox_.Path("missing"), size));
  EXPECT_EQ(size, 77u);
}

TEST_F(FileQueryTest, CreateDirectoryTreeMakesEveryMissingLevel) {
  const std::string deep = sandbox_.Path("a/b/c");
  ASSERT_TRUE(CreateDirectoryTree(deep));
  EXPECT_TRUE(IsDirectory(deep));
  EXPECT_TRUE(CreateDirectoryTree(deep));
  EXPECT_TRUE(CreateDirectoryTree(deep + "/"));
}

TEST_F(FileQueryTest, CreateDirectoryTreeFailsWhereAFileIsInTheWay) {
  WriteFile(sandbox_.Path("file"), "");
  EXPECT_FALSE(CreateDirectoryTree(sandbox_.Path("file")));
  EXPECT_FALSE(CreateDirectoryTree(sandbox_.Path("file/below")));
  EXPECT_FALSE(CreateDirectoryTree(""));
}

} // namespace
} // namespace platform
