// Latency of setting and getting one preference on the full updater key set,
// each under the file's inter-process lock, against the floor of the same
// work done with bare system calls: creating and unlinking the named
// semaphore, then the stat, open, write and close of the same bytes.
#include "bench/ratio_reporter.h"
#include "esd/updater_prefs.h"
#include "testing/sandbox.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <semaphore.h>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A throw-away home for the preferences.
oru_testing::Sandbox& Home() {
  static oru_testing::Sandbox home;
  return home;
}

// Every key of the updater set holds a value, as in a file that has been in
// use for a while.
NuvexUpdaterPrefs& Prefs() {
  static NuvexUpdaterPrefs* prefs = [] {
    Home();
    auto* made = new NuvexUpdaterPrefs(false);
    made->AutoCheck.Set(true);
    made->Automatic.Set(1);
    made->DownloadDir.Set(made->DownloadDir.defaultValue);
    made->UserCache.Set(made->UserCache.defaultValue);
    made->DisplayLang.Set("en_US");
    made->LastDateCheck.Set("2026-11-22 10:00:00");
    made->uninstallts.Set("1763800000");
    made->ApplicationsEnabled.Set({{"app-one", true}, {"app-two", false}});
    made->NotificationMessage.Set({{"welcome", "Updates are available"}});
    made->ChannelsInstalled.Set({{"stable", true}});
    made->ChannelsEnabled.Set({{"stable", true}, {"beta", false}});
    made->MoxChannels.Set({{"mox", true}});
    made->ProxyServer.Set("proxy.example.test");
    made->ProxyPort.Set("3128");
    made->LogFile.Set(made->LogFile.defaultValue);
    made->logFileLib.Set(made->logFileLib.defaultValue);
    made->InstallerLogFile.Set(made->InstallerLogFile.defaultValue);
    made->NotificationLogFile.Set(made->NotificationLogFile.defaultValue);
    made->StartupLogFile.Set(made->StartupLogFile.defaultValue);
    made->SilentNotificationLogFile.Set(made->SilentNotificationLogFile.defaultValue);
    made->LogLevel.Set(2);
    made->OSVersion.Set("6.1.0");
    made->VelUVersion.Set("1.0.0");
    made->WebFeedEtag.Set("\"abc123\"");
    made->WebFeedSize.Set(123456);
    made->WebFeedSeqNo.Set(42);
    return made;
  }();
  return *prefs;
}

std::string FileBytes() {
  std::ifstream in(Prefs().prefsPath(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A floor: the lock's own protocol (a named semaphore created exclusively,
// then unlinked) and a look at the file around `save`, in bare system calls.
template <typename Save> void RunFloor(benchmark::State& state, Save save) {
  const std::string path = Prefs().prefsPath() + ".floor";
  const std::string bytes = FileBytes();
  const std::string semaphore = "/oru-bench-floor";
  for (auto _ : state) {
    sem_t* lock = sem_open(semaphore.c_str(), O_CREAT | O_EXCL, 0700, 1);
    struct stat info;
    stat(path.c_str(), &info);
    save(path, bytes);
    sem_unlink(semaphore.c_str());
    sem_close(lock);
  }
  unlink(path.c_str());
  state.counters["file_bytes"] = static_cast<double>(bytes.size());
}

// The same I/O as a save: the new content written beside the file and
// flushed, renamed over it, the folder flushed.
void BM_Floor(benchmark::State& state) {
  RunFloor(state, [](const std::string& path, const std::string& bytes) {
    const std::string temporary = path + ".saving";
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
    (void)!write(fd, bytes.data(), bytes.size());
    fsync(fd);
    close(fd);
    rename(temporary.c_str(), path.c_str());
    const int dir = open(path.substr(0, path.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY);
    fsync(dir);
    close(dir);
  });
}

// What every other program of the product does, and what this one did
// before its saves were made durable: truncate and write in place.
void BM_TruncateInPlace(benchmark::State& state) {
  RunFloor(state, [](const std::string& path, const std::string& bytes) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    (void)!write(fd, bytes.data(), bytes.size());
    close(fd);
  });
}

void BM_Set(benchmark::State& state) {
  NuvexUpdaterPrefs& prefs = Prefs();
  int level = 0;
  for (auto _ : state) {
    if (!prefs.LogLevel.Set(level++ % 5)) {
      state.SkipWithError("set failed");
    }
  }
}

void BM_GetFileUnchanged(benchmark::State& state) {
  NuvexUpdaterPrefs& prefs = Prefs();
  int level = 0;
  for (auto _ : state) {
    if (!prefs.LogLevel.Get(level)) {
      state.SkipWithError("get failed");
    }
    benchmark::DoNotOptimize(level);
  }
}

BENCHMARK(BM_Floor)->Name("prefs/floor")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TruncateInPlace)->Name("prefs/truncate_in_place")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Set)->Name("prefs/set")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GetFileUnchanged)->Name("prefs/get_file_unchanged")->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
  return oru_bench::RunWithRatios(argc, argv);
}
