// Hand-over latency: from the installer's post to Zelto's first instruction
// (as the fake Zelto measures it), over many hand-overs, against a floor
// measured in the same run: a minimal program that blocks on the same
// semaphore and then starts the same fake app. Also the launcher's start-up
// cost up to its blocking wait, and its peak memory.
//
// Runs in private IPC and mount namespaces (needs root), inside a sandbox.
#include "bench/figures_json.h"
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

struct Variant {
  const char* name;
  std::vector<std::string> argv;
  std::vector<double> latencies;
  std::vector<double> startups;
  long peak_kib = 0;
};

// One hand-over of each variant per round, round after round, so that a slow
// moment of the machine weighs on all of them alike.
bool MeasureInterleaved(Runner& runner, std::vector<Variant>& variants, int runs) {
  for (int i = 0; i < runs; ++i) {
    for (Variant& variant : variants) {
      Sample sample{};
      std::string failure;
      if (!runner.Run(variant.argv, sample, failure)) {
        std::fprintf(stderr, "hand-over %d of %s failed: %s\n", i, variant.name, failure.c_str());
        return false;
      }
      variant.latencies.push_back(sample.latency_us);
      variant.startups.push_back(sample.startup_us);
      variant.peak_kib = std::max(variant.peak_kib, sample.peak_kib);
    }
  }
  return true;
}

} // namespace

int main(int argc, char** argv) {
  // handover_bench [RUNS] [--json FILE]
  const int runs = argc > 1 && std::atoi(argv[1]) > 0 ? std::atoi(argv[1]) : kDefaultRuns;
  const std::string json = oru_bench::JsonPathArgument(argc, argv);
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

  const std::vector<std::string> app = {runner.zelto,
                                        "--appletID=UWA_UI",
                                        "--appletVersion=1.0",
                                        "--workflow=Updater",
                                        "--mode=PostSelfUpdate",
                                        "--updaterUserLocalPath=" + sandbox.data_home() +
                                            "/Nuvex/OruUpdater"};
  const std::string key = std::to_string(UpdaterLockWaitKey(kSyncOruLauncherWaitKey));
  std::vector<std::string> floor_argv = {ORU_HANDOVER_FLOOR, key};
  floor_argv.insert(floor_argv.end(), app.begin(), app.end());
  std::vector<std::string> linked_argv = floor_argv;
  linked_argv[0] = ORU_HANDOVER_FLOOR_LINKED;
  std::vector<Variant> variants = {{"handover/floor (C)", floor_argv, {}, {}, 0},
                                   {"handover/floor linked", linked_argv, {}, {}, 0},
                                   {"handover/OruLauncher", {ORU_LAUNCHER_EXE}, {}, {}, 0}};
  if (!MeasureInterleaved(runner, variants, runs)) {
    return 1;
  }
  const Variant& floor = variants[0];
  const double floor_latency = Percentile(floor.latencies, 0.5);
  const double floor_startup = Percentile(floor.startups, 0.5);
  std::printf("\n%d hand-overs each, interleaved (post -> Zelto's first instruction;\n"
              "start-up: exec -> blocked on the semaphore; floor (C): the same system calls\n"
              "without the project's code; floor linked: that program with every library the\n"
              "launcher loads):\n",
              runs);
  std::printf("%-24s %10s %10s %12s %10s %10s %12s\n", "variant", "p50 us", "p99 us", "start-up us",
              "peak KiB", "p50 x C", "start-up x C");
  std::vector<oru_bench::Figure> figures;
  const char* const kKeys[] = {"floor_c", "floor_linked", "launcher"};
  for (size_t index = 0; index < variants.size(); ++index) {
    const Variant& variant = variants[index];
    const double latency = Percentile(variant.latencies, 0.5);
    const double startup = Percentile(variant.startups, 0.5);
    std::printf("%-24s %10.1f %10.1f %12.1f %10ld %10.2f %12.2f\n", variant.name, latency,
                Percentile(variant.latencies, 0.99), startup, variant.peak_kib,
                latency / floor_latency, startup / floor_startup);
    figures.push_back({std::string("handover/") + kKeys[index], latency, variant.peak_kib});
    figures.push_back({std::string("startup/") + kKeys[index], startup, variant.peak_kib});
  }
  if (!json.empty() && !oru_bench::WriteFigures(json, figures)) {
    return 1;
  }
  return 0;
}
