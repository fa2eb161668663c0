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

const char kUsage[] = "Usage: oructl explain [--json]\n"
                      "\n"
                      "Says what the launcher would do if the installer started it now, without\n"
                      "doing it: whether the installer runs and whether another launcher does,\n"
                      "the user-local folder it resolves, the Zelto executable and whether it is\n"
                      "there and executable, the exact argument vector Zelto would get, and the\n"
                      "log file and level. Looks only; makes, changes and takes nothing.\n"
                      "\n"
                      "Exit status: 0 the launcher would start Zelto; 1 it would not; 2 error.\n";

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

} // namespace

int ExplainCommand(const Arguments& given) {
  oru_tools::CommandLine line({});
  int status = kOk;
  if (!BeginCommand(given, kUsage, {{"json", false}}, line, status)) {
    return status;
  }
  if (!line.words().empty()) {
    return FailUnexpected(line, "explain");
  }
  const bool json = line.Has("json");
  // The facts as the launcher would find them now, looked up without
  // making or taking anything.
  HandOverFacts facts;
  const SetState installer = ReadSet(UpdaterLockKey(kUpdateInstallerKey));
  const SetState launcher = ReadSet(UpdaterLockKey(kOruLauncherKey));
  facts.anotherLauncherRuns = launcher.exists && launcher.value == 0;
  facts.installerRunning = installer.exists && installer.value == 0;
  std::string zelto;
  if (FindZeltoExecutable(zelto)) {
    facts.zelto = zelto;
  }
  std::string user_local;
  if (LookUpUserLocalPath(user_local)) {
    facts.userLocalPath = user_local;
  }
  const HandOverPlan plan = PlanHandOver(facts);
  const bool zelto_runnable = facts.zelto && access(zelto.c_str(), X_OK) == 0;
  const bool starts_zelto = plan.outcome == HandOverOutcome::kStartZelto && zelto_runnable;

  // Read as the launcher reads them, without taking the lock or changing
  // anything.
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
  const UpdaterLogChoice log =
      ChooseUpdaterLog(log_file, level, &UpdaterDefaultLogPath, /*looking_only=*/true);
  const bool file_default = log.fileIsDefault;
  const bool level_default = log.levelIsDefault;
  log_file = log.file;
  level = log.level;
  const std::string said = Sentence(plan.outcome, zelto_runnable);
  // The vector Zelto would get; shown whenever Zelto's place is known.
  std::vector<std::string> argv = plan.argv;
  if (argv.empty() && facts.zelto) {
    HandOverFacts ready = facts;
    ready.anotherLauncherRuns = false;
    ready.installerRunning = true;
    argv = PlanHandOver(ready).argv;
  }
  if (json) {
    oru_tools::PrintJson({{"plan", said},
                          {"installer_running", facts.installerRunning},
                          {"launcher_running", facts.anotherLauncherRuns},
                          {"user_local_path", facts.userLocalPath.value_or("")},
                          {"zelto", zelto},
                          {"zelto_executable", zelto_runnable},
                          {"argv", argv},
                          {"log_file", log_file},
                          {"log_file_refused", log.refusal.empty() ? oru_tools::Json(nullptr)
                                                                   : oru_tools::Json(log.refusal)},
                          {"log_level", level},
                          {"library_level", UpdaterLogLibraryLevel(level)}});
  } else {
    std::printf("plan: %s\n", said.c_str());
    std::printf("installer: %s\n", facts.installerRunning ? "running" : "not running");
    std::printf("user-local folder: %s\n",
                facts.userLocalPath ? facts.userLocalPath->c_str() : "(none)");
    std::printf("Zelto: %s (%s)\n", zelto.c_str(),
                zelto_runnable ? "present, executable"
                : facts.zelto  ? "missing or not executable"
                               : "folder not found");
    std::printf("argument vector:\n");
    for (const std::string& word : argv) {
      std::printf("  %s\n", word.c_str());
    }
    std::printf("log file: %s%s\n", log_file.c_str(),
                !log.refusal.empty() ? " (default: the stored LogFile is refused)"
                : file_default       ? " (default; would be written to the preferences)"
                                     : "");
    if (!log.refusal.empty()) {
      std::printf("  the launcher would log: %s\n", log.refusal.c_str());
    }
    std::printf("log level: %d%s (library level %s)\n", level,
                level_default ? " (default; would be written to the preferences)" : "",
                oobe::LevelName(UpdaterLogLibraryLevel(level)));
  }
  return starts_zelto ? kOk : kNegative;
}

} // namespace oructl
