// Latency of setting and getting one preference on the full updater key set,
// each under the file's inter-process lock, against floors of the same work
// done with bare system calls: for a set, creating and unlinking the named
// semaphore around the durable save's I/O; for a get, the semaphore and one
// stat. Also the load of a file of a million elements.
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

// The floor of a get with the file unchanged: the lock's own protocol and
// one look at the file, nothing else.
void BM_GetFloor(benchmark::State& state) {
  const std::string path = Prefs().prefsPath();
  const std::string semaphore = "/oru-bench-get-floor";
  for (auto _ : state) {
    sem_t* lock = sem_open(semaphore.c_str(), O_CREAT | O_EXCL, 0700, 1);
    struct stat info;
    stat(path.c_str(), &info);
    sem_unlink(semaphore.c_str());
    sem_close(lock);
    benchmark::DoNotOptimize(info.st_mtime);
  }
}

// A well-formed file of a million flat elements (within the reader's size
// limit) read into the store, and one lookup in it.
void BM_LoadMillionElements(benchmark::State& state) {
  static const std::string path = [] {
    const std::string file = Home().Path("million.dat");
    std::ofstream out(file, std::ios::binary);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<Preferences>\n";
    for (int i = 0; i < 999990; ++i) {
      out << "<e" << i % 100 << ">" << i % 10 << "</e" << i % 100 << ">\n";
    }
    out << "<LogLevel>3</LogLevel>\n</Preferences>\n";
    return file;
  }();
  for (auto _ : state) {
    esd::PrefsWriter writer(path, "Preferences");
    int level = 0;
    if (writer.fileState() != esd::PrefsFileState::kRead ||
        !writer.GetPref<int>("LogLevel", level, 0) || level != 3) {
      state.SkipWithError("the file did not load");
    }
  }
}

BENCHMARK(BM_Floor)->Name("prefs_set/floor")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TruncateInPlace)->Name("prefs_set/truncate_in_place")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Set)->Name("prefs_set/set")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GetFileUnchanged)->Name("prefs_get/file_unchanged")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GetFloor)->Name("prefs_get/floor")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LoadMillionElements)
    ->Name("prefs_load/1m_elements")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

} // namespace

int main(int argc, char** argv) {
  return oru_bench::RunWithRatios(argc, argv);
}
