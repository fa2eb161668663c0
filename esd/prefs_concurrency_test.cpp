// Several processes changing one preferences file at once: every update
// made must be in the file afterwards.
#include "esd/prefs_writer.h"
#include "esd/typed_prefs.h"
#include "testing/child_process.h"
#include "testing/sandbox.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

namespace esd {
namespace {

constexpr int kKeyWriters = 4;
constexpr int kKeysEach = 200;
constexpr int kMapWriters = 4;
constexpr int kEntriesEach = 50;

TEST(PrefsConcurrencyTest, NoUpdateIsLostWhenEightProcessesWriteAtOnce) {
  oru_testing::Sandbox sandbox;
  const std::string path = sandbox.Path("NuvexUpdaterPrefs.dat");
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

} // namespace
} // namespace esd
