// oru-installer-sim: plays the update installer's side of the post-self-update
// hand-over, so that the launcher can be driven and watched without the real
// installer. Every wait has a time-out.
#include "launcher/handover.h"
#include "launcher/zelto.h"
#include "locks/updater_lock.h"
#include "platform/folders.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"
#include "tools/common/command_table.h"
#include "tools/common/handover_trace.h"
#include "tools/common/json_output.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <errno.h>
#include <memory>
#include <optional>
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

struct Options {
  std::string launcher;
  std::string scenario = "post-now";
  long post_delay_ms = 0;
  long timeout_ms = 10000;
  bool json = false;
  std::string trace;
};

struct Report {
  std::string outcome = "error";
  std::string detail;
  int launcher_exit = -1;
  int second_launcher_exit = -1;
  // Unmeasured when the step did not happen.
  std::optional<double> launcher_blocked_ms;
  std::optional<double> post_to_exit_ms;
  // never-post and die-holding: from the installer's going to the exit.
  std::optional<double> installer_gone_to_exit_ms;
  const char* installer_gone = "";
  long long post_ns = 0;
  oru_tools::HandOverStamps stamps;
};

long long NowNs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

double MsSince(long long start_ns) {
  return static_cast<double>(NowNs() - start_ns) / 1e6;
}

void Pause(long microseconds) {
  const struct timespec pause = {microseconds / 1000000, (microseconds % 1000000) * 1000};
  nanosleep(&pause, nullptr);
}

// Waits until `count` processes block on the set; false after the time-out,
// or as soon as `watched` (when > 0) has exited: `exited` then gets its
// exit status, which a launcher that never waits otherwise hides for the
// whole time-out.
bool WaitForWaiters(int set, int count, long timeout_ms, pid_t watched = -1,
                    int* exited = nullptr) {
  const long long deadline = NowNs() + timeout_ms * 1000000LL;
  while (semctl(set, 0, GETNCNT) < count) {
    int status = 0;
    if (watched > 0 && waitpid(watched, &status, WNOHANG) == watched) {
      if (exited) {
        *exited = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
      return false;
    }
    if (NowNs() > deadline) {
      return false;
    }
    Pause(100);
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
    Pause(200);
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

void EndLauncher(pid_t launcher, int& exit_status) {
  if (exit_status < 0 && launcher > 0) {
    kill(launcher, SIGKILL);
    waitpid(launcher, nullptr, 0);
  }
}

// The launcher releases, then removes, this set when it hands back.
bool HandBackPosted() {
  return semget(UpdaterLockWaitKey(kSyncUInstPostSelfUpdateWaitKey), 1, 0) < 0;
}

// A duration as JSON: null when it was not measured.
oru_tools::Json Measured(const std::optional<double>& ms) {
  return ms ? oru_tools::Json(*ms) : oru_tools::Json(nullptr);
}

std::string Said(const std::optional<double>& ms, const char* measured, const char* unmeasured) {
  if (!ms) {
    return unmeasured;
  }
  char text[64];
  std::snprintf(text, sizeof text, measured, *ms);
  return text;
}

// How the hand-over ended: the time from the post, or, where nothing was
// posted, that and the time from the installer's going.
std::string EndInWords(const Report& report) {
  if (report.post_ns != 0) {
    return Said(report.post_to_exit_ms, "finished %.3f ms after the post", "no post was timed");
  }
  const std::string from_the_installer =
      "; finished %.3f ms after " + std::string(report.installer_gone);
  return "not posted" + Said(report.installer_gone_to_exit_ms, from_the_installer.c_str(), "");
}

void Print(const Report& report, bool json) {
  if (json) {
    oru_tools::PrintJson({{"outcome", report.outcome},
                          {"detail", report.detail},
                          {"launcher_exit", report.launcher_exit},
                          {"second_launcher_exit", report.second_launcher_exit},
                          {"launcher_blocked_ms", Measured(report.launcher_blocked_ms)},
                          {"posted", report.post_ns != 0},
                          {"post_to_exit_ms", Measured(report.post_to_exit_ms)},
                          {"installer_gone_to_exit_ms", Measured(report.installer_gone_to_exit_ms)},
                          {"post_ns", report.post_ns}});
    return;
  }
  std::printf(
      "%s: %s (launcher exit %d; %s; %s)\n", report.outcome.c_str(), report.detail.c_str(),
      report.launcher_exit,
      Said(report.launcher_blocked_ms, "it waited after %.3f ms", "it never waited").c_str(),
      EndInWords(report).c_str());
}

// After the post: how did the launcher end the hand-over?
int Judge(Report& report, int exit_status) {
  report.launcher_exit = exit_status;
  if (exit_status < 0) {
    report.outcome = "launcher-timed-out";
    report.detail = "the launcher did not finish after the post";
    return kExitNegative;
  }
  if (HandBackPosted()) {
    report.outcome = "handed-back";
    report.detail = "the launcher released the installer: Zelto was not started";
    return kExitNegative;
  }
  report.outcome = "zelto-started";
  report.detail = "the launcher started Zelto and left the release to it";
  return exit_status == 0 ? kExitOk : kExitNegative;
}

// Waits until the launcher blocks on the rendezvous. When it does not, ends
// it, fills in the report and returns false.
bool LauncherWaits(const Options& options, UpdaterLock_Wait& rendezvous, pid_t launcher,
                   long long started, Report& report) {
  int exited = -1;
  if (!WaitForWaiters(rendezvous.semaphoreSet(), 1, options.timeout_ms, launcher, &exited)) {
    report.launcher_exit = exited >= 0 ? exited : WaitForExit(launcher, 0);
    report.outcome = "launcher-never-waited";
    report.detail = exited >= 0 ? "the launcher exited before it waited for the installer's post"
                                : "the launcher did not wait for the installer's post";
    EndLauncher(launcher, report.launcher_exit);
    return false;
  }
  report.stamps.launcherBlocked = NowNs();
  report.launcher_blocked_ms = MsSince(started);
  return true;
}

// The launcher waits for the post: time it and post when the scenario says.
int PostAndJudge(const Options& options, UpdaterLock_Wait& rendezvous, pid_t launcher,
                 long long started, Report& report) {
  if (!LauncherWaits(options, rendezvous, launcher, started, report)) {
    return kExitNegative;
  }
  if (options.scenario == "post-after" && options.post_delay_ms > 0) {
    Pause(options.post_delay_ms * 1000);
  }
  report.post_ns = NowNs();
  report.stamps.waitEnded = report.post_ns;
  rendezvous.Release();
  const int exit_status = WaitForExit(launcher, options.timeout_ms);
  report.stamps.launcherExited = exit_status >= 0 ? NowNs() : 0;
  report.post_to_exit_ms = static_cast<double>(NowNs() - report.post_ns) / 1e6;
  const int result = Judge(report, exit_status);
  EndLauncher(launcher, report.launcher_exit);
  return result;
}

// The launcher waits between its looks at whether the installer still
// runs; while it looks it is not blocked on the set, so a single look at
// the set's waiters can catch it between two waits.
constexpr long kLauncherLookMs = 500;

// Whether `launcher` is alive and blocked on `set` at some moment within
// twice the launcher's interval between looks.
bool StillBlockedOn(int set, pid_t launcher) {
  const long long deadline = NowNs() + 2 * kLauncherLookMs * 1000000LL;
  while (WaitForExit(launcher, 0) < 0) {
    if (semctl(set, 0, GETNCNT) >= 1) {
      return true;
    }
    if (NowNs() > deadline) {
      return false;
    }
    Pause(1000);
  }
  return false;
}

// never-post: the launcher must still wait while the installer runs, and
// give up once the installer is gone.
int NeverPost(const Options& options, std::unique_ptr<UpdaterLock>& installer,
              UpdaterLock_Wait& rendezvous, pid_t launcher, long long started, Report& report) {
  if (!LauncherWaits(options, rendezvous, launcher, started, report)) {
    return kExitNegative;
  }
  Pause(options.timeout_ms * 1000);
  const bool still_waiting = StillBlockedOn(rendezvous.semaphoreSet(), launcher);
  installer.reset(); // the installer leaves without posting
  const long long left = NowNs();
  report.stamps.lockReleased = left;
  report.stamps.waitEnded = left;
  report.launcher_exit = WaitForExit(launcher, options.timeout_ms);
  report.stamps.launcherExited = report.launcher_exit >= 0 ? NowNs() : 0;
  report.installer_gone_to_exit_ms = MsSince(left);
  report.installer_gone = "the installer left";
  EndLauncher(launcher, report.launcher_exit);
  if (!still_waiting) {
    report.outcome = "launcher-stopped-waiting";
    report.detail = "the launcher did not keep waiting for the post";
    return kExitNegative;
  }
  report.outcome = "launcher-still-waiting";
  report.detail = report.launcher_exit == 0 && !HandBackPosted()
                      ? "the launcher waited for the whole time-out; once the installer left, "
                        "it gave up without starting Zelto"
                      : "the launcher waited for the whole time-out; after the installer left "
                        "it did not end as expected";
  return report.launcher_exit == 0 ? kExitOk : kExitNegative;
}

// die-holding: a helper holds the installer lock and is killed mid-wait.
int DieHolding(const Options& options, UpdaterLock_Wait& rendezvous, long long started,
               Report& report) {
  int ready[2];
  if (pipe(ready) != 0) {
    report.detail = "no pipe";
    return kExitError;
  }
  const pid_t holder = fork();
  if (holder == 0) {
    close(ready[0]);
    UpdaterLock lock(kUpdateInstallerKey);
    (void)!write(ready[1], "1", 1);
    while (true) {
      pause();
    }
  }
  close(ready[1]);
  char byte;
  const bool held = read(ready[0], &byte, 1) == 1;
  close(ready[0]);
  report.stamps.lockTaken = held ? NowNs() : 0;
  report.stamps.installerPid = holder;
  report.stamps.launcherStarted = NowNs();
  const pid_t launcher = held ? StartLauncher(options.launcher) : -1;
  report.stamps.launcherPid = launcher;
  int exited = -1;
  if (!held || launcher < 0 ||
      !WaitForWaiters(rendezvous.semaphoreSet(), 1, options.timeout_ms, launcher, &exited)) {
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    report.launcher_exit = exited >= 0 ? exited : launcher > 0 ? WaitForExit(launcher, 0) : -1;
    EndLauncher(launcher, report.launcher_exit);
    report.outcome = "launcher-never-waited";
    report.detail = "the launcher did not wait for the installer's post";
    return kExitNegative;
  }
  report.stamps.launcherBlocked = NowNs();
  report.launcher_blocked_ms = MsSince(started);
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  const long long died = NowNs();
  report.stamps.lockReleased = died;
  report.stamps.waitEnded = died;
  report.launcher_exit = WaitForExit(launcher, options.timeout_ms);
  report.stamps.launcherExited = report.launcher_exit >= 0 ? NowNs() : 0;
  report.installer_gone_to_exit_ms = MsSince(died);
  report.installer_gone = "the installer died";
  EndLauncher(launcher, report.launcher_exit);
  if (report.launcher_exit != 0) {
    report.outcome = "launcher-stuck";
    report.detail = "the launcher did not end after the installer died";
    return kExitNegative;
  }
  report.outcome = "installer-died";
  report.detail = "the installer died holding its lock; the launcher gave up without "
                  "starting Zelto";
  return kExitOk;
}

// two-launchers: the second must hand back at once; the first goes on.
int TwoLaunchers(const Options& options, UpdaterLock_Wait& rendezvous, pid_t first,
                 long long started, Report& report) {
  if (!LauncherWaits(options, rendezvous, first, started, report)) {
    return kExitNegative;
  }
  const pid_t second = StartLauncher(options.launcher);
  report.second_launcher_exit = WaitForExit(second, options.timeout_ms);
  EndLauncher(second, report.second_launcher_exit);
  const bool second_handed_back = report.second_launcher_exit == 0 && HandBackPosted();
  report.post_ns = NowNs();
  report.stamps.waitEnded = report.post_ns;
  rendezvous.Release();
  report.launcher_exit = WaitForExit(first, options.timeout_ms);
  report.stamps.launcherExited = report.launcher_exit >= 0 ? NowNs() : 0;
  report.post_to_exit_ms = static_cast<double>(NowNs() - report.post_ns) / 1e6;
  EndLauncher(first, report.launcher_exit);
  if (!second_handed_back || report.launcher_exit != 0) {
    report.outcome = "two-launchers-failed";
    report.detail = second_handed_back ? "the first launcher did not finish after the post"
                                       : "the second launcher did not hand back";
    return kExitNegative;
  }
  report.outcome = "second-handed-back";
  report.detail = "the second launcher found the first running and released the installer; "
                  "the first went on after the post";
  return kExitOk;
}

// Zelto's first instruction, when Zelto reports it in "<executable>.record"
// (the start time in CLOCK_MONOTONIC nanoseconds, first): waits up to the
// time-out for a record from after `not_before`; 0 when none comes.
long long ZeltoStarted(long long not_before, long timeout_ms) {
  std::string zelto;
  if (!FindZeltoExecutable(zelto)) {
    return 0;
  }
  const long long deadline = NowNs() + timeout_ms * 1000000LL;
  do {
    platform::ScopedFd record;
    std::string text;
    if (platform::OpenFileAt(zelto + ".record", platform::OpenOptions(), record) &&
        platform::ReadAll(record.get(), text, 4096)) {
      const long long started = std::atoll(text.c_str());
      if (started >= not_before) {
        return started;
      }
    }
    Pause(1000);
  } while (NowNs() < deadline);
  return 0;
}

bool WriteTrace(const Options& options, Report& report) {
  if (report.outcome == "zelto-started") {
    report.stamps.zeltoStarted = ZeltoStarted(report.stamps.launcherStarted, options.timeout_ms);
  }
  if (!oru_tools::WriteTraceFile(
          options.trace,
          oru_tools::HandOverTrace(report.stamps, options.scenario, report.outcome))) {
    std::fprintf(stderr, "oru-installer-sim: cannot write the trace '%s': %s\n",
                 options.trace.c_str(), std::strerror(errno));
    return false;
  }
  return true;
}

int Run(const Options& options) {
  Report report;
  std::unique_ptr<UpdaterLock> installer;
  if (options.scenario != "die-holding") {
    try {
      installer = std::make_unique<UpdaterLock>(kUpdateInstallerKey);
      report.stamps.lockTaken = NowNs();
      report.stamps.installerPid = getpid();
    } catch (const updater_init_failed&) {
      report.detail = "another installer holds VelUpdater1_Update_Installer";
      Print(report, options.json);
      return kExitError;
    }
  }
  UpdaterLock_Wait own_wait(kSyncUInstPostSelfUpdateWaitKey);
  UpdaterLock_Wait rendezvous(kSyncOruLauncherWaitKey);
  const long long started = NowNs();

  int result = kExitError;
  if (options.scenario == "die-holding") {
    result = DieHolding(options, rendezvous, started, report);
  } else {
    report.stamps.launcherStarted = NowNs();
    const pid_t launcher = StartLauncher(options.launcher);
    report.stamps.launcherPid = launcher;
    if (launcher < 0) {
      report.detail = "the launcher could not be started";
    } else if (options.scenario == "never-post") {
      result = NeverPost(options, installer, rendezvous, launcher, started, report);
    } else if (options.scenario == "two-launchers") {
      result = TwoLaunchers(options, rendezvous, launcher, started, report);
    } else {
      result = PostAndJudge(options, rendezvous, launcher, started, report);
    }
  }
  rendezvous.Remove();
  own_wait.Remove();
  if (installer) {
    installer.reset();
    report.stamps.lockReleased = NowNs();
  }
  Print(report, options.json);
  if (!options.trace.empty() && !WriteTrace(options, report)) {
    return kExitError;
  }
  return result;
}

const std::vector<std::string> kScenarios = {"post-now", "post-after", "never-post", "die-holding",
                                             "two-launchers"};

bool KnownScenario(const std::string& name) {
  return std::find(kScenarios.begin(), kScenarios.end(), name) != kScenarios.end();
}

bool ReadMilliseconds(const std::string& text, long& out) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || end == text.c_str() || *end != '\0' || value < 0) {
    return false;
  }
  out = value;
  return true;
}

// A mistake on the command line, said on one line; false.
bool Usage(const std::string& mistake) {
  std::fprintf(stderr, "oru-installer-sim: %s (see oru-installer-sim --help)\n", mistake.c_str());
  return false;
}

// The launcher the package installs beside these tools; empty when this
// program's own path cannot be told.
std::string InstalledLauncher() {
  std::string self; // a bare executable's "bundle folder" is its own path
  return platform::GetBundleFolder(self) ? platform::DirName(self) + "/" ORU_LAUNCHER_FROM_BIN
                                         : std::string();
}

// The options, each checked before anything starts; false with the one
// mistake said.
bool ReadOptions(const oru_tools::CommandLine& line, Options& options) {
  options.launcher = line.Has("launcher") ? line.Value("launcher") : InstalledLauncher();
  if (line.Has("scenario")) {
    options.scenario = line.Value("scenario");
  }
  options.json = line.Has("json");
  options.trace = line.Value("trace");
  if (line.Has("trace") && options.trace.empty()) {
    return Usage("--trace needs a file name");
  }
  if (!line.words().empty()) {
    return Usage("unexpected '" + line.words().front() + "'");
  }
  if (!line.Has("launcher") && access(options.launcher.c_str(), X_OK) != 0) {
    return Usage("no launcher is installed at '" + options.launcher + "'; give --launcher PATH");
  }
  if (options.launcher.empty()) {
    return Usage("--launcher PATH is required");
  }
  if (access(options.launcher.c_str(), X_OK) != 0) {
    return Usage(
        "the launcher '" + options.launcher + "' " +
        (access(options.launcher.c_str(), F_OK) != 0 ? "does not exist" : "is not executable"));
  }
  if (!KnownScenario(options.scenario)) {
    return Usage("unknown scenario '" + options.scenario + "'" +
                 oru_tools::DidYouMean(options.scenario, kScenarios));
  }
  if (line.Has("post-delay") &&
      !ReadMilliseconds(line.Value("post-delay"), options.post_delay_ms)) {
    return Usage("--post-delay takes whole milliseconds, 0 or more, not '" +
                 line.Value("post-delay") + "'");
  }
  if (line.Has("timeout") &&
      (!ReadMilliseconds(line.Value("timeout"), options.timeout_ms) || options.timeout_ms == 0)) {
    return Usage("--timeout takes whole milliseconds, 1 or more, not '" + line.Value("timeout") +
                 "'");
  }
  return true;
}

int RunSimulator(const oru_tools::CommandLine& line) {
  Options options;
  if (!ReadOptions(line, options)) {
    return kExitError;
  }
  return Run(options);
}

oru_tools::Command SimulatorCommand() {
  oru_tools::Command command;
  command.about = "Plays the update installer's side of the post-self-update hand-over:\n"
                  "holds \"VelUpdater1_Update_Installer\", starts the launcher at PATH, and,\n"
                  "as the scenario says, posts \"VelUpdater1_Sync_OruLauncherWait\" once the\n"
                  "launcher waits for it. Then reports whether the launcher started Zelto or\n"
                  "handed control back by releasing\n"
                  "\"VelUpdater1_Sync_UpdateInstaller_PostSelfUpdateWait\".";
  command.options = {{"launcher", '\0', "PATH",
                      "the launcher executable to start (default: the\n"
                      "installed one, " ORU_LAUNCHER_FROM_BIN " from\n"
                      "this program's folder)",
                      oru_tools::Completer::Files()},
                     {"scenario", '\0', "NAME", "see Scenarios below (default post-now)",
                      oru_tools::Completer::Words(kScenarios)},
                     {"post-delay", '\0', "MS", "delay before posting in post-after (default 0)"},
                     {"timeout", '\0', "MS", "limit on every wait (default 10000)"},
                     {"json", '\0', "", "report as one JSON object"},
                     {"trace", '\0', "FILE",
                      "also write the hand-over as Chrome trace-event JSON\n"
                      "(Perfetto, chrome://tracing): spans for the\n"
                      "installer lock held, launcher start to blocked\n"
                      "wait, the wait, post to launcher exit, and Zelto's\n"
                      "first instruction (when Zelto reports it beside\n"
                      "its executable, as the test app does)",
                      oru_tools::Completer::Files()}};
  command.details = "Scenarios:\n"
                    "  post-now       post as soon as the launcher waits (the default)\n"
                    "  post-after     post --post-delay milliseconds after the launcher waits\n"
                    "  never-post     never post; after --timeout report that the launcher is\n"
                    "                 still waiting, then leave and report what it did then\n"
                    "  die-holding    a helper holds the installer lock and is killed while\n"
                    "                 the launcher waits; report how the launcher reacts\n"
                    "  two-launchers  start a second launcher while the first waits; report\n"
                    "                 what each did";
  command.run = &RunSimulator;
  return command;
}

} // namespace

int main(int argc, char** argv) {
  const oru_tools::Tool tool(
      {"oru-installer-sim",
       "",
       {SimulatorCommand()},
       {{"Examples", "$ oru-installer-sim\n"
                     "$ oru-installer-sim --scenario two-launchers --trace handover.json\n"
                     "$ oru-installer-sim --scenario never-post --timeout 2000 --json"},
        {"Exit status", "0 the scenario ran and the launcher behaved as the hand-over protocol\n"
                        "requires; 1 it did not (it never waited, did not finish in time, or\n"
                        "failed); 2 usage or error."}}});
  return tool.Main(std::vector<std::string>(argv + 1, argv + argc));
}
