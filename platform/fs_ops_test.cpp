#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {
namespace {

using oru_testing::RunInChild;
using oru_testing::Sandbox;
using oru_testing::SetImmutable;
using oru_testing::WriteFile;

constexpr uid_t kOtherUid = 65534;
constexpr uid_t kThirdUid = 65533;

struct stat StatOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
  return info;
}

class FsOpsTest : public ::testing::Test {
protected:
  void SetUp() override {
    // Can this file system keep the immutable attribute at all?
    const std::string probe = sandbox_.Path("probe");
    WriteFile(probe, "");
    immutable_supported_ = SetImmutable(probe, true);
    SetImmutable(probe, false);
  }

  void RequireImmutable() {
    if (!immutable_supported_) {
      GTEST_SKIP() << "this file system (or this user) cannot set the immutable attribute";
    }
  }

  void RequireRoot() {
    if (geteuid() != 0) {
      GTEST_SKIP() << "needs root to act as other users and to chown";
    }
  }

  // A folder anybody may write in, for tests that run as another user.
  std::string SharedFolder() {
    const std::string folder = sandbox_.Path("shared");
    EXPECT_EQ(mkdir(folder.c_str(), 0777), 0);
    EXPECT_EQ(chmod(folder.c_str(), 0777), 0);
    EXPECT_EQ(chmod(sandbox_.root().c_str(), 0755), 0);
    return folder;
  }

  Sandbox sandbox_;
  bool immutable_supported_ = false;
};

TEST_F(FsOpsTest, PathToFSRefResolvesExistingItemsOnly) {
  FileRef ref;
  EXPECT_TRUE(PathToFSRef(sandbox_.root(), ref));
  EXPECT_TRUE(IsPathFSRefable(sandbox_.root()));
  EXPECT_FALSE(IsPathFSRefable(sandbox_.Path("missing")));
  EXPECT_FALSE(IsPathFSRefable(""));
}

TEST_F(FsOpsTest, PathToFSRefFollowsAFinalLink) {
  WriteFile(sandbox_.Path("target"), "");
  ASSERT_EQ(symlink("target", sandbox_.Path("link").c_str()), 0);
  ASSERT_EQ(symlink("missing", sandbox_.Path("dangling").c_str()), 0);
  FileRef ref;
  ASSERT_TRUE(PathToFSRef(sandbox_.Path("link"), ref));
  EXPECT_EQ(BaseName(ref.path), "target");
  EXPECT_FALSE(IsPathFSRefable(sandbox_.Path("dangling")));
}

TEST_F(FsOpsTest, DeletePathOnAMissingPathReturnsTrue) {
  EXPECT_TRUE(DeletePath(sandbox_.Path("missing")));
  EXPECT_TRUE(DeletePath(sandbox_.Path("missing/below")));
}

TEST_F(FsOpsTest, DeletePathRemovesADanglingLinkAndReportsSuccess) {
  const std::string link = sandbox_.Path("dangling");
  ASSERT_EQ(symlink(sandbox_.Path("missing").c_str(), link.c_str()), 0);
  EXPECT_TRUE(DeletePath(link));
  struct stat info;
  EXPECT_NE(lstat(link.c_str(), &info), 0);
}

TEST_F(FsOpsTest, DeletePathRemovesALinkAndNeverItsTarget) {
  WriteFile(sandbox_.Path("target"), "kept");
  ASSERT_EQ(symlink(sandbox_.Path("target").c_str(), sandbox_.Path("link").c_str()), 0);
  EXPECT_TRUE(DeletePath(sandbox_.Path("link")));
  EXPECT_EQ(oru_testing::ReadFile(sandbox_.Path("target")), "kept");
}

TEST_F(FsOpsTest, DeletePathRemovesAFile) {
  WriteFile(sandbox_.Path("file"), "x");
  EXPECT_TRUE(DeletePath(sandbox_.Path("file")));
  EXPECT_FALSE(PathExists(sandbox_.Path("file")));
}

TEST_F(FsOpsTest, DeletePathRemovesAWholeTree) {
  ASSERT_TRUE(CreateDirectoryTree(sandbox_.Path("tree/a/b")));
  ASSERT_TRUE(CreateDirectoryTree(sandbox_.Path("tree/c")));
  WriteFile(sandbox_.Path("tree/a/b/f1"), "1");
  WriteFile(sandbox_.Path("tree/c/f2"), "2");
  WriteFile(sandbox_.Path("tree/f3"), "3");
  EXPECT_TRUE(DeletePath(sandbox_.Path("tree")));
  EXPECT_FALSE(PathExists(sandbox_.Path("tree")));
}

TEST_F(FsOpsTest, DeletePathOnALinkToAFolderRemovesOnlyTheLink) {
  ASSERT_TRUE(CreateDirectoryTree(sandbox_.Path("kept")));
  WriteFile(sandbox_.Path("kept/file"), "x");
  ASSERT_EQ(symlink("kept", sandbox_.Path("link").c_str()), 0);
  EXPECT_TRUE(DeletePath(sandbox_.Path("link")));
  EXPECT_TRUE(IsFile(sandbox_.Path("kept/file")));
  struct stat info;
  EXPECT_NE(lstat(sandbox_.Path("link").c_str(), &info), 0);
}

TEST_F(FsOpsTest, DeletePathDoesNotFollowLinksInsideATree) {
  ASSERT_TRUE(CreateDirectoryTree(sandbox_.Path("outside")));
  WriteFile(sandbox_.Path("outside/file"), "x");
  ASSERT_TRUE(CreateDirectoryTree(sandbox_.Path("tree")));
  ASSERT_EQ(symlink(sandbox_.Path("outside").c_str(), sandbox_.Path("tree/link").c_str()), 0);
  EXPECT_TRUE(DeletePath(sandbox_.Path("tree")));
  EXPECT_TRUE(IsFile(sandbox_.Path("outside/file")));
}

TEST_F(FsOpsTest, DeletePathHandlesATreeDeeperThanAnyStackWouldLike) {
  std::string deep = sandbox_.Path("deep");
  for (int level = 0; level < 1500; ++level) {
    deep += "/d";
  }
  ASSERT_TRUE(CreateDirectoryTree(deep));
  WriteFile(deep + "/leaf", "x");
  EXPECT_TRUE(DeletePath(sandbox_.Path("deep")));
  EXPECT_FALSE(PathExists(sandbox_.Path("deep")));
}

TEST_F(FsOpsTest, DeletePathOnAFileWithoutOwnerWriteBitFailsForTheOwner) {
  RequireRoot();
  const std::string folder = SharedFolder();
  const std::string file = folder + "/readonly";
  WriteFile(file, "x");
  ASSERT_EQ(chown(file.c_str(), kOtherUid, kOtherUid), 0);
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  const int status = RunInChild([&] {
    if (setegid(kOtherUid) != 0 || seteuid(kOtherUid) != 0) {
      return 3;
    }
    return DeletePath(file) ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(IsFile(file));
}

TEST_F(FsOpsTest, DeletePathOnAFileWithoutOwnerWriteBitSucceedsForRoot) {
  RequireRoot();
  const std::string file = sandbox_.Path("readonly");
  WriteFile(file, "x");
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  EXPECT_TRUE(DeletePath(file));
  EXPECT_FALSE(PathExists(file));
}

TEST_F(FsOpsTest, DeletePathOnAGroupFileWithoutGroupWriteBitFails) {
  RequireRoot();
  const std::string folder = SharedFolder();
  const std::string file = folder + "/group-readonly";
  WriteFile(file, "x");
  ASSERT_EQ(chown(file.c_str(), kOtherUid, kThirdUid), 0);
  ASSERT_EQ(chmod(file.c_str(), 0644), 0);
  const int status = RunInChild([&] {
    if (setegid(kThirdUid) != 0 || seteuid(kThirdUid) != 0) {
      return 3;
    }
    return DeletePath(file) ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(IsFile(file));
}

TEST_F(FsOpsTest, DeletePathLooksOnlyAtTheFilesOwnModeForStrangers) {
  RequireRoot();
  const std::string folder = SharedFolder();
  const std::string file = folder + "/strangers";
  WriteFile(file, "x");
  ASSERT_EQ(chown(file.c_str(), kOtherUid, kOtherUid), 0);
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  // Neither owner nor group: the file's mode is not consulted, and the
  // writable folder lets the file go.
  const int status = RunInChild([&] {
    if (setegid(kThirdUid) != 0 || seteuid(kThirdUid) != 0) {
      return 3;
    }
    return DeletePath(file) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(PathExists(file));
}

TEST_F(FsOpsTest, DeletePathFailsWhenThePathCannotBeLookedAt) {
  RequireRoot();
  const std::string folder = sandbox_.Path("closed");
  ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
  WriteFile(folder + "/file", "x");
  ASSERT_EQ(chmod(sandbox_.root().c_str(), 0755), 0);
  const int status = RunInChild([&] {
    if (seteuid(kOtherUid) != 0) {
      return 3;
    }
    return DeletePath(folder + "/file") ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(IsFile(folder + "/file"));
}

TEST_F(FsOpsTest, DeletePathOnATreeWithALockedFileUnlocksAndDeletesIt) {
  RequireImmutable();
  ASSERT_TRUE(CreateDirectoryTree(sandbox_.Path("tree/sub")));
  WriteFile(sandbox_.Path("tree/sub/locked"), "x");
  ASSERT_TRUE(SetImmutable(sandbox_.Path("tree/sub/locked"), true));
  EXPECT_TRUE(DeletePath(sandbox_.Path("tree")));
  EXPECT_FALSE(PathExists(sandbox_.Path("tree")));
}

TEST_F(FsOpsTest, DeletePathOnLockedFoldersUnlocksThemFirst) {
  RequireImmutable();
  ASSERT_TRUE(CreateDirectoryTree(sandbox_.Path("tree/sub")));
  WriteFile(sandbox_.Path("tree/sub/file"), "x");
  ASSERT_TRUE(SetImmutable(sandbox_.Path("tree/sub"), true));
  ASSERT_TRUE(SetImmutable(sandbox_.Path("tree"), true));
  EXPECT_TRUE(DeletePath(sandbox_.Path("tree")));
  EXPECT_FALSE(PathExists(sandbox_.Path("tree")));
}

TEST_F(FsOpsTest, DeletePathOnALockedTopLevelFileFailsWithNothingRemoved) {
  RequireImmutable();
  const std::string file = sandbox_.Path("locked");
  WriteFile(file, "kept");
  ASSERT_TRUE(SetImmutable(file, true));
  FileRef ref;
  ASSERT_TRUE(PathToFSRef(file, ref));
  EXPECT_EQ(CheckWritable(ref), kFileLockedErr);
  EXPECT_FALSE(DeletePath(file));
  EXPECT_EQ(oru_testing::ReadFile(file), "kept");
}

TEST_F(FsOpsTest, CheckWritableOnAnOrdinaryFileIsNoErr) {
  WriteFile(sandbox_.Path("file"), "");
  FileRef ref;
  ASSERT_TRUE(PathToFSRef(sandbox_.Path("file"), ref));
  EXPECT_EQ(CheckWritable(ref), kNoErr);
}

TEST_F(FsOpsTest, CheckWritableOnAReadOnlyMountIsAVolumeLock) {
  RequireRoot();
  const std::string mount_point = sandbox_.Path("volume");
  ASSERT_EQ(mkdir(mount_point.c_str(), 0755), 0);
  // A private mount namespace in a child keeps the mount away from
  // everything else on the machine.
  const int status = RunInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", mount_point.c_str(), "tmpfs", 0, "size=1m") != 0) {
      return 3;
    }
    WriteFile(mount_point + "/file", "x");
    if (mount(nullptr, mount_point.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
      return 4;
    }
    FileRef ref;
    if (!PathToFSRef(mount_point + "/file", ref)) {
      return 5;
    }
    if (CheckWritable(ref) != kVolumeLockedErr) {
      return 1;
    }
    return DeletePath(mount_point + "/file") ? 2 : 0;
  });
  if (status == 3) {
    GTEST_SKIP() << "this machine does not allow a private mount namespace";
  }
  EXPECT_EQ(status, 0);
}

TEST_F(FsOpsTest, DeleteFolderTreeOnAFileIsNotAFolder) {
  WriteFile(sandbox_.Path("file"), "");
  FileRef ref;
  ASSERT_TRUE(PathToFSRef(sandbox_.Path("file"), ref));
  EXPECT_EQ(DeleteFolderTree(ref), kDirNotFoundErr);
  EXPECT_TRUE(IsFile(sandbox_.Path("file")));
}

TEST_F(FsOpsTest, MakeDirectoryPathOnAnExistingFolderReturnsTrue) {
  EXPECT_TRUE(MakeDirectoryPath(sandbox_.root()));
}

TEST_F(FsOpsTest, MakeDirectoryPathOnTheRootReturnsFalse) {
  EXPECT_FALSE(MakeDirectoryPath("/"));
}

TEST_F(FsOpsTest, MakeDirectoryPathOnANameWithoutSlashFails) {
  EXPECT_FALSE(MakeDirectoryPath("relative-name"));
  EXPECT_FALSE(MakeDirectoryPath(""));
}

TEST_F(FsOpsTest, MakeDirectoryPathCreatesEveryMissingLevel) {
  ASSERT_TRUE(MakeDirectoryPath(sandbox_.Path("a/b/c")));
  EXPECT_TRUE(IsDirectory(sandbox_.Path("a/b/c")));
}

TEST_F(FsOpsTest, MakeDirectoryPathFailsWhereAFileIsInTheWay) {
  WriteFile(sandbox_.Path("file"), "");
  EXPECT_FALSE(MakeDirectoryPath(sandbox_.Path("file/below")));
  EXPECT_FALSE(MakeDirectoryPath(sandbox_.Path("file")));
}

TEST_F(FsOpsTest, MakeDirectoryPathRefusesANameThatIsNotUtf8) {
  EXPECT_FALSE(MakeDirectoryPath(sandbox_.Path("bad\xFF")));
}

TEST_F(FsOpsTest, MakeDirectoryPathWithATrailingSlashHasAnEmptyLeafAndFails) {
  EXPECT_FALSE(MakeDirectoryPath(sandbox_.Path("x/")));
}

TEST_F(FsOpsTest, MakeDirectoryPathTreesInheritTheParentsModeOwnerAndGroup) {
  RequireRoot();
  const std::string parent = sandbox_.Path("parent");
  ASSERT_EQ(mkdir(parent.c_str(), 0700), 0);
  ASSERT_EQ(chown(parent.c_str(), 12345, 23456), 0);
  ASSERT_EQ(chmod(parent.c_str(), 02751), 0);
  ASSERT_TRUE(MakeDirectoryPath(parent + "/child/grandchild"));
  for (const std::string& made : {parent + "/child", parent + "/child/grandchild"}) {
    const struct stat info = StatOf(made);
    EXPECT_EQ(info.st_mode & 07777, 02751u) << made;
    EXPECT_EQ(info.st_uid, 12345u) << made;
    EXPECT_EQ(info.st_gid, 23456u) << made;
  }
}

TEST_F(FsOpsTest, MakeDirectoryPathLeavesAnExistingFoldersPermissionsAlone) {
  ASSERT_EQ(mkdir(sandbox_.Path("existing").c_str(), 0700), 0);
  ASSERT_EQ(chmod(sandbox_.root().c_str(), 0755), 0);
  EXPECT_TRUE(MakeDirectoryPath(sandbox_.Path("existing")));
  EXPECT_EQ(StatOf(sandbox_.Path("existing")).st_mode & 07777, 0700u);
}

TEST_F(FsOpsTest, SetDefaultPermissionsGivesFolders0775AndFiles0664) {
  ASSERT_EQ(mkdir(sandbox_.Path("folder").c_str(), 0700), 0);
  WriteFile(sandbox_.Path("file"), "");
  ASSERT_TRUE(SetDefaultPermissions(sandbox_.Path("folder")));
  ASSERT_TRUE(SetDefaultPermissions(sandbox_.Path("file")));
  EXPECT_EQ(StatOf(sandbox_.Path("folder")).st_mode & 07777, 0775u);
  EXPECT_EQ(StatOf(sandbox_.Path("file")).st_mode & 07777, 0664u);
}

TEST_F(FsOpsTest, SetDefaultPermissionsOnAMissingPathReturnsFalse) {
  EXPECT_FALSE(SetDefaultPermissions(sandbox_.Path("missing")));
}

TEST_F(FsOpsTest, AddPermissionBitsOrsIntoTheMode) {
  const std::string file = sandbox_.Path("file");
  WriteFile(file, "");
  ASSERT_EQ(chmod(file.c_str(), 0600), 0);
  ASSERT_TRUE(AddPermissionBits(file, 0044));
  EXPECT_EQ(StatOf(file).st_mode & 07777, 0644u);
  ASSERT_TRUE(AddPermissionBits(file, 0600));
  EXPECT_EQ(StatOf(file).st_mode & 07777, 0644u);
  EXPECT_FALSE(AddPermissionBits(sandbox_.Path("missing"), 0777));
}

TEST_F(FsOpsTest, GetPermissionBitsReportsTypeAndPermissionBits) {
  const std::string file = sandbox_.Path("file");
  WriteFile(file, "");
  ASSERT_EQ(chmod(file.c_str(), 0640), 0);
  uint16_t mode = 0;
  ASSERT_TRUE(GetPermissionBits(file, mode));
  EXPECT_EQ(mode, S_IFREG | 0640);
  ASSERT_TRUE(GetPermissionBits(sandbox_.root(), mode));
  EXPECT_TRUE(S_ISDIR(mode));
  uint16_t untouched = 7;
  EXPECT_FALSE(GetPermissionBits(sandbox_.Path("missing"), untouched));
  EXPECT_EQ(untouched, 7u);
}

TEST_F(FsOpsTest, GetModificationDateGrowsWithALaterModification) {
  const std::string file = sandbox_.Path("file");
  WriteFile(file, "");
  const struct timespec earlier[2] = {{0, UTIME_OMIT}, {1700000000, 100}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), earlier, 0), 0);
  uint64_t first = 0;
  ASSERT_TRUE(GetModificationDate(file, first));
  const struct timespec later[2] = {{0, UTIME_OMIT}, {1700000000, 101}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), later, 0), 0);
  uint64_t second = 0;
  ASSERT_TRUE(GetModificationDate(file, second));
  EXPECT_GT(second, first);
}

TEST_F(FsOpsTest, SetModificationDateIsReadBackExactly) {
  const std::string file = sandbox_.Path("file");
  WriteFile(file, "");
  const uint64_t date = 1700000000123456789ull;
  ASSERT_TRUE(SetModificationDate(file, date));
  uint64_t read = 0;
  ASSERT_TRUE(GetModificationDate(file, read));
  EXPECT_EQ(read, date);
  EXPECT_FALSE(SetModificationDate(sandbox_.Path("missing"), date));
}

TEST_F(FsOpsTest, CopyFileContentsCopiesEveryByteAndTruncatesTheTarget) {
  std::string bytes;
  for (int i = 0; i < 3 * 1048576 + 17; ++i) {
    bytes += static_cast<char>(i * 7);
  }
  WriteFile(sandbox_.Path("from"), bytes);
  WriteFile(sandbox_.Path("to"), std::string(5 * 1048576, 'x'));
  ASSERT_TRUE(CopyFileContents(sandbox_.Path("from"), sandbox_.Path("to")));
  EXPECT_EQ(oru_testing::ReadFile(sandbox_.Path("to")), bytes);
  EXPECT_FALSE(CopyFileContents(sandbox_.Path("missing"), sandbox_.Path("x")));
  WriteFile(sandbox_.Path("empty"), "");
  ASSERT_TRUE(CopyFileContents(sandbox_.Path("empty"), sandbox_.Path("to")));
  EXPECT_EQ(oru_testing::ReadFile(sandbox_.Path("to")), "");
}

TEST_F(FsOpsTest, CopyFileContentsFailsWhenTheTargetCannotBeMade) {
  WriteFile(sandbox_.Path("from"), "x");
  EXPECT_FALSE(CopyFileContents(sandbox_.Path("from"), sandbox_.Path("no-folder/to")));
}

TEST_F(FsOpsTest, GetModificationDateOfALinkIsThatOfWhatItNames) {
  const std::string file = sandbox_.Path("file");
  WriteFile(file, "");
  ASSERT_TRUE(SetModificationDate(file, 1700000000000000007ull));
  ASSERT_EQ(symlink(file.c_str(), sandbox_.Path("link").c_str()), 0);
  uint64_t date = 0;
  ASSERT_TRUE(GetModificationDate(sandbox_.Path("link"), date));
  EXPECT_EQ(date, 1700000000000000007ull);
  ASSERT_EQ(symlink(sandbox_.Path("nothing").c_str(), sandbox_.Path("dangling").c_str()), 0);
  EXPECT_FALSE(GetModificationDate(sandbox_.Path("dangling"), date));
}

TEST_F(FsOpsTest, GetModificationDateOfAMissingFileFailsAndLeavesTheOutput) {
  uint64_t date = 42;
  EXPECT_FALSE(GetModificationDate(sandbox_.Path("missing"), date));
  EXPECT_EQ(date, 42u);
}

} // namespace
} // namespace platform
