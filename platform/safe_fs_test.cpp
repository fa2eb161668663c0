#include "platform/safe_fs.h"
#include "testing/child_process.h"
#include "testing/sandbox.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace platform {
namespace {

using oru_testing::ReadFile;
using oru_testing::RunInChild;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

// A user of this machine without a password-database entry, and a group.
constexpr uid_t kUserUid = 4242;
constexpr gid_t kUserGid = 4343;

struct stat LstatOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
  return info;
}

OpenOptions ForWriting() {
  OpenOptions options;
  options.access = FileAccess::kWrite;
  options.create = true;
  return options;
}

class SafeFsTest : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_EQ(chmod(sandbox_.root().c_str(), 0755), 0); }

  void RequireRoot() {
    if (geteuid() != 0) {
      GTEST_SKIP() << "needs root: the rules for a privileged process";
    }
  }

  // A folder that belongs to the user, as a home does.
  std::string UserFolder() {
    const std::string folder = sandbox_.Path("user");
    EXPECT_EQ(mkdir(folder.c_str(), 0755), 0);
    EXPECT_EQ(chown(folder.c_str(), kUserUid, kUserGid), 0);
    return folder;
  }

  int MakeFoldersAsUser(const std::string& path) {
    return RunInChild([&] {
      return setgid(kUserGid) == 0 && setuid(kUserUid) == 0 && MakeFolders(path, 0755) ? 0 : 1;
    });
  }

  // A file only root may change, outside every user's folder.
  std::string RootFile() {
    const std::string file = sandbox_.Path("root-only");
    WriteFile(file, "root data");
    EXPECT_EQ(chmod(file.c_str(), 0600), 0);
    return file;
  }

  Sandbox sandbox_;
};

TEST_F(SafeFsTest, RelativePathIsRefused) {
  FolderHandle folder;
  EXPECT_FALSE(OpenFolder("relative/path", folder));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(OpenFolder("", folder));
}

TEST_F(SafeFsTest, FinalLinkIsNeverFollowedWhenAFileIsOpened) {
  const std::string target = RootFile();
  const std::string link = sandbox_.Path("link");
  ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  ScopedFd fd;
  EXPECT_FALSE(OpenFileAt(link, ForWriting(), fd));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(ReadFile(target), "root data");
}

// The unchecked look sees what the kernel's walk finds, links on the way
// included, but never what a link at the end names, and never opens it.
TEST_F(SafeFsTest, TheUncheckedLookPassesFolderLinksButNotAFinalOne) {
  const std::string real = sandbox_.Path("real");
  ASSERT_EQ(mkdir(real.c_str(), 0755), 0);
  WriteFile(real + "/file", "data");
  ASSERT_EQ(mkfifo((real + "/fifo").c_str(), 0600), 0);
  const std::string folder_link = sandbox_.Path("folder-link");
  ASSERT_EQ(symlink(real.c_str(), folder_link.c_str()), 0);
  struct stat direct;
  struct stat through_link;
  ASSERT_EQ(stat((real + "/file").c_str(), &direct), 0);
  ASSERT_TRUE(StatUncheckedPath(folder_link + "/file", through_link));
  EXPECT_EQ(through_link.st_ino, direct.st_ino);
  struct stat final_link;
  ASSERT_TRUE(StatUncheckedPath(folder_link, final_link));
  EXPECT_TRUE(S_ISLNK(final_link.st_mode));
  struct stat fifo;
  ASSERT_TRUE(StatUncheckedPath(real + "/fifo", fifo)); // a look, so it does not wait
  EXPECT_TRUE(S_ISFIFO(fifo.st_mode));
  EXPECT_FALSE(StatUncheckedPath(real + "/missing", fifo));
}

TEST_F(SafeFsTest, NothingIsCreatedThroughADanglingLink) {
  const std::string link = sandbox_.Path("dangling");
  ASSERT_EQ(symlink(sandbox_.Path("made-through-link").c_str(), link.c_str()), 0);
  ScopedFd fd;
  EXPECT_FALSE(OpenFileAt(link, ForWriting(), fd));
  EXPECT_NE(access(sandbox_.Path("made-through-link").c_str(), F_OK), 0);
}

TEST_F(SafeFsTest, FifoWhereAFileBelongsIsRefusedWithoutWaiting) {
  const std::string fifo = sandbox_.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
  for (const FileAccess access : {FileAccess::kRead, FileAccess::kAppend, FileAccess::kWrite}) {
    OpenOptions options;
    options.access = access;
    ScopedFd fd;
    // With nobody at the other end, a blocking open would never return.
    EXPECT_FALSE(OpenFileAt(fifo, options, fd));
  }
}

TEST_F(SafeFsTest, FolderWhereAFileBelongsIsRefused) {
  ASSERT_EQ(mkdir(sandbox_.Path("folder").c_str(), 0755), 0);
  ScopedFd fd;
  EXPECT_FALSE(OpenFileAt(sandbox_.Path("folder"), OpenOptions(), fd));
  EXPECT_EQ(errno, EISDIR);
}

TEST_F(SafeFsTest, ExclusiveCreationFailsOnAnExistingNameAndOnADanglingLink) {
  OpenOptions exclusive = ForWriting();
  exclusive.exclusive = true;
  ScopedFd fd;
  bool created = false;
  ASSERT_TRUE(OpenFileAt(sandbox_.Path("new"), exclusive, fd, &created));
  EXPECT_TRUE(created);
  EXPECT_FALSE(OpenFileAt(sandbox_.Path("new"), exclusive, fd));
  EXPECT_EQ(errno, EEXIST);
  ASSERT_EQ(symlink(sandbox_.Path("elsewhere").c_str(), sandbox_.Path("link").c_str()), 0);
  EXPECT_FALSE(OpenFileAt(sandbox_.Path("link"), exclusive, fd));
  EXPECT_NE(access(sandbox_.Path("elsewhere").c_str(), F_OK), 0);
}

TEST_F(SafeFsTest, TruncationEmptiesOnlyAVerifiedRegularFile) {
  WriteFile(sandbox_.Path("file"), "old content");
  OpenOptions truncate = ForWriting();
  truncate.truncate = true;
  ScopedFd fd;
  bool created = true;
  ASSERT_TRUE(OpenFileAt(sandbox_.Path("file"), truncate, fd, &created));
  EXPECT_FALSE(created);
  EXPECT_EQ(ReadFile(sandbox_.Path("file")), "");
}

TEST_F(SafeFsTest, PrivilegedWalkRefusesALinkAUserCouldHaveMade) {
  RequireRoot();
  const std::string user = UserFolder();
  ASSERT_EQ(mkdir(sandbox_.Path("target").c_str(), 0755), 0);
  ASSERT_EQ(symlink(sandbox_.Path("target").c_str(), (user + "/link").c_str()), 0);
  ASSERT_EQ(lchown((user + "/link").c_str(), kUserUid, kUserGid), 0);
  FolderHandle folder;
  EXPECT_FALSE(OpenFolder(user + "/link", folder));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_FALSE(MakeFolders(user + "/link/below", 0755));
  EXPECT_NE(access(sandbox_.Path("target/below").c_str(), F_OK), 0);
}

TEST_F(SafeFsTest, PrivilegedWalkRefusesARootLinkInAFolderOthersMayWrite) {
  RequireRoot();
  const std::string shared = sandbox_.Path("shared");
  ASSERT_EQ(mkdir(shared.c_str(), 0777), 0);
  ASSERT_EQ(chmod(shared.c_str(), 01777), 0);
  ASSERT_EQ(symlink(sandbox_.root().c_str(), (shared + "/link").c_str()), 0);
  FolderHandle folder;
  EXPECT_FALSE(OpenFolder(shared + "/link", folder));
}

TEST_F(SafeFsTest, PrivilegedWalkFollowsALinkOnlyRootCouldHaveMade) {
  RequireRoot();
  ASSERT_EQ(mkdir(sandbox_.Path("real").c_str(), 0755), 0);
  ASSERT_EQ(symlink("real", sandbox_.Path("alias").c_str()), 0);
  FolderHandle folder;
  ASSERT_TRUE(OpenFolder(sandbox_.Path("alias"), folder));
  EXPECT_EQ(folder.path(), sandbox_.Path("real"));
}

TEST_F(SafeFsTest, UnprivilegedWalkFollowsLinksOnTheWayButNotAtTheEnd) {
  RequireRoot();
  const std::string user = UserFolder();
  const int status = RunInChild([&] {
    if (setgid(kUserGid) != 0 || setuid(kUserUid) != 0) {
      return 3;
    }
    if (mkdir((user + "/real").c_str(), 0755) != 0 ||
        symlink("real", (user + "/alias").c_str()) != 0) {
      return 4;
    }
    ScopedFd fd;
    if (!OpenFileAt(user + "/alias/file", ForWriting(), fd)) {
      return 1;
    }
    return OpenFileAt(user + "/alias", ForWriting(), fd) ? 2 : 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(LstatOf(user + "/real/file").st_uid, kUserUid);
}

TEST_F(SafeFsTest, PrivilegedWalkNeverPassesFromAUserFolderIntoSomebodyElsesItem) {
  RequireRoot();
  const std::string user = UserFolder();
  // A hard link to a file of root's that anybody may write (so the user's
  // own rights would let the open through), and a folder of root's, both
  // put in the user's folder.
  const std::string target = RootFile();
  ASSERT_EQ(chmod(target.c_str(), 0666), 0);
  ASSERT_EQ(link(target.c_str(), (user + "/hardlink").c_str()), 0);
  ASSERT_EQ(mkdir((user + "/roots").c_str(), 0755), 0);
  OpenOptions append;
  append.access = FileAccess::kAppend;
  ScopedFd fd;
  EXPECT_FALSE(OpenFileAt(user + "/hardlink", append, fd));
  EXPECT_EQ(errno, EPERM);
  FolderHandle folder;
  EXPECT_FALSE(OpenFolder(user + "/roots", folder));
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(ReadFile(target), "root data");
}

TEST_F(SafeFsTest, WhatRootMakesInAUsersFolderBelongsToTheUser) {
  RequireRoot();
  const std::string user = UserFolder();
  FolderHandle made;
  ASSERT_TRUE(MakeFolders(user + "/a/b", 0700, &made));
  for (const std::string& folder : {user + "/a", user + "/a/b"}) {
    EXPECT_EQ(LstatOf(folder).st_uid, kUserUid) << folder;
    EXPECT_EQ(LstatOf(folder).st_gid, kUserGid) << folder;
  }
  ScopedFd fd;
  bool created = false;
  ASSERT_TRUE(OpenFileIn(made, "file", ForWriting(), fd, &created));
  EXPECT_TRUE(created);
  EXPECT_EQ(LstatOf(user + "/a/b/file").st_uid, kUserUid);
  EXPECT_EQ(geteuid(), 0u) << "the identity is given back";
}

TEST_F(SafeFsTest, AFolderSwappedForALinkAfterItWasResolvedIsNotUsed) {
  RequireRoot();
  const std::string user = UserFolder();
  ASSERT_EQ(MakeFoldersAsUser(user + "/logs"), 0);
  ScopedFd fd;
  ASSERT_TRUE(OpenFileAt(user + "/logs/first", ForWriting(), fd));
  // Between two opens the user moves the folder away and links its name to
  // a folder of root's.
  ASSERT_EQ(mkdir(sandbox_.Path("roots").c_str(), 0755), 0);
  ASSERT_EQ(RunInChild([&] {
              if (setgid(kUserGid) != 0 || setuid(kUserUid) != 0) {
                return 3;
              }
              return rename((user + "/logs").c_str(), (user + "/moved").c_str()) == 0 &&
                             symlink(sandbox_.Path("roots").c_str(), (user + "/logs").c_str()) == 0
                         ? 0
                         : 1;
            }),
            0);
  EXPECT_FALSE(OpenFileAt(user + "/logs/second", ForWriting(), fd));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_NE(access(sandbox_.Path("roots/second").c_str(), F_OK), 0);
  EXPECT_NE(access((user + "/moved/second").c_str(), F_OK), 0);
}

TEST_F(SafeFsTest, RootReachesNothingInAUsersFolderThatTheUserCouldNot) {
  RequireRoot();
  const std::string user = UserFolder();
  const std::string unreadable = user + "/unreadable";
  WriteFile(unreadable, "secret");
  ASSERT_EQ(chown(unreadable.c_str(), kUserUid, kUserGid), 0);
  ASSERT_EQ(chmod(unreadable.c_str(), 0), 0);
  ScopedFd fd;
  EXPECT_FALSE(OpenFileAt(unreadable, OpenOptions(), fd));
  EXPECT_EQ(errno, EACCES);
}

TEST_F(SafeFsTest, NewLevelsTakeTheParentsOwnerGroupAndWhenAskedItsMode) {
  RequireRoot();
  const std::string parent = sandbox_.Path("parent");
  ASSERT_EQ(mkdir(parent.c_str(), 0700), 0);
  ASSERT_EQ(chown(parent.c_str(), kUserUid, kUserGid), 0);
  ASSERT_EQ(chmod(parent.c_str(), 0751), 0);
  ASSERT_TRUE(MakeFolders(parent + "/child/grandchild", kParentFolderMode));
  for (const std::string& made : {parent + "/child", parent + "/child/grandchild"}) {
    EXPECT_EQ(LstatOf(made).st_mode & 07777, 0751u) << made;
    EXPECT_EQ(LstatOf(made).st_uid, kUserUid) << made;
    EXPECT_EQ(LstatOf(made).st_gid, kUserGid) << made;
  }
}

TEST_F(SafeFsTest, ExistingLevelsKeepTheirModeAndOwner) {
  ASSERT_EQ(mkdir(sandbox_.Path("existing").c_str(), 0700), 0);
  ASSERT_TRUE(MakeFolders(sandbox_.Path("existing/new"), 0755));
  EXPECT_EQ(LstatOf(sandbox_.Path("existing")).st_mode & 07777, 0700u);
}

TEST_F(SafeFsTest, DotDotIsTheRealParentOfWhereALinkLed) {
  ASSERT_EQ(mkdir(sandbox_.Path("a").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(sandbox_.Path("a/b").c_str(), 0755), 0);
  ASSERT_EQ(symlink("a/b", sandbox_.Path("shortcut").c_str()), 0);
  FolderHandle folder;
  ASSERT_TRUE(OpenFolder(sandbox_.Path("shortcut/.."), folder));
  EXPECT_EQ(folder.path(), sandbox_.Path("a"));
}

TEST_F(SafeFsTest, RemoveRegularFileRefusesAFolderAndRemovesALinkNeverItsTarget) {
  const std::string target = RootFile();
  ASSERT_EQ(mkdir(sandbox_.Path("folder").c_str(), 0755), 0);
  ASSERT_EQ(symlink(target.c_str(), sandbox_.Path("link").c_str()), 0);
  FolderHandle folder;
  ASSERT_TRUE(OpenFolder(sandbox_.root(), folder));
  EXPECT_FALSE(RemoveRegularFile(folder, "folder"));
  EXPECT_FALSE(RemoveRegularFile(folder, "link"));
  EXPECT_TRUE(RemoveEntry(folder, "link", /*is_folder=*/false));
  EXPECT_EQ(ReadFile(target), "root data");
  EXPECT_TRUE(RemoveRegularFile(folder, "root-only"));
}

TEST_F(SafeFsTest, NamesThatAreNoSingleComponentAreRefused) {
  FolderHandle folder;
  ASSERT_TRUE(OpenFolder(sandbox_.root(), folder));
  ScopedFd fd;
  for (const std::string& name :
       std::vector<std::string>{"", ".", "..", "a/b", std::string("a\0b", 3)}) {
    EXPECT_FALSE(OpenFileIn(folder, name, ForWriting(), fd)) << name;
  }
}

TEST_F(SafeFsTest, ListFolderNamesEveryEntryButDotAndDotDot) {
  ASSERT_EQ(mkdir(sandbox_.Path("list").c_str(), 0755), 0);
  WriteFile(sandbox_.Path("list/one"), "");
  ASSERT_EQ(mkdir(sandbox_.Path("list/two").c_str(), 0755), 0);
  FolderHandle folder;
  ASSERT_TRUE(OpenFolder(sandbox_.Path("list"), folder));
  std::vector<std::string> names;
  ASSERT_TRUE(ListFolder(folder, names));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"one", "two"}));
}

// Names in the sandbox's root that are temporaries of saves of `name`.
std::vector<std::string> SaveTemporariesOf(const std::string& folder, const std::string& name) {
  FolderHandle handle;
  std::vector<std::string> names;
  EXPECT_TRUE(OpenFolder(folder, handle) && ListFolder(handle, names));
  std::vector<std::string> found;
  for (const std::string& entry : names) {
    if (entry.rfind("." + name + ".saving", 0) == 0) {
      found.push_back(entry);
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

// 200 saves of one file from 8 processes at once, with nothing serialising
// them: none fails for a temporary another one took, the file is one of the
// saves whole, and no temporary is left.
TEST_F(SafeFsTest, SavesThatNothingSerialisesNeverTakeEachOthersTemporary) {
  constexpr int kProcesses = 8;
  constexpr int kSavesEach = 25;
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  std::vector<pid_t> savers;
  for (int process = 0; process < kProcesses; ++process) {
    const pid_t saver = fork();
    if (saver == 0) {
      close(gate[1]);
      char go;
      (void)!read(gate[0], &go, 1); // all start together once the gate closes
      FolderHandle folder;
      int failed = OpenFolder(sandbox_.root(), folder) ? 0 : kSavesEach;
      for (int save = 0; failed == 0 && save < kSavesEach; ++save) {
        const std::string bytes = "saver " + std::to_string(process) + " save " +
                                  std::to_string(save) + "\n" + std::string(4096, 'x');
        failed += ReplaceFileContents(folder, "shared.dat", bytes, 0644) ? 0 : 1;
      }
      _exit(failed);
    }
    savers.push_back(saver);
  }
  close(gate[0]);
  close(gate[1]);
  int failed = 0;
  for (const pid_t saver : savers) {
    int status = 0;
    ASSERT_EQ(waitpid(saver, &status, 0), saver);
    ASSERT_TRUE(WIFEXITED(status));
    failed += WEXITSTATUS(status);
  }
  EXPECT_EQ(failed, 0);
  const std::string text = ReadFile(sandbox_.Path("shared.dat"));
  EXPECT_EQ(text.rfind("saver ", 0), 0u);
  EXPECT_EQ(text.size() - text.find('\n') - 1, 4096u);
  EXPECT_TRUE(SaveTemporariesOf(sandbox_.root(), "shared.dat").empty());
}

TEST_F(SafeFsTest, ASaveRemovesTheTemporariesOfDeadSavesAndLeavesThoseOfLiveOnes) {
  const std::string dead =
      ".prefs.dat.saving-" + std::to_string(oru_testing::PidOfAnExitedProcess()) + "-0";
  const std::string live = ".prefs.dat.saving-" + std::to_string(getppid()) + "-7";
  const std::string other =
      ".other.dat.saving-" + std::to_string(oru_testing::PidOfAnExitedProcess()) + "-0";
  for (const std::string& name : {dead, live, other}) {
    WriteFile(sandbox_.Path(name), "<Preferences><half");
  }
  FolderHandle folder;
  ASSERT_TRUE(OpenFolder(sandbox_.root(), folder));
  ASSERT_TRUE(ReplaceFileContents(folder, "prefs.dat", "new", 0644));
  EXPECT_EQ(ReadFile(sandbox_.Path("prefs.dat")), "new");
  EXPECT_EQ(SaveTemporariesOf(sandbox_.root(), "prefs.dat"), std::vector<std::string>{live});
  EXPECT_EQ(access(sandbox_.Path(other).c_str(), F_OK), 0);
}

TEST_F(SafeFsTest, ReadAllStopsAtItsLimit) {
  WriteFile(sandbox_.Path("file"), "0123456789");
  ScopedFd fd;
  ASSERT_TRUE(OpenFileAt(sandbox_.Path("file"), OpenOptions(), fd));
  std::string content;
  EXPECT_FALSE(ReadAll(fd.get(), content, 9));
  EXPECT_EQ(errno, EFBIG);
  ASSERT_EQ(lseek(fd.get(), 0, SEEK_SET), 0);
  ASSERT_TRUE(ReadAll(fd.get(), content, 10));
  EXPECT_EQ(content, "0123456789");
}

} // namespace
} // namespace platform
