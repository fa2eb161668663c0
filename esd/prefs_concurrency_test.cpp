// Several processes changing one preferences file at once: every update
// made must be in the file afterwards.
#include "esd/expat_dom_builder.h"
#include "esd/prefs_writer.h"
#include "esd/typed_prefs.h"
#include "locks/resource_locker.h"
#include "testing/child_process.h"
#include "testing/memory_disk_linux.h"
#include "testing/sandbox.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <signal.h>
#include <string>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace esd {
namespace {

constexpr int kKeyWriters = 4;
constexpr int kKeysEach = 200;
constexpr int kMapWriters = 4;
constexpr int kEntriesEach = 50;

// Each save ends in an fsync. On a disk that another build writes to at the
// same time, one fsync can wait seconds for the writeback of that build's
// files, longer than any writer waits for the lock; these tests are about
// the lock and the saves' atomicity, so their files live on a disk in memory
// where root can mount one.
constexpr size_t kStressDiskBytes = 256 * 1024 * 1024;

TEST(PrefsConcurrencyTest, NoUpdateIsLostWhenEightProcessesWriteAtOnce) {
  oru_testing::Sandbox sandbox;
  const oru_testing::MemoryDisk disk(sandbox.Path("disk"), kStressDiskBytes);
  ASSERT_TRUE(disk.mounted() || geteuid() != 0);
  const std::string path = sandbox.Path("disk/NuvexUpdaterPrefs.dat");
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);

  std::vector<std::vector<std::string>> commands;
  for (int p = 0; p < kKeyWriters; ++p) {
    commands.push_back(
        {"set-keys", path, "p" + std::to_string(p) + "_", std::to_string(kKeysEach)});
  }
  for (int p = 0; p < kMapWriters; ++p) {
    commands.push_back({"map-add", path, "ChannelsEnabled", "m" + std::to_string(p) + "_",
                        std::to_string(kEntriesEach)});
  }
  std::vector<oru_testing::ChildProgram> children;
  for (const auto& command : commands) {
    children.push_back(oru_testing::StartProgram(ORU_PREFS_HELPER, command, gate[0], gate[1]));
    ASSERT_GT(children.back().pid, 0);
  }
  // Open the gate: every helper starts at once.
  close(gate[0]);
  close(gate[1]);

  int retries = 0;
  for (oru_testing::ChildProgram& child : children) {
    int child_retries = 0;
    EXPECT_EQ(std::fscanf(child.output, "%d", &child_retries), 1);
    ASSERT_EQ(oru_testing::FinishProgram(child), 0) << "helper " << child.pid;
    retries += child_retries;
  }

  PrefsWriter reader(path, "Preferences");
  ASSERT_NE(reader.prefsRoot(), nullptr) << "the file does not parse";
  int lost = 0;
  for (int p = 0; p < kKeyWriters; ++p) {
    for (int i = 0; i < kKeysEach; ++i) {
      int value = -1;
      const std::string key = "p" + std::to_string(p) + "_" + std::to_string(i);
      if (!reader.GetPref<int>(key, value, -1) || value != i + 1000000) {
        ++lost;
      }
    }
  }
  MapPref<std::string, bool> map("ChannelsEnabled");
  map.prefs = &reader;
  std::map<std::string, bool> entries;
  ASSERT_TRUE(map.Get(entries));
  for (int p = 0; p < kMapWriters; ++p) {
    for (int i = 0; i < kEntriesEach; ++i) {
      const auto found = entries.find("m" + std::to_string(p) + "_" + std::to_string(i));
      if (found == entries.end() || found->second != (i % 2 == 0)) {
        ++lost;
      }
    }
  }
  const int made = kKeyWriters * kKeysEach * 2 + kMapWriters * kEntriesEach;
  const int checked = kKeyWriters * kKeysEach + kMapWriters * kEntriesEach;
  std::printf("updates made: %d (final values checked: %d), lost: %d, lock time-outs retried: "
              "%d\n",
              made, checked, lost, retries);
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(entries.size(), static_cast<size_t>(kMapWriters * kEntriesEach));
}

TEST(PrefsConcurrencyTest, ASaveKilledAtAnyMomentLeavesTheFileWholeWithEverySavedKey) {
  constexpr int kRounds = 60;
  constexpr int kKeysEach = 200;
  oru_testing::Sandbox sandbox;
  const oru_testing::MemoryDisk disk(sandbox.Path("disk"), kStressDiskBytes);
  ASSERT_TRUE(disk.mounted() || geteuid() != 0);
  const std::string path = sandbox.Path("disk/NuvexUpdaterPrefs.dat");
  std::mt19937 random(4242);
  int kills = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::string prefix = "r" + std::to_string(round) + "_";
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    oru_testing::ChildProgram saver = oru_testing::StartProgram(
        ORU_PREFS_HELPER, {"ack-keys", path, prefix, std::to_string(kKeysEach)}, gate[0], gate[1]);
    close(gate[0]);
    close(gate[1]);
    // Kill it after a random number of saves it has reported done, a random
    // moment into the saves that follow.
    const int acked_before_kill = std::uniform_int_distribution<int>(1, 20)(random);
    int acked = 0;
    int number = -1;
    while (acked < acked_before_kill && std::fscanf(saver.output, "%d", &number) == 1) {
      ++acked;
    }
    const struct timespec moment = {0, std::uniform_int_distribution<long>(0, 3000000)(random)};
    nanosleep(&moment, nullptr);
    if (kill(saver.pid, SIGKILL) == 0) {
      ++kills;
    }
    // What it reported before the kill is saved; what came after may be.
    while (std::fscanf(saver.output, "%d", &number) == 1) {
      ++acked;
    }
    oru_testing::FinishProgram(saver);
    // Whatever the killed saver held is recovered by the next process that
    // asks, within its one bounded wait, with no forced unlock.
    ResourceLocker next(path, 3000);
    ASSERT_TRUE(next.Lock()) << "round " << round << ": the killed saver's lock stays";
    ASSERT_TRUE(next.Unlock(false));

    ExpatDOMBuilder<XMLDocumentNode> parser;
    ASSERT_TRUE(parser.Create(nullptr, nullptr));
    ASSERT_TRUE(parser.ParseFile(path, false)) << "round " << round << ": the file does not parse";
    PrefsWriter reader(path, "Preferences");
    for (int earlier = 0; earlier <= round; ++earlier) {
      const std::string earlier_prefix = "r" + std::to_string(earlier) + "_";
      // Every round saved at least its first key before its kill.
      int value = -1;
      EXPECT_TRUE(reader.GetPref<int>(earlier_prefix + "0", value, -1) && value == 0)
          << "round " << round << " lost " << earlier_prefix << "0";
    }
    for (int i = 0; i < acked; ++i) {
      int value = -1;
      ASSERT_TRUE(reader.GetPref<int>(prefix + std::to_string(i), value, -1) && value == i)
          << "round " << round << ": key " << i << " of " << acked << " saved is lost";
    }
  }
  std::printf("saves killed: %d of %d rounds\n", kills, kRounds);
  EXPECT_EQ(kills, kRounds);
}

// Each update its own process, as the updater makes them: every process
// reads the file and saves it whole, so a read outside the lock would undo
// the changes saved in between. Each lane counts up its own key, one process
// per step: an update lost anywhere leaves some count short, and the file
// keeps its size however many updates are made.
TEST(PrefsConcurrencyTest, NoUpdateIsLostWhenEachOfThemIsItsOwnProcessEightAtATime) {
  constexpr int kLanes = 8;
  constexpr int kUpdatesEach = 500;
  oru_testing::Sandbox sandbox;
  const oru_testing::MemoryDisk disk(sandbox.data_home(), kStressDiskBytes);
  ASSERT_TRUE(disk.mounted() || geteuid() != 0);
  const auto counter_of = [](int lane) { return "count" + std::to_string(lane); };
  const int failed =
      oru_testing::RunInLanes(ORU_PREFS_HELPER, kLanes, kUpdatesEach, [&](int lane, int) {
        return std::vector<std::string>{"updater-increment", counter_of(lane)};
      });
  const std::string path = sandbox.data_home() + "/Nuvex/OruUpdater/1.0/NuvexUpdaterPrefs.dat";
  PrefsWriter reader(path, "Preferences");
  int lost = 0;
  for (int lane = 0; lane < kLanes; ++lane) {
    int count = 0;
    EXPECT_TRUE(reader.GetPref<int>(counter_of(lane), count, 0)) << counter_of(lane);
    lost += kUpdatesEach - count;
  }
  std::printf("updates: %d, failed: %d, lost: %d\n", kLanes * kUpdatesEach, failed, lost);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(lost, 0);
}

// A look from outside while eight processes keep taking and giving back the
// lock: none of them is ever called dead.
TEST(PrefsConcurrencyTest, ALiveLockIsNeverCalledStaleUnderEightWriters) {
  constexpr int kWriters = 8;
  constexpr int kSamples = 1500;
  oru_testing::Sandbox sandbox;
  const oru_testing::MemoryDisk disk(sandbox.Path("disk"), kStressDiskBytes);
  ASSERT_TRUE(disk.mounted() || geteuid() != 0);
  const std::string path = sandbox.Path("disk/NuvexUpdaterPrefs.dat");
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  std::vector<oru_testing::ChildProgram> writers;
  for (int p = 0; p < kWriters; ++p) {
    writers.push_back(oru_testing::StartProgram(
        ORU_PREFS_HELPER, {"set-keys", path, "w" + std::to_string(p) + "_", "100"}, gate[0],
        gate[1]));
  }
  close(gate[0]);
  close(gate[1]);
  int stale = 0;
  int held = 0;
  for (int sample = 0; sample < kSamples; ++sample) {
    const LockView view = LookAtLock(path);
    stale += view.stale ? 1 : 0;
    held += view.present ? 1 : 0;
    const struct timespec pause = {0, 200000};
    nanosleep(&pause, nullptr);
  }
  for (oru_testing::ChildProgram& writer : writers) {
    (void)oru_testing::ReadAll(writer); // its count of retries
    EXPECT_EQ(oru_testing::FinishProgram(writer), 0);
  }
  std::printf("samples: %d, lock held in: %d, called stale: %d\n", kSamples, held, stale);
  EXPECT_GT(held, 0);
  EXPECT_EQ(stale, 0);
}

} // namespace
} // namespace esd
