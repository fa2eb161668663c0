// Hand-over latency: from the installer's post to Zelto's first instruction
// (as the fake Zelto measures it), over many hand-overs, against a floor
// measured in the same run: a minimal program that blocks on the same
// semaphore and then starts the same fake app. Also the launcher's start-up
// cost up to its blocking wait, and its peak memory.
//
// Runs in private IPC and mount namespaces (needs root), inside a sandbox.
#include "launcher/handover.h"
#include "locks/updater_lock.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "testing/namespaces.h"
#include "testing/sandbox.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kDefaultRuns = 200;

long long NowNs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

struct Sample {
  double latency_us;
  double startup_us;
  long peak_kib;
};

struct Runner {
  std::string zelto;
  int fifo = -1;

  // A fifo whose last writer has gone reports a hang-up for ever after, so
  // every hand-over listens on a freshly opened one.
  void Listen() {
    if (fifo >= 0) {
      close(fifo);
    }
    fifo = open((zelto + ".fifo").c_str(), O_RDONLY | O_NONBLOCK);
  }

  // Zelto has started once its record is in place (it is renamed there
  // before the byte is written); the fifo only cuts the wait short.
  bool WaitForZelto() {
    const long long deadline = NowNs() + 10000000000LL;
    const std::string record = zelto + ".record";
    while (access(record.c_str(), F_OK) != 0) {
      if (NowNs() > deadline) {
        return false;
      }
      struct pollfd wait = {fifo, POLLIN, 0};
      if (poll(&wait, 1, 1) == 1) {
        char byte;
        (void)!read(fifo, &byte, 1);
      }
    }
    return true;
  }

  long long ZeltoStartNs() {
    std::ifstream in(zelto + ".record");
    long long ns = 0;
    in >> ns;
    return ns;
  }

  // One hand-over of `argv`: start it, post once it waits, time Zelto.
  // `failure` names the step that went wrong.
  bool Run(const std::vector<std::string>& argv, Sample& sample, std::string& failure) {
    unlink((zelto + ".record").c_str());
    Listen();
    UpdaterLock_Wait rendezvous(kSyncOruLauncherWaitKey);
    const long long start = NowNs();
    const pid_t child = fork();
    if (child == 0) {
      std::vector<char*> words;
      for (const std::string& word : argv) {
        words.push_back(const_cast<char*>(word.c_str()));
      }
      words.push_back(nullptr);
      execv(words[0], words.data());
      _exit(127);
    }
    while (semctl(rendezvous.semaphoreSet(), 0, GETNCNT) < 1) {
      if (NowNs() - start > 10000000000LL) {
        failure = "it never waited for the post";
        return false;
      }
    }
    const long long blocked = NowNs();
    const long long post = NowNs();
    rendezvous.Release();
    const bool zelto_started = WaitForZelto();
    int status = 0;
    struct rusage usage {};
    wait4(child, &status, 0, &usage);
    if (!zelto_started) {
      failure = "Zelto did not start; exit status " + std::to_string(status);
      return false;
    }
    sample.latency_us = static_cast<double>(ZeltoStartNs() - post) / 1000.0;
    sample.startup_us = static_cast<double>(blocked - start) / 1000.0;
    sample.peak_kib = usage.ru_maxrss;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      failure = "exit status " + std::to_string(status);
      return false;
    }
    return true;
  }
};

double Percentile(std::vector<double> values, double fraction) {
  std::sort(values.begin(), values.end());
  const size_t index = std::min(values.size() - 1, static_cast<size_t>(fraction * values.size()));
  return values[index];
}

struct Summary {
  double p50_latency, p99_latency, p50_startup;
  long peak_kib;
};

bool Measure(Runner& runner, const std::vector<std::string>& argv, int runs, Summary& summary) {
  std::vector<double> latencies;
  std::vector<double> startups;
  long peak = 0;
  for (int i = 0; i < runs; ++i) {
    Sample sample{};
    std::string failure;
    if (!runner.Run(argv, sample, failure)) {
      std::fprintf(stderr, "hand-over %d of %s failed: %s\n", i, argv[0].c_str(), failure.c_str());
      return false;
    }
    latencies.push_back(sample.latency_us);
    startups.push_back(sample.startup_us);
    peak = std::max(peak, sample.peak_kib);
  }
  summary = {Percentile(latencies, 0.5), Percentile(latencies, 0.99), Percentile(startups, 0.5),
             peak};
  return true;
}

} // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::atoi(argv[1]) : kDefaultRuns;
  if (!oru_testing::EnterPrivateIpcAndShm()) {
    std::fprintf(stderr, "handover_bench needs private IPC and mount namespaces (root)\n");
    return 2;
  }
  oru_testing::Sandbox sandbox;
  Runner runner;
  runner.zelto = sandbox.local_data() + "/Nuvex/OOBE/Zelto/core/Zelto.app/Contents/MacOS/Zelto";
  platform::CreateDirectoryTree(platform::DirName(runner.zelto));
  platform::CopyFileContents(ORU_FAKE_ZELTO, runner.zelto);
  chmod(runner.zelto.c_str(), 0755);
  mkfifo((runner.zelto + ".fifo").c_str(), 0600);
  UpdaterLock installer(kUpdateInstallerKey);

  Summary floor{};
  Summary launcher{};
  const std::vector<std::string> floor_argv = {ORU_HANDOVER_FLOOR,
                                               runner.zelto,
                                               "--appletID=UWA_UI",
                                               "--appletVersion=1.0",
                                               "--workflow=Updater",
                                               "--mode=PostSelfUpdate",
                                               "--updaterUserLocalPath=" + sandbox.data_home() +
                                                   "/Nuvex/OruUpdater"};
  if (!Measure(runner, floor_argv, runs, floor) ||
      !Measure(runner, {ORU_LAUNCHER_EXE}, runs, launcher)) {
    return 1;
  }
  std::printf("\n%d hand-overs each (post -> Zelto's first instruction):\n", runs);
  std::printf("%-28s %12s %12s %14s %10s %10s\n", "variant", "p50 us", "p99 us", "start-up us",
              "peak KiB", "p50 x floor");
  std::printf("%-28s %12.1f %12.1f %14.1f %10ld %10.2f\n", "handover/floor", floor.p50_latency,
              floor.p99_latency, floor.p50_startup, floor.peak_kib, 1.0);
  std::printf("%-28s %12.1f %12.1f %14.1f %10ld %10.2f\n", "handover/OruLauncher",
              launcher.p50_latency, launcher.p99_latency, launcher.p50_startup, launcher.peak_kib,
              launcher.p50_latency / floor.p50_latency);
  return 0;
}
