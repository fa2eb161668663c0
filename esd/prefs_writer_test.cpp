#include "esd/corrupt_file.h"
#include "esd/prefs_writer.h"
#include "esd/typed_prefs.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/run_as_user.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace esd {
namespace {

using oru_testing::ReadFile;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";

// A lock policy whose answers a test decides.
class FakeLock : public LockPolicyInterface {
public:
  bool Lock() override {
    ++locks;
    locked = grant;
    return grant;
  }
  bool Unlock(bool) override {
    ++unlocks;
    locked = false;
    return unlock_result;
  }
  bool IsLocked() override { return locked; }

  bool grant = true;
  bool locked = false;
  bool unlock_result = true;
  int locks = 0;
  int unlocks = 0;
};

class PrefsWriterTest : public ::testing::Test {
protected:
  std::string FileText() { return ReadFile(path_); }

  // A writer that reads the file under a lock taken by the read itself.
  PrefsWriter& ReadUnderItsOwnLock() {
    lockedWriter_.setLockPolicy(&lock_);
    lockedWriter_.SetPrefsPath(path_);
    return lockedWriter_;
  }

  Sandbox sandbox_;
  std::string path_ = sandbox_.Path("prefs.dat");
  FakeLock lock_;
  PrefsWriter lockedWriter_{"", "Preferences"};
};

TEST_F(PrefsWriterTest, SettingABoolOnAMissingFileCreatesExactlyThisFile) {
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<bool>("AutoCheck", true));
  EXPECT_EQ(FileText(), std::string(kDeclaration) +
                            "<Preferences>\n<AutoCheck>1</AutoCheck>\n</Preferences>\n");
}

// A save writes a new file and renames it over the old one (other programs
// truncate and rewrite in place): the same bytes, and the file keeps what
// the old one carried.
TEST_F(PrefsWriterTest, SaveByRenameKeepsTheModeOwnerAndGroupOfTheFileItReplaces) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root to give the file another owner";
  }
  WriteFile(path_, std::string(kDeclaration) + "<Preferences>\n</Preferences>\n");
  ASSERT_EQ(chown(path_.c_str(), 12345, 23456), 0);
  ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<bool>("AutoCheck", true));
  struct stat info;
  ASSERT_EQ(stat(path_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
  EXPECT_EQ(info.st_uid, 12345u);
  EXPECT_EQ(info.st_gid, 23456u);
  EXPECT_EQ(FileText(), std::string(kDeclaration) +
                            "<Preferences>\n<AutoCheck>1</AutoCheck>\n</Preferences>\n");
}

TEST_F(PrefsWriterTest, SaveByRenameReplacesALinkAtThePathAndNeverItsTarget) {
  const std::string target = sandbox_.Path("elsewhere.dat");
  WriteFile(target, "not preferences");
  ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<bool>("AutoCheck", true));
  struct stat info;
  ASSERT_EQ(lstat(path_.c_str(), &info), 0);
  EXPECT_TRUE(S_ISREG(info.st_mode));
  EXPECT_EQ(ReadFile(target), "not preferences");
}

TEST_F(PrefsWriterTest, SaveByRenameRemovesWhatADeadSaveLeftAndLeavesNothingBeside) {
  const std::string left = sandbox_.Path(
      ".prefs.dat.saving-" + std::to_string(oru_testing::PidOfAnExitedProcess()) + "-0");
  WriteFile(left, "<Preferences><half");
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<bool>("AutoCheck", true));
  EXPECT_FALSE(platform::PathExists(left));
  EXPECT_EQ(FileText(), std::string(kDeclaration) +
                            "<Preferences>\n<AutoCheck>1</AutoCheck>\n</Preferences>\n");
}

TEST_F(PrefsWriterTest, MissingFileIsAnEmptyDocumentWithARootInMemoryOnly) {
  PrefsWriter writer(path_, "Preferences");
  ASSERT_NE(writer.prefsRoot(), nullptr);
  EXPECT_EQ(writer.prefsRoot()->GetName(), "Preferences");
  EXPECT_FALSE(platform::PathExists(path_));
  EXPECT_EQ(writer.lastModified(), 0u);
}

// How many times the watched file was opened and read from, as the
// watcher saw it (a look at its date alone opens it without reading).
int ReadsSeen(int watcher) {
  int reads = 0;
  bool read_since_open = false;
  alignas(struct inotify_event) char events[4096];
  for (ssize_t got; (got = read(watcher, events, sizeof events)) > 0;) {
    for (ssize_t at = 0; at < got;) {
      const auto* event = reinterpret_cast<const struct inotify_event*>(events + at);
      if (event->mask & IN_OPEN) {
        read_since_open = false;
      }
      if (event->mask & IN_ACCESS) {
        read_since_open = true;
      }
      if ((event->mask & IN_CLOSE_NOWRITE) && read_since_open) {
        ++reads;
      }
      at += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
    }
  }
  return reads;
}

// A file of a million elements takes about a second to parse: when the path
// was named before the lock, the read that taking the lock makes is the only
// one, also when the path is then set as the updater's preferences set it.
TEST_F(PrefsWriterTest, TheFirstReadUnderTheLockReadsTheFileOnce) {
  WriteFile(path_, std::string(kDeclaration) + "<Preferences><a>1</a></Preferences>\n");
  const int watcher = inotify_init1(IN_NONBLOCK);
  ASSERT_GE(watcher, 0);
  ASSERT_GE(inotify_add_watch(watcher, path_.c_str(), IN_OPEN | IN_ACCESS | IN_CLOSE_NOWRITE), 0);
  FakeLock lock;
  PrefsWriter writer("", "Preferences");
  writer.setLockPolicy(&lock);
  writer.NamePrefsPath(path_);
  writer.SetPrefsPath(path_);
  int value = 0;
  EXPECT_TRUE(writer.GetPref<int>("a", value, 0));
  EXPECT_EQ(value, 1);
  EXPECT_EQ(writer.fileState(), PrefsFileState::kRead);
  EXPECT_EQ(ReadsSeen(watcher), 1);
  close(watcher);
}

TEST_F(PrefsWriterTest, EmptyFileIsAnEmptyDocument) {
  WriteFile(path_, "");
  PrefsWriter writer(path_, "Preferences");
  ASSERT_NE(writer.prefsRoot(), nullptr);
  int value = 0;
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", value, 2));
  EXPECT_EQ(value, 2);
}

TEST_F(PrefsWriterTest, ElementsKeepTheOrderOfCreationAndValuesAreReadBack) {
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 2));
  ASSERT_TRUE(writer.SetPref<std::string>("LogFile", "/a b/oruu.log"));
  ASSERT_TRUE(writer.SetPref<unsigned long>("WebFeedSize", 18446744073709551615ul));
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", -5));
  EXPECT_EQ(FileText(), std::string(kDeclaration) +
                            "<Preferences>\n<LogLevel>-5</LogLevel>\n"
                            "<LogFile>/a b/oruu.log</LogFile>\n"
                            "<WebFeedSize>18446744073709551615</WebFeedSize>\n</Preferences>\n");
  PrefsWriter reader(path_, "Preferences");
  int level = 0;
  std::string file;
  unsigned long size = 0;
  ASSERT_TRUE(reader.GetPref<int>("LogLevel", level, 0));
  ASSERT_TRUE(reader.GetPref<std::string>("LogFile", file, ""));
  ASSERT_TRUE(reader.GetPref<unsigned long>("WebFeedSize", size, 0));
  EXPECT_EQ(level, -5);
  EXPECT_EQ(file, "/a b/oruu.log");
  EXPECT_EQ(size, 18446744073709551615ul);
}

TEST_F(PrefsWriterTest, IntOfTextThatIsNoNumberFails) {
  WriteFile(path_, "<Preferences><LogLevel>abc</LogLevel></Preferences>");
  PrefsWriter writer(path_, "Preferences");
  int value = 9;
  EXPECT_FALSE(writer.GetPref<int>("LogLevel", value, 2));
}

TEST_F(PrefsWriterTest, IntOfEmptyTextIsTheDefault) {
  WriteFile(path_, "<Preferences><LogLevel></LogLevel></Preferences>");
  PrefsWriter writer(path_, "Preferences");
  int value = 9;
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", value, 2));
  EXPECT_EQ(value, 2);
}

TEST_F(PrefsWriterTest, StringsAreTakenAsTheyAre) {
  WriteFile(path_, "<Preferences><P> a b </P></Preferences>");
  PrefsWriter writer(path_, "Preferences");
  std::string value;
  ASSERT_TRUE(writer.GetPref<std::string>("P", value, "default"));
  EXPECT_EQ(value, " a b ");
}

TEST_F(PrefsWriterTest, ReplacingAMapPreferenceMovesItsElementAfterAllOthers) {
  PrefsWriter writer(path_, "Preferences");
  MapPref<std::string, bool> channels("ChannelsEnabled");
  channels.prefs = &writer;
  ASSERT_TRUE(channels.Set({{"a", true}}));
  ASSERT_TRUE(writer.SetPref<bool>("AutoCheck", false));
  ASSERT_TRUE(channels.Set({{"a", false}}));
  EXPECT_EQ(FileText(), std::string(kDeclaration) +
                            "<Preferences>\n<AutoCheck>0</AutoCheck>\n<ChannelsEnabled>\n"
                            "<MapPrefEntry MapPrefKey=\"a\">0</MapPrefEntry>\n"
                            "</ChannelsEnabled>\n</Preferences>\n");
}

TEST_F(PrefsWriterTest, RootOfAnotherNameGetsASecondTopLevelElementAndIsKept) {
  WriteFile(path_, "<Other><X>1</X></Other>");
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 3));
  EXPECT_EQ(FileText(), std::string(kDeclaration) +
                            "<Other>\n<X>1</X>\n</Other>\n"
                            "<Preferences>\n<LogLevel>3</LogLevel>\n</Preferences>\n");
}

TEST_F(PrefsWriterTest, WithoutALockPolicyAChangedFileIsNotReadAgain) {
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 1));
  PrefsWriter other(path_, "Preferences");
  ASSERT_TRUE(other.SetPref<int>("LogLevel", 5));
  int value = 0;
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", value, 0));
  EXPECT_EQ(value, 1);
  writer.SetPrefsPath(path_);
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", value, 0));
  EXPECT_EQ(value, 5);
}

TEST_F(PrefsWriterTest, WithALockPolicyAChangedFileIsReadAgainWhenTheLockIsTaken) {
  FakeLock lock;
  PrefsWriter writer(path_, "Preferences");
  writer.setLockPolicy(&lock);
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 1));
  PrefsWriter other(path_, "Preferences");
  ASSERT_TRUE(other.SetPref<int>("LogLevel", 5));
  int value = 0;
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", value, 0));
  EXPECT_EQ(value, 5);
  EXPECT_EQ(lock.locks, lock.unlocks);
}

TEST_F(PrefsWriterTest, SavesInTheSameClockTickAreStillSeenAsChanges) {
  FakeLock lock;
  PrefsWriter first(path_, "Preferences");
  first.setLockPolicy(&lock);
  PrefsWriter second(path_, "Preferences");
  second.setLockPolicy(&lock);
  // Alternating saves, far faster than the file clock advances: each one
  // must see the one before.
  for (int i = 0; i < 50; ++i) {
    PrefsWriter& writer = i % 2 ? second : first;
    int value = -1;
    ASSERT_TRUE(writer.GetPref<int>("Counter", value, 0));
    ASSERT_EQ(value, i);
    ASSERT_TRUE(writer.SetPref<int>("Counter", i + 1));
  }
}

TEST_F(PrefsWriterTest, SaveIsSeenEvenWhenTheFilesTimeIsAheadOfTheClock) {
  // A file time ahead of the clock stands for a coarse file clock (two saves
  // in one tick) or a skewed one: the next save's own time is not later.
  FakeLock lock;
  PrefsWriter first(path_, "Preferences");
  first.setLockPolicy(&lock);
  ASSERT_TRUE(first.SetPref<int>("Counter", 1));
  uint64_t now = 0;
  ASSERT_TRUE(platform::GetModificationDate(path_, now));
  ASSERT_TRUE(platform::SetModificationDate(path_, now + 3600ull * 1000000000ull));
  int value = 0;
  ASSERT_TRUE(first.GetPref<int>("Counter", value, 0));
  PrefsWriter second(path_, "Preferences");
  second.setLockPolicy(&lock);
  ASSERT_TRUE(second.SetPref<int>("Counter", 2));
  ASSERT_TRUE(first.GetPref<int>("Counter", value, 0));
  EXPECT_EQ(value, 2);
}

TEST_F(PrefsWriterTest, AChangeIsNotReadAgainWhileTheCallerHoldsTheLock) {
  FakeLock lock;
  PrefsWriter writer(path_, "Preferences");
  writer.setLockPolicy(&lock);
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 1));
  ASSERT_TRUE(writer.LockPrefs());
  PrefsWriter other(path_, "Preferences");
  ASSERT_TRUE(other.SetPref<int>("LogLevel", 5));
  int value = 0;
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", value, 0));
  EXPECT_EQ(value, 1);
  ASSERT_TRUE(lock.Unlock(false));
}

TEST_F(PrefsWriterTest, FileGoneIsFoundEmptyOnTheNextLock) {
  FakeLock lock;
  PrefsWriter writer(path_, "Preferences");
  writer.setLockPolicy(&lock);
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 1));
  ASSERT_NE(writer.lastModified(), 0u);
  ASSERT_TRUE(platform::DeletePath(path_));
  int value = 0;
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", value, 7));
  EXPECT_EQ(value, 7);
  EXPECT_EQ(writer.lastModified(), 0u);
}

TEST_F(PrefsWriterTest, LockThatCannotBeTakenLeavesMemoryAndDiskAlone) {
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 1));
  const std::string before = FileText();
  FakeLock lock;
  lock.grant = false;
  writer.setLockPolicy(&lock);
  int value = 42;
  EXPECT_FALSE(writer.GetPref<int>("LogLevel", value, 0));
  EXPECT_EQ(value, 42);
  EXPECT_FALSE(writer.SetPref<int>("LogLevel", 9));
  XMLDocumentNode* node = nullptr;
  EXPECT_FALSE(writer.GetPref("LogLevel", node));
  EXPECT_FALSE(writer.Save());
  EXPECT_FALSE(writer.DeleteAllPrefs());
  EXPECT_FALSE(writer.LockPrefs());
  EXPECT_EQ(FileText(), before);
  EXPECT_EQ(writer.GetPrefsNode("LogLevel", false)->GetData(), "1");
}

TEST_F(PrefsWriterTest, EmptyPathThrows) {
  PrefsWriter writer("", "Preferences");
  try {
    writer.SetPrefsPath("");
    FAIL() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Prefs file unable to lock file for reading!");
  }
}

TEST_F(PrefsWriterTest, EmptyPathLeavesALockTakenForItHeld) {
  FakeLock lock;
  PrefsWriter writer("", "Preferences");
  writer.setLockPolicy(&lock);
  EXPECT_THROW(writer.SetPrefsPath(""), std::runtime_error);
  EXPECT_TRUE(lock.IsLocked());
}

// Other programs sharing the file delete one that does not parse; here it
// is moved aside under a dated name and the store starts over writable.
TEST_F(PrefsWriterTest, AFileThatDoesNotParseIsKeptAsideUnderALockTakenHere) {
  const std::string broken = "<Preferences><AutoCheck>1</Auto";
  WriteFile(path_, broken);
  PrefsWriter& writer = ReadUnderItsOwnLock();
  EXPECT_EQ(writer.fileState(), PrefsFileState::kMovedAside);
  EXPECT_FALSE(platform::PathExists(path_));
  EXPECT_EQ(writer.movedAsideTo(), sandbox_.Path(CorruptCopyName("prefs.dat", time(nullptr))));
  EXPECT_EQ(ReadFile(writer.movedAsideTo()), broken);
  ASSERT_NE(writer.prefsRoot(), nullptr);
  EXPECT_TRUE(writer.prefsRoot()->children.empty());
  EXPECT_FALSE(lock_.IsLocked());
  ASSERT_TRUE(writer.SetPref<bool>("AutoCheck", false));
  EXPECT_EQ(FileText(), std::string(kDeclaration) +
                            "<Preferences>\n<AutoCheck>0</AutoCheck>\n</Preferences>\n");
}

// Other programs keep such a file when the lock was not taken by the read
// itself, and then no process can ever save again. Here it is the same
// whoever holds the lock.
TEST_F(PrefsWriterTest, AFileThatDoesNotParseIsKeptAsideWithoutAnyLockPolicy) {
  const std::string broken = "<Preferences><AutoCheck>1</Auto";
  WriteFile(path_, broken);
  PrefsWriter writer(path_, "Preferences");
  EXPECT_EQ(writer.fileState(), PrefsFileState::kMovedAside);
  EXPECT_EQ(ReadFile(writer.movedAsideTo()), broken);
  bool value = false;
  ASSERT_TRUE(writer.GetPref<bool>("AutoCheck", value, true));
  EXPECT_TRUE(value);
  ASSERT_TRUE(writer.SetPref<bool>("AutoCheck", false));
  EXPECT_EQ(ReadFile(writer.movedAsideTo()), broken);
}

TEST_F(PrefsWriterTest, AFileThatDoesNotParseIsKeptAsideUnderALockTheCallerHolds) {
  const std::string broken = "<Preferences>";
  WriteFile(path_, broken);
  FakeLock lock;
  PrefsWriter writer("", "Preferences");
  writer.setLockPolicy(&lock);
  ASSERT_TRUE(lock.Lock());
  writer.SetPrefsPath(path_);
  EXPECT_EQ(writer.fileState(), PrefsFileState::kMovedAside);
  EXPECT_EQ(ReadFile(writer.movedAsideTo()), broken);
  EXPECT_FALSE(platform::PathExists(path_));
  EXPECT_TRUE(lock.IsLocked());
}

TEST_F(PrefsWriterTest, OnlyTheNewestThreeCopiesOfFilesThatDidNotParseAreKept) {
  std::vector<std::string> moved;
  for (int round = 0; round < 5; ++round) {
    WriteFile(path_, "<Preferences>" + std::to_string(round));
    PrefsWriter writer(path_, "Preferences");
    ASSERT_EQ(writer.fileState(), PrefsFileState::kMovedAside) << round;
    moved.push_back(writer.movedAsideTo());
  }
  int kept = 0;
  for (size_t round = 0; round < moved.size(); ++round) {
    if (platform::PathExists(moved[round])) {
      ++kept;
      EXPECT_GE(round, moved.size() - kCorruptCopiesKept) << moved[round];
      EXPECT_EQ(ReadFile(moved[round]), "<Preferences>" + std::to_string(round));
    }
  }
  EXPECT_EQ(kept, kCorruptCopiesKept);
}

TEST_F(PrefsWriterTest, AFileMovedAsideIsReportedInOneLogLine) {
  static std::vector<std::string> lines;
  lines.clear();
  SetPrefsLogHook([](int, const std::string& line) { lines.push_back(line); });
  WriteFile(path_, "<Preferences><");
  {
    PrefsWriter writer(path_, "Preferences");
    ASSERT_TRUE(writer.SetPref<int>("LogLevel", 3));
    ASSERT_TRUE(writer.LockPrefs());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "Preferences file " + path_ + " does not parse; moved aside to " +
                            writer.movedAsideTo());
  }
  SetPrefsLogHook(nullptr);
}

// A well-formed file past the reader's limits may hold good values: it is
// never moved or deleted, and nothing is saved over it.
TEST_F(PrefsWriterTest, AWellFormedFilePastTheElementLimitIsLeftAsItIsAndTheStoreIsReadOnly) {
  std::string text = std::string(kDeclaration) + "<Preferences>\n<LogLevel>4</LogLevel>\n";
  for (size_t i = 0; i < ExpatDOMBuilder<XMLDocumentNode>::kMaxNodes; ++i) {
    text += "<e/>";
  }
  text += "\n</Preferences>\n";
  WriteFile(path_, text);
  PrefsWriter writer(path_, "Preferences");
  EXPECT_EQ(writer.fileState(), PrefsFileState::kOverLimit);
  int level = 0;
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", level, 2));
  EXPECT_EQ(level, 2);
  EXPECT_FALSE(writer.SetPref<int>("LogLevel", 5));
  EXPECT_FALSE(writer.Save());
  EXPECT_FALSE(writer.DeleteAllPrefs());
  EXPECT_EQ(FileText(), text);
}

TEST_F(PrefsWriterTest, AFilePastTheSizeLimitIsLeftAsItIs) {
  const std::string text = std::string(kDeclaration) + "<Preferences>" +
                           std::string(ExpatDOMBuilder<XMLDocumentNode>::kMaxFileBytes, ' ') +
                           "</Preferences>\n";
  WriteFile(path_, text);
  PrefsWriter& writer = ReadUnderItsOwnLock();
  EXPECT_EQ(writer.fileState(), PrefsFileState::kOverLimit);
  EXPECT_FALSE(writer.SetPref<int>("LogLevel", 5));
  EXPECT_EQ(FileText(), text);
}

// Other programs take a file they cannot read for a missing one and save
// defaults over it. Here it is never overwritten.
TEST_F(PrefsWriterTest, AFileThatCannotBeReadIsNeverOverwritten) {
  const std::string stored =
      std::string(kDeclaration) + "<Preferences>\n<LogLevel>4</LogLevel>\n</Preferences>\n";
  for (const mode_t mode : {0200, 0000}) {
    WriteFile(path_, stored);
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
    // Root reads any file: the store is tried as a user the mode shuts out.
    const int status = oru_testing::RunAsUser(oru_testing::kOtherUid, sandbox_.root(), [&] {
      PrefsWriter writer(path_, "Preferences");
      int level = 0;
      const bool ok = writer.fileState() == PrefsFileState::kUnreadable &&
                      writer.GetPref<int>("LogLevel", level, 2) && level == 2 &&
                      !writer.SetPref<int>("LogLevel", 5) && !writer.Save() &&
                      !writer.DeleteAllPrefs();
      return ok ? 0 : 1;
    });
    EXPECT_EQ(status, 0) << "mode " << std::oct << mode;
    ASSERT_EQ(chmod(path_.c_str(), 0600), 0);
    EXPECT_EQ(FileText(), stored) << "mode " << std::oct << mode;
  }
}

TEST_F(PrefsWriterTest, FileThatCannotBeWrittenFailsTheSaveAndMemoryKeepsTheChange) {
  ASSERT_EQ(mkdir(path_.c_str(), 0700), 0); // a folder where the file should be
  PrefsWriter writer("", "Preferences");
  writer.SetPrefsPath(path_);
  EXPECT_FALSE(writer.SetPref<int>("LogLevel", 4));
  int value = 0;
  ASSERT_TRUE(writer.GetPref<int>("LogLevel", value, 0));
  EXPECT_EQ(value, 4);
}

TEST_F(PrefsWriterTest, DeleteAllPrefsStartsOverWithAnEmptyRoot) {
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 4));
  ASSERT_TRUE(writer.DeleteAllPrefs());
  EXPECT_FALSE(platform::PathExists(path_));
  ASSERT_NE(writer.prefsRoot(), nullptr);
  EXPECT_TRUE(writer.prefsRoot()->children.empty());
}

TEST_F(PrefsWriterTest, EmptyDOMLeavesTheFileAlone) {
  PrefsWriter writer(path_, "Preferences");
  ASSERT_TRUE(writer.SetPref<int>("LogLevel", 4));
  const std::string before = FileText();
  writer.EmptyDOM();
  EXPECT_TRUE(writer.prefsRoot()->children.empty());
  EXPECT_EQ(FileText(), before);
}

TEST_F(PrefsWriterTest, GetPrefsNodeCreatesOnlyWhenAsked) {
  PrefsWriter writer(path_, "Preferences");
  EXPECT_EQ(writer.GetPrefsNode("X", false), nullptr);
  XMLDocumentNode* created = writer.GetPrefsNode("X", true);
  ASSERT_NE(created, nullptr);
  EXPECT_EQ(writer.GetPrefsNode("X", false), created);
  XMLDocumentNode* node = nullptr;
  ASSERT_TRUE(writer.GetPref("X", node));
  EXPECT_EQ(node, created);
  PrefsWriter empty("", "Preferences");
  EXPECT_EQ(empty.GetPrefsNode("X", true), nullptr);
}

TEST_F(PrefsWriterTest, TheLockTakenHereIsReleasedAndItsAnswerIsTheSavesResult) {
  FakeLock lock;
  PrefsWriter writer(path_, "Preferences");
  writer.setLockPolicy(&lock);
  ASSERT_TRUE(writer.Save());
  EXPECT_EQ(lock.locks, 1);
  EXPECT_EQ(lock.unlocks, 1);
  lock.unlock_result = false;
  EXPECT_FALSE(writer.Save());
}

TEST_F(PrefsWriterTest, FileCutShortAtAnyByteNeverHurtsAReader) {
  {
    PrefsWriter writer(path_, "Preferences");
    MapPref<std::string, bool> map("ChannelsEnabled");
    map.prefs = &writer;
    ASSERT_TRUE(writer.SetPref<bool>("AutoCheck", false));
    ASSERT_TRUE(writer.SetPref<std::string>("LogFile", "/x/oruu.log"));
    ASSERT_TRUE(map.Set({{"a", true}, {"b", false}}));
  }
  const std::string full = FileText();
  for (size_t cut = 0; cut <= full.size(); ++cut) {
    const std::string prefix = full.substr(0, cut);
    WriteFile(path_, prefix);
    ExpatDOMBuilder<XMLDocumentNode> probe;
    ASSERT_TRUE(probe.Create(nullptr, nullptr));
    const bool parses = probe.ParseFile(path_, true);

    FakeLock lock;
    PrefsWriter writer("", "Preferences");
    writer.setLockPolicy(&lock);
    writer.SetPrefsPath(path_);
    bool auto_check = true;
    ASSERT_TRUE(writer.GetPref<bool>("AutoCheck", auto_check, true)) << cut;
    if (parses) {
      EXPECT_TRUE(platform::PathExists(path_)) << cut;
    } else {
      // Moved aside whole; defaults from then on.
      EXPECT_FALSE(platform::PathExists(path_)) << cut;
      EXPECT_EQ(ReadFile(writer.movedAsideTo()), prefix) << cut;
      EXPECT_TRUE(auto_check) << cut;
    }
    ASSERT_TRUE(writer.SetPref<int>("LogLevel", 3)) << cut;
  }
}

} // namespace
} // namespace esd
