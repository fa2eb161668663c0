// oru-installer-sim: plays the update installer's side of the post-self-update
// hand-over, so that the launcher can be driven and watched without the real
// installer. Every wait has a time-out.
#include "launcher/handover.h"
#include "locks/updater_lock.h"

#include <cstdio>
#include <cstdlib>
#include <errno.h>
#include <getopt.h>
#include <memory>
#include <signal.h>
#include <string>
#include <sys/sem.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitNegative = 1;
constexpr int kExitError = 2;

const char kUsage[] = "Usage: oru-installer-sim --launcher PATH [options]\n"
                      "\n"
                      "Plays the update installer's side of the post-self-update hand-over:\n"
                      "holds \"VelUpdater1_Update_Installer\", starts the launcher at PATH, posts\n"
                      "\"VelUpdater1_Sync_OruLauncherWait\" once the launcher waits for it, then\n"
                      "reports whether the launcher started Zelto or handed control back by\n"
                      "releasing \"VelUpdater1_Sync_UpdateInstaller_PostSelfUpdateWait\".\n"
                      "\n"
                      "Options:\n"
                      "  --launcher PATH       the launcher executable to start\n"
                      "  --post-delay MS       wait MS milliseconds before posting (default 0)\n"
                      "  --timeout MS          limit on every wait (default 10000)\n"
                      "  --json                report as one JSON object\n"
                      "  --help                this text\n"
                      "  --version             the tool's version\n"
                      "\n"
                      "Exit status: 0 the hand-over completed; 1 it did not (the launcher never\n"
                      "waited, did not finish in time, or failed); 2 usage or error.\n";

struct Options {
  std::string launcher;
  long post_delay_ms = 0;
  long timeout_ms = 10000;
  bool json = false;
};

struct Report {
  std::string outcome = "error";
  std::string detail;
  int launcher_exit = -1;
  double launcher_blocked_ms = -1;
  double post_to_exit_ms = -1;
  long long post_ns = 0;
};

long long NowNs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

double MsSince(long long start_ns) {
  return static_cast<double>(NowNs() - start_ns) / 1e6;
}

bool WaitForWaiter(int set, long timeout_ms) {
  const long long deadline = NowNs() + timeout_ms * 1000000LL;
  while (semctl(set, 0, GETNCNT) < 1) {
    if (NowNs() > deadline) {
      return false;
    }
    const struct timespec pause = {0, 100000}; // 0.1 ms between looks
    nanosleep(&pause, nullptr);
  }
  return true;
}

// Waits for the child to exit, at most timeout_ms; -1 on time-out.
int WaitForExit(pid_t child, long timeout_ms) {
  const long long deadline = NowNs() + timeout_ms * 1000000LL;
  while (true) {
    int status = 0;
    const pid_t done = waitpid(child, &status, WNOHANG);
    if (done == child) {
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    if (done < 0 || NowNs() > deadline) {
      return -1;
    }
    const struct timespec pause = {0, 200000};
    nanosleep(&pause, nullptr);
  }
}

pid_t StartLauncher(const std::string& path) {
  const pid_t child = fork();
  if (child == 0) {
    execl(path.c_str(), path.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  return child;
}

void Print(const Report& report, bool json) {
  if (json) {
    std::printf("{\"outcome\":\"%s\",\"detail\":\"%s\",\"launcher_exit\":%d,"
                "\"launcher_blocked_ms\":%.3f,\"post_to_exit_ms\":%.3f,\"post_ns\":%lld}\n",
                report.outcome.c_str(), report.detail.c_str(), report.launcher_exit,
                report.launcher_blocked_ms, report.post_to_exit_ms, report.post_ns);
    return;
  }
  std::printf("%s: %s (launcher exit %d; it waited after %.3f ms; finished %.3f ms after the "
              "post)\n",
              report.outcome.c_str(), report.detail.c_str(), report.launcher_exit,
              report.launcher_blocked_ms, report.post_to_exit_ms);
}

int Run(const Options& options) {
  Report report;
  std::unique_ptr<UpdaterLock> installer;
  try {
    installer = std::make_unique<UpdaterLock>(kUpdateInstallerKey);
  } catch (const updater_init_failed&) {
    report.detail = "another installer holds VelUpdater1_Update_Installer";
    Print(report, options.json);
    return kExitError;
  }
  UpdaterLock_Wait own_wait(kSyncUInstPostSelfUpdateWaitKey);
  UpdaterLock_Wait rendezvous(kSyncOruLauncherWaitKey);

  const long long started = NowNs();
  const pid_t launcher = StartLauncher(options.launcher);
  if (launcher < 0) {
    report.detail = "the launcher could not be started";
    Print(report, options.json);
    return kExitError;
  }
  int result = kExitNegative;
  if (!WaitForWaiter(rendezvous.semaphoreSet(), options.timeout_ms)) {
    report.launcher_exit = WaitForExit(launcher, 0);
    report.outcome = "launcher-never-waited";
    report.detail = "the launcher did not wait for the installer's post";
  } else {
    report.launcher_blocked_ms = MsSince(started);
    if (options.post_delay_ms > 0) {
      const struct timespec delay = {options.post_delay_ms / 1000,
                                     (options.post_delay_ms % 1000) * 1000000L};
      nanosleep(&delay, nullptr);
    }
    report.post_ns = NowNs();
    rendezvous.Release();
    report.launcher_exit = WaitForExit(launcher, options.timeout_ms);
    report.post_to_exit_ms = static_cast<double>(NowNs() - report.post_ns) / 1e6;
    // The launcher releases and then removes this set when it hands back.
    const bool released = semget(UpdaterLockWaitKey(kSyncUInstPostSelfUpdateWaitKey), 1, 0) < 0;
    if (report.launcher_exit < 0) {
      report.outcome = "launcher-timed-out";
      report.detail = "the launcher did not finish after the post";
    } else if (released) {
      report.outcome = "handed-back";
      report.detail = "the launcher released the installer: Zelto was not started";
    } else {
      report.outcome = "zelto-started";
      report.detail = "the launcher started Zelto and left the release to it";
      result = report.launcher_exit == 0 ? kExitOk : kExitNegative;
    }
  }
  if (report.launcher_exit < 0) {
    kill(launcher, SIGKILL);
    waitpid(launcher, nullptr, 0);
  }
  rendezvous.Remove();
  own_wait.Remove();
  Print(report, options.json);
  return result;
}

} // namespace

int main(int argc, char** argv) {
  Options options;
  static const struct option kOptions[] = {{"launcher", required_argument, nullptr, 'l'},
                                           {"post-delay", required_argument, nullptr, 'd'},
                                           {"timeout", required_argument, nullptr, 't'},
                                           {"json", no_argument, nullptr, 'j'},
                                           {"help", no_argument, nullptr, 'h'},
                                           {"version", no_argument, nullptr, 'v'},
                                           {nullptr, 0, nullptr, 0}};
  int option = 0;
  while ((option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    switch (option) {
    case 'l':
      options.launcher = optarg;
      break;
    case 'd':
      options.post_delay_ms = std::strtol(optarg, nullptr, 10);
      break;
    case 't':
      options.timeout_ms = std::strtol(optarg, nullptr, 10);
      break;
    case 'j':
      options.json = true;
      break;
    case 'h':
      std::fputs(kUsage, stdout);
      return kExitOk;
    case 'v':
      std::puts("oru-installer-sim 1.0.0");
      return kExitOk;
    default:
      std::fputs(kUsage, stderr);
      return kExitError;
    }
  }
  if (options.launcher.empty() || optind != argc || options.timeout_ms <= 0 ||
      options.post_delay_ms < 0) {
    std::fputs(kUsage, stderr);
    return kExitError;
  }
  return Run(options);
}
