// What writing to the shared log costs:
//  - one process, per line: a registered target (file lock, format,
//    redaction, flush) against the floor of the same bytes written with one
//    write(2) per line under the same semaphore lock, and beside spdlog's
//    file sink flushing every line (which takes no cross-process lock);
//  - four processes flat out on one file, against the floor's four-process
//    figure;
//  - rotating a 50 MiB log against cp of the same file (the floor).
#include "bench/ratio_reporter.h"
#include "oobe/log_manager.h"
#include "oobe/log_target.h"
#include "testing/sandbox.h"

#include <benchmark/benchmark.h>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <string>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kLinesPerProcess = 20000;
constexpr int kProcesses = 4;
constexpr uint64_t kRotatedBytes = 50ull * 1024 * 1024;
const char kMessage[] = "Oru Launcher : Zelto executable path is  = /usr/local/share/Nuvex/OOBE/"
                        "Zelto/core/Zelto.app/Contents/MacOS/Zelto";

// A throw-away home: the logs, their markers and the user's logs folder.
struct BenchFolder {
  oru_testing::Sandbox sandbox;
  std::string path = sandbox.root();
};

BenchFolder& Folder() {
  static BenchFolder folder;
  return folder;
}

// The line a target writes for kMessage, to give the floor the same bytes.
std::string SampleLine() {
  return "11/22/26 10:00:00:000 | [INFO] |  | UPDATER | SHARED |  |  |  | 123456 | " +
         std::string(kMessage) + "\n";
}

// The floor's lock, with none of the project's code: a System V semaphore
// taken and given back with SEM_UNDO around each write, as the file lock's
// protocol does. Made before the writers fork, so all of them share it.
class RawLock {
public:
  RawLock() : set_(semget(IPC_PRIVATE, 1, 0600)) {
    struct sembuf open = {0, +1, 0};
    semop(set_, &open, 1);
  }
  ~RawLock() { semctl(set_, 0, IPC_RMID); }
  void Take() const {
    struct sembuf take = {0, -1, SEM_UNDO};
    while (semop(set_, &take, 1) != 0 && errno == EINTR) {
    }
  }
  void Give() const {
    struct sembuf give = {0, +1, SEM_UNDO};
    semop(set_, &give, 1);
  }

private:
  int set_;
};

// The floor: one write(2) per line under the raw lock.
void FloorLines(const std::string& path, const RawLock& lock, int lines) {
  const std::string line = SampleLine();
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
  for (int i = 0; i < lines; ++i) {
    lock.Take();
    (void)!write(fd, line.data(), line.size());
    lock.Give();
  }
  close(fd);
}

void TargetLines(oobe::LogTargetDefault& target, int lines) {
  for (int i = 0; i < lines; ++i) {
    oobe::LogManager::Instance().Write(target.GetName(), oobe::kLevelInfo, "", "UPDATER", "SHARED",
                                       "", "", "", kMessage, 0);
  }
}

void BM_Floor(benchmark::State& state) {
  const std::string path = Folder().path + "/floor.log";
  const std::string line = SampleLine();
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
  const RawLock lock;
  for (auto _ : state) {
    lock.Take();
    (void)!write(fd, line.data(), line.size());
    lock.Give();
  }
  close(fd);
  state.SetItemsProcessed(state.iterations());
}

void BM_Target(benchmark::State& state) {
  oobe::LogTargetDefault target("BENCH");
  target.SetLogFile("target.log", Folder().path.c_str());
  oobe::LogManager::Instance().AddTarget(&target);
  for (auto _ : state) {
    TargetLines(target, 1);
  }
  oobe::LogManager::Instance().RemoveTarget("BENCH", &target);
  state.SetItemsProcessed(state.iterations());
}

void BM_Spdlog(benchmark::State& state) {
  auto logger = spdlog::basic_logger_mt("bench", Folder().path + "/spdlog.log");
  logger->set_pattern("%D %T:%e | [%l] |  | UPDATER | SHARED |  |  |  | %t | %v");
  logger->flush_on(spdlog::level::trace);
  for (auto _ : state) {
    logger->info(kMessage);
  }
  spdlog::drop("bench");
  state.SetItemsProcessed(state.iterations());
}

// Forks the writers, waits for all of them, and reports the wall time.
template <typename Body> void RunProcesses(benchmark::State& state, Body body) {
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
      const pid_t child = fork();
      if (child == 0) {
        body();
        _exit(0);
      }
      children.push_back(child);
    }
    for (pid_t child : children) {
      waitpid(child, nullptr, 0);
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(elapsed.count());
  }
  state.SetItemsProcessed(state.iterations() * kProcesses * kLinesPerProcess);
}

void BM_FloorFourProcesses(benchmark::State& state) {
  const std::string path = Folder().path + "/floor4.log";
  const RawLock lock;
  RunProcesses(state, [&] { FloorLines(path, lock, kLinesPerProcess); });
}

void BM_TargetFourProcesses(benchmark::State& state) {
  RunProcesses(state, [&] {
    oobe::LogTargetDefault target("BENCH4");
    target.SetLogFile("target4.log", Folder().path.c_str());
    oobe::LogManager::Instance().AddTarget(&target);
    TargetLines(target, kLinesPerProcess);
    oobe::LogManager::Instance().RemoveTarget("BENCH4", &target);
  });
}

// A full log as rotation finds it: written long ago, so already on disk.
void MakeBigLog(const std::string& path) {
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    const std::string line = SampleLine();
    for (uint64_t written = 0; written < kRotatedBytes; written += line.size()) {
      out << line;
    }
  }
  const int fd = open(path.c_str(), O_RDONLY);
  fsync(fd);
  close(fd);
}

void BM_CopyWithCp(benchmark::State& state) {
  const std::string path = Folder().path + "/big.log";
  MakeBigLog(path);
  const std::string copy = Folder().path + "/big-copy.log";
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
      execl("/bin/cp", "cp", path.c_str(), copy.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(elapsed.count());
    unlink(copy.c_str());
  }
  unlink(path.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRotatedBytes));
}

// The rotation's real floor: the same system calls with nothing around
// them, the copy in the kernel and then the truncation of the live file.
void BM_CopyAndTruncate(benchmark::State& state) {
  const std::string path = Folder().path + "/floor.log";
  const std::string copy = Folder().path + "/floor-copy.log";
  for (auto _ : state) {
    MakeBigLog(path);
    const auto start = std::chrono::steady_clock::now();
    const int from = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    while (copy_file_range(from, nullptr, to, nullptr, 1 << 30, 0) > 0) {
    }
    close(to);
    close(from);
    const int live = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    (void)!ftruncate(live, 0);
    close(live);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(elapsed.count());
    unlink(copy.c_str());
  }
  unlink(path.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRotatedBytes));
}

void BM_Rotate(benchmark::State& state) {
  const std::string folder = Folder().path + "/rotate";
  mkdir(folder.c_str(), 0755);
  std::ofstream(folder + "/asu.trace") << "keeplogs"; // keep copies: measure the rotation only
  for (auto _ : state) {
    state.PauseTiming();
    MakeBigLog(folder + "/rotate.log");
    oobe::LogTargetDefault target("ROTATE");
    target.SetLogFile("rotate.log", folder.c_str());
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    const bool rotated = target.CheckSizeAndCleanUp();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(elapsed.count());
    state.PauseTiming();
    target.Close();
    (void)!system(("rm -f '" + folder + "'/rotate\\ *").c_str());
    if (!rotated) {
      state.SkipWithError("rotation failed");
    }
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRotatedBytes));
}

BENCHMARK(BM_Floor)->Name("log_line/floor");
BENCHMARK(BM_Target)->Name("log_line/oobe_target");
BENCHMARK(BM_Spdlog)->Name("log_line/spdlog_flush_each");
BENCHMARK(BM_FloorFourProcesses)
    ->Name("log_4_processes/floor")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(BM_TargetFourProcesses)
    ->Name("log_4_processes/oobe_target")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(BM_CopyAndTruncate)
    ->Name("rotate_50MiB/floor")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(BM_CopyWithCp)
    ->Name("rotate_50MiB/cp")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(BM_Rotate)
    ->Name("rotate_50MiB/oobe_rotation")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

} // namespace

int main(int argc, char** argv) {
  return oru_bench::RunWithRatios(argc, argv);
}
