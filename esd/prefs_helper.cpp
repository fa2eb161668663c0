// Another process of the updater working on a shared preferences file, for
// the multi-process tests. Waits until its standard input closes (the start
// gate), then:
//   prefs_helper set-keys PATH PREFIX COUNT
//     sets the int keys PREFIX0..PREFIX<COUNT-1> to i, then to i + 1000000;
//   prefs_helper ack-keys PATH PREFIX COUNT
//     sets the int keys PREFIX0..PREFIX<COUNT-1> to i, printing i on its
//     own line as soon as the save of that key has returned;
//   prefs_helper map-add PATH MAP PREFIX COUNT
//     adds PREFIX0..PREFIX<COUNT-1> to the bool map MAP, one at a time, each
//     as a read-modify-write under the file's lock.
// A contended lock that times out is tried again; the number of such retries
// is printed. Exit status 0 when every update was made.
//
// Without the start gate:
//   prefs_helper updater-set KEY
//     one change, as each short-lived process of the updater makes it: the
//     updater's own preferences (found through HOME and XDG) set the int
//     KEY to 1, once, without retries. Exit status 0 when it was saved.
//   prefs_helper updater-increment KEY
//     the same, but the int KEY goes up by one from what this process read.
//   prefs_helper observe PATH TARGET KEY...
//     reads the int KEYs under the file's lock, again and again, until each
//     holds TARGET; prints "samples N regressions M", where a regression is
//     a key seen lower than it was seen before.
#include "esd/prefs_writer.h"
#include "esd/typed_prefs.h"
#include "esd/updater_prefs.h"
#include "locks/resource_locker.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kMaxRetries = 1000;

template <typename Update> bool WithRetries(Update update, int& retries) {
  for (int attempt = 0; attempt < kMaxRetries; ++attempt) {
    if (update()) {
      return true;
    }
    ++retries;
  }
  return false;
}

// See the file comment; gives up (exit 1) after kObserveSeconds.
int Observe(const std::string& path, int target, const std::vector<std::string>& keys) {
  constexpr int kObserveSeconds = 600;
  esd::ResourceLocker locker(path, 3000);
  esd::PrefsWriter writer("", "Preferences");
  writer.setLockPolicy(&locker);
  writer.NamePrefsPath(path);
  std::map<std::string, int> seen;
  long samples = 0;
  long regressions = 0;
  const time_t give_up = time(nullptr) + kObserveSeconds;
  while (time(nullptr) < give_up) {
    if (!writer.LockPrefs()) {
      continue;
    }
    bool done = true;
    for (const std::string& key : keys) {
      int value = 0;
      if (!writer.GetPref<int>(key, value, 0)) {
        continue;
      }
      if (value < seen[key]) {
        ++regressions;
      }
      seen[key] = std::max(seen[key], value);
      done = done && value == target;
    }
    (void)locker.Unlock(false);
    ++samples;
    if (done) {
      std::cout << "samples " << samples << " regressions " << regressions << std::endl;
      return 0;
    }
    usleep(1000);
  }
  return 1;
}

} // namespace

int main(int argc, char** argv) {
  const bool updater_change = argc == 3 && (std::string(argv[1]) == "updater-set" ||
                                            std::string(argv[1]) == "updater-increment");
  if (argc < 3 || (argc < 5 && !updater_change)) {
    std::fprintf(stderr, "usage: prefs_helper set-keys|ack-keys PATH PREFIX COUNT | "
                         "map-add PATH MAP PREFIX COUNT\n");
    return 2;
  }
  const std::string command = argv[1];
  if (command == "updater-set" && argc == 3) {
    return GetUpdaterPrefs(false).SetPref<int>(argv[2], 1) ? 0 : 1;
  }
  if (command == "updater-increment" && argc == 3) {
    NuvexUpdaterPrefs& prefs = GetUpdaterPrefs(false);
    int value = 0;
    (void)prefs.GetPref<int>(argv[2], value, 0);
    return prefs.SetPref<int>(argv[2], value + 1) ? 0 : 1;
  }
  const std::string path = argv[2];
  if (command == "observe") {
    return Observe(path, std::stoi(argv[3]), std::vector<std::string>(argv + 4, argv + argc));
  }
  std::string gate;
  while (std::getline(std::cin, gate)) {
  }

  // As the updater's own preferences do: the lock guards the file before
  // the first read, which the first update makes under it.
  esd::ResourceLocker locker(path, 3000);
  esd::PrefsWriter writer("", "Preferences");
  writer.setLockPolicy(&locker);
  writer.NamePrefsPath(path);
  int retries = 0;

  if (command == "set-keys" && argc == 5) {
    const std::string prefix = argv[3];
    const int count = std::stoi(argv[4]);
    for (int round = 0; round < 2; ++round) {
      for (int i = 0; i < count; ++i) {
        const int value = i + round * 1000000;
        if (!WithRetries([&] { return writer.SetPref<int>(prefix + std::to_string(i), value); },
                         retries)) {
          return 1;
        }
      }
    }
  } else if (command == "ack-keys" && argc == 5) {
    const std::string prefix = argv[3];
    const int count = std::stoi(argv[4]);
    for (int i = 0; i < count; ++i) {
      if (!WithRetries([&] { return writer.SetPref<int>(prefix + std::to_string(i), i); },
                       retries)) {
        return 1;
      }
      std::cout << i << std::endl;
    }
  } else if (command == "map-add" && argc == 6) {
    esd::MapPref<std::string, bool> map(argv[3]);
    map.prefs = &writer;
    const std::string prefix = argv[4];
    const int count = std::stoi(argv[5]);
    for (int i = 0; i < count; ++i) {
      const bool added = WithRetries(
          [&] {
            if (!writer.LockPrefs()) {
              return false;
            }
            std::map<std::string, bool> entries;
            const bool ok = map.Get(entries) &&
                            (entries[prefix + std::to_string(i)] = i % 2 == 0, map.Set(entries));
            (void)locker.Unlock(false);
            return ok;
          },
          retries);
      if (!added) {
        return 1;
      }
    }
  } else {
    return 2;
  }
  std::cout << retries << std::endl;
  return 0;
}
