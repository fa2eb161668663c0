#include "platform/foundation_path_rules.h"

#include <gtest/gtest.h>

namespace platform {
namespace foundation {
namespace {

struct Case {
  const char* in;
  const char* out;
};

TEST(FoundationPathRulesTest, LastPathComponentTable) {
  for (const Case& c : {Case{"/tmp/scratch.tiff", "scratch.tiff"}, Case{"/tmp/scratch", "scratch"},
                        Case{"/tmp/", "tmp"}, Case{"scratch///", "scratch"}, Case{"/", "/"},
                        Case{"", ""}, Case{"//", "/"}}) {
    EXPECT_EQ(LastPathComponent(c.in), c.out) << c.in;
  }
}

TEST(FoundationPathRulesTest, DeletingLastPathComponentTable) {
  for (const Case& c :
       {Case{"/tmp/scratch.tiff", "/tmp"}, Case{"/tmp/lock/", "/tmp"}, Case{"/tmp/", "/"},
        Case{"/tmp", "/"}, Case{"/", "/"}, Case{"scratch.tiff", ""}, Case{"a//b//", "a"}}) {
    EXPECT_EQ(DeletingLastPathComponent(c.in), c.out) << c.in;
  }
}

TEST(FoundationPathRulesTest, AppendingPathComponentTable) {
  for (const Case& c : {Case{"/tmp", "/tmp/scratch.tiff"}, Case{"/tmp/", "/tmp/scratch.tiff"},
                        Case{"/", "/scratch.tiff"}, Case{"", "scratch.tiff"}}) {
    EXPECT_EQ(AppendingPathComponent(c.in, "scratch.tiff"), c.out) << c.in;
  }
  EXPECT_EQ(AppendingPathComponent("/tmp//", "//x//"), "/tmp/x");
  EXPECT_EQ(AppendingPathComponent("/tmp/", ""), "/tmp");
}

TEST(FoundationPathRulesTest, DeletingPathExtensionTable) {
  for (const Case& c : {Case{"/tmp/scratch.tiff", "/tmp/scratch"}, Case{"/tmp/", "/tmp"},
                        Case{"scratch.bundle/", "scratch"}, Case{"scratch..tiff", "scratch."},
                        Case{".tiff", ".tiff"}, Case{"/", "/"}, Case{"/a.b/c", "/a.b/c"},
                        Case{"///file/123.png.smb", "/file/123.png"}}) {
    EXPECT_EQ(DeletingPathExtension(c.in), c.out) << c.in;
  }
}

TEST(FoundationPathRulesTest, AppendingPathExtensionTable) {
  for (const Case& c : {Case{"/tmp/scratch.old", "/tmp/scratch.old.tiff"},
                        Case{"/tmp/scratch.", "/tmp/scratch..tiff"}, Case{"/tmp/", "/tmp.tiff"},
                        Case{"scratch", "scratch.tiff"}}) {
    std::string out;
    ASSERT_TRUE(AppendingPathExtension(c.in, "tiff", out)) << c.in;
    EXPECT_EQ(out, c.out) << c.in;
  }
}

TEST(FoundationPathRulesTest, AppendingPathExtensionGivesNoStringWhereThereIsNoName) {
  std::string out = "untouched";
  EXPECT_FALSE(AppendingPathExtension("", "tiff", out));
  EXPECT_FALSE(AppendingPathExtension("/", "tiff", out));
  EXPECT_FALSE(AppendingPathExtension("///", "tiff", out));
  EXPECT_EQ(out, "untouched");
}

TEST(FoundationPathRulesTest, AppendingAnExtensionThatHoldsASlashAppendsItAsDocumented) {
  std::string out;
  ASSERT_TRUE(AppendingPathExtension("/tmp/a", "x/y", out));
  EXPECT_EQ(out, "/tmp/a.x/y");
}

TEST(FoundationPathRulesTest, AppendingAnEmptyExtensionOnlyTidiesSlashes) {
  std::string out;
  ASSERT_TRUE(AppendingPathExtension("/tmp//a/", "", out));
  EXPECT_EQ(out, "/tmp/a");
}

TEST(FoundationPathRulesTest, StandardizingPathTable) {
  for (const Case& c :
       {Case{"/usr/bin/./grep", "/usr/bin/grep"}, Case{"/usr/include/objc/..", "/usr/include"},
        Case{"//a//b/", "/a/b"}, Case{"/..", "/"}, Case{"/a/../../b", "/b"},
        Case{"a/../b", "a/../b"}, Case{"/", "/"}}) {
    EXPECT_EQ(StandardizingPath(c.in), c.out) << c.in;
  }
}

bool FakeHomes(const std::string& user, std::string& home) {
  if (user.empty()) {
    home = "/home/me";
    return true;
  }
  if (user == "other") {
    home = "/home/other/";
    return true;
  }
  return false;
}

TEST(FoundationPathRulesTest, StandardizingPathExpandsALeadingTilde) {
  for (const Case& c : {Case{"~", "/home/me"}, Case{"~/", "/home/me"},
                        Case{"~/docs/../x", "/home/me/x"}, Case{"~other/docs", "/home/other/docs"},
                        Case{"~unknown/docs", "~unknown/docs"}, Case{"/a/~/b", "/a/~/b"}}) {
    EXPECT_EQ(StandardizingPath(c.in, &FakeHomes), c.out) << c.in;
  }
}

TEST(FoundationPathRulesTest, StandardizingPathKeepsALoneDotAndALeadingOne) {
  for (const Case& c : {Case{".", "."}, Case{"./a", "./a"}, Case{"a/./b", "a/b"},
                        Case{"/./a", "/a"}, Case{"a/.", "a"}}) {
    EXPECT_EQ(StandardizingPath(c.in, &FakeHomes), c.out) << c.in;
  }
}

TEST(FoundationPathRulesTest, CollapseSlashesKeepsTheRoot) {
  EXPECT_EQ(CollapseSlashes("///"), "/");
  EXPECT_EQ(CollapseSlashes("a///b//"), "a/b");
  EXPECT_EQ(CollapseSlashes(""), "");
}

} // namespace
} // namespace foundation
} // namespace platform
