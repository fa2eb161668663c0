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
#include "esd/prefs_writer.h"
#include "esd/typed_prefs.h"
#include "locks/resource_locker.h"

#include <cstdio>
#include <iostream>
#include <map>
#include <string>

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

} // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: prefs_helper set-keys|ack-keys PATH PREFIX COUNT | "
                         "map-add PATH MAP PREFIX COUNT\n");
    return 2;
  }
  const std::string command = argv[1];
  const std::string path = argv[2];
  std::string gate;
  while (std::getline(std::cin, gate)) {
  }

  // As the updater's own preferences do: read the file first, then guard
  // it. A first read that had to wait for the lock could time out and leave
  // the writer without a document while no file exists yet.
  esd::ResourceLocker locker(path, 3000);
  esd::PrefsWriter writer(path, "Preferences");
  writer.setLockPolicy(&locker);
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
