// oructl explain: what the launcher would do now, without doing it. The
// folders and the argument vector come from the launcher's own functions.
#include "esd/change_type.h"
#include "esd/prefs_snapshot.h"
#include "esd/updater_prefs.h"
#include "launcher/handover.h"
#include "launcher/updater_log.h"
#include "launcher/user_local_path.h"
#include "launcher/zelto.h"
#include "locks/updater_lock.h"
#include "oobe/levels.h"
#include "tools/common/json_output.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/oructl.h"

#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace oructl {

namespace {

// What the plan means, in words.
std::string Sentence(HandOverOutcome outcome, bool zelto_runnable) {
  switch (outcome) {
  case HandOverOutcome::kAlreadyRunning:
    return "another launcher runs: this one would log \"Already running!\" and hand back";
  case HandOverOutcome::kInstallerGone:
    return "no installer runs: the launcher would wait for its post, see it gone, log the "
           "warning and quit";
  case HandOverOutcome::kNoZelto:
    return "Zelto's folder is not found: the launcher would warn and hand back";
  case HandOverOutcome::kStartZelto:
    break;
  }
  return zelto_runnable ? "after the installer's post the launcher would start Zelto as below"
                        : "Zelto is missing or not executable: the launch would fail and the "
                          "launcher would hand back";
}

// What the launcher would find and do now.
struct Explanation {
  HandOverFacts facts;
  std::string zelto;
  bool zeltoRunnable = false;
  HandOverPlan plan;
  std::vector<std::string> argv; // what Zelto would get, whenever its place is known
  UpdaterLogChoice log;
};

// The facts as the launcher would find them now, looked up without making
// or taking anything.
void LookAtHandOver(Explanation& out) {
  HandOverFacts& facts = out.facts;
  const SetState installer = ReadSet(UpdaterLockKey(kUpdateInstallerKey));
  const SetState launcher = ReadSet(UpdaterLockKey(kOruLauncherKey));
  facts.anotherLauncherRuns = launcher.exists && launcher.value == 0;
  facts.installerRunning = installer.exists && installer.value == 0;
  if (FindZeltoExecutable(out.zelto)) {
    facts.zelto = out.zelto;
  }
  std::string user_local;
  if (LookUpUserLocalPath(user_local)) {
    facts.userLocalPath = user_local;
  }
  out.plan = PlanHandOver(facts);
  out.zeltoRunnable = facts.zelto && access(out.zelto.c_str(), X_OK) == 0;
  out.argv = out.plan.argv;
  if (out.argv.empty() && facts.zelto) {
    HandOverFacts ready = facts;
    ready.anotherLauncherRuns = false;
    ready.installerRunning = true;
    out.argv = PlanHandOver(ready).argv;
  }
}

// The log file and level, read as the launcher reads them, without taking
// the lock or changing anything.
UpdaterLogChoice LogAsTheLauncherChoosesIt() {
  const std::string prefs_path = UpdaterPrefsPath();
  std::string log_file;
  std::string level_text;
  int level = -1;
  (void)esd::ReadStoredText(prefs_path, "Preferences", "LogFile", log_file); // else the default
  if (esd::ReadStoredText(prefs_path, "Preferences", "LogLevel", level_text) &&
      !level_text.empty() &&
      !esd::ChangeDiffTypeImpl<std::string, int>::ChangeType(level_text, level)) {
    level = -1;
  }
  return ChooseUpdaterLog(log_file, level, &UpdaterDefaultLogPath, /*looking_only=*/true);
}

void PrintJson(const Explanation& seen, const std::string& said) {
  const UpdaterLogChoice& log = seen.log;
  oru_tools::PrintJson({{"plan", said},
                        {"installer_running", seen.facts.installerRunning},
                        {"launcher_running", seen.facts.anotherLauncherRuns},
                        {"user_local_path", seen.facts.userLocalPath.value_or("")},
                        {"zelto", seen.zelto},
                        {"zelto_executable", seen.zeltoRunnable},
                        {"argv", seen.argv},
                        {"log_file", log.file},
                        {"log_file_refused", log.refusal.empty() ? oru_tools::Json(nullptr)
                                                                 : oru_tools::Json(log.refusal)},
                        {"log_level", log.level},
                        {"library_level", UpdaterLogLibraryLevel(log.level)}});
}

void PrintText(const Explanation& seen, const std::string& said) {
  const HandOverFacts& facts = seen.facts;
  const UpdaterLogChoice& log = seen.log;
  std::printf("plan: %s\n", said.c_str());
  std::printf("installer: %s\n", facts.installerRunning ? "running" : "not running");
  std::printf("user-local folder: %s\n",
              facts.userLocalPath ? facts.userLocalPath->c_str() : "(none)");
  std::printf("Zelto: %s (%s)\n", seen.zelto.c_str(),
              seen.zeltoRunnable ? "present, executable"
              : facts.zelto      ? "missing or not executable"
                                 : "folder not found");
  std::printf("argument vector:\n");
  for (const std::string& word : seen.argv) {
    std::printf("  %s\n", word.c_str());
  }
  std::printf("log file: %s%s\n", log.file.c_str(),
              !log.refusal.empty() ? " (default: the stored LogFile is refused)"
              : log.fileIsDefault  ? " (default; would be written to the preferences)"
                                   : "");
  if (!log.refusal.empty()) {
    std::printf("  the launcher would log: %s\n", log.refusal.c_str());
  }
  std::printf("log level: %d%s (library level %s)\n", log.level,
              log.levelIsDefault ? " (default; would be written to the preferences)" : "",
              oobe::LevelName(UpdaterLogLibraryLevel(log.level)));
}

int RunExplain(const oru_tools::CommandLine& line) {
  Explanation seen;
  LookAtHandOver(seen);
  seen.log = LogAsTheLauncherChoosesIt();
  const std::string said = Sentence(seen.plan.outcome, seen.zeltoRunnable);
  if (line.Has("json")) {
    PrintJson(seen, said);
  } else {
    PrintText(seen, said);
  }
  const bool starts_zelto = seen.plan.outcome == HandOverOutcome::kStartZelto && seen.zeltoRunnable;
  return starts_zelto ? kOk : kNegative;
}

} // namespace

oru_tools::Command ExplainCommand() {
  oru_tools::Command command;
  command.name = "explain";
  command.summary = "what the launcher would do now, without doing it";
  command.about = "Says what the launcher would do if the installer started it now, without\n"
                  "doing it: whether the installer runs and whether another launcher does,\n"
                  "the user-local folder it resolves, the Zelto executable and whether it is\n"
                  "there and executable, the exact argument vector Zelto would get, and the\n"
                  "log file and level. Looks only; makes, changes and takes nothing.";
  command.options = {JsonOption()};
  command.details = "Exit status: 0 the launcher would start Zelto; 1 it would not; 2 error.";
  command.run = &RunExplain;
  return command;
}

} // namespace oructl
