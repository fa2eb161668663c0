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
#include "platform/paths.h"
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
                      "log file and level. Like the launcher, it makes the user's updater folder\n"
                      "if it is missing; it writes nothing else.\n"
                      "\n"
                      "Exit status: 0 the launcher would start Zelto; 1 it would not; 2 error.\n";

} // namespace

int ExplainCommand(const Arguments& given) {
  Arguments arguments = given;
  bool json = false;
  int status = kOk;
  if (!BeginCommand(arguments, kUsage, false, json, status)) {
    return status;
  }
  const SetState installer = ReadSet(UpdaterLockKey(kUpdateInstallerKey));
  const SetState launcher = ReadSet(UpdaterLockKey(kOruLauncherKey));
  const bool installer_running = installer.exists && installer.value == 0;
  const bool launcher_running = launcher.exists && launcher.value == 0;

  std::string zelto;
  const bool zelto_found = FindZeltoExecutable(zelto);
  const bool zelto_runnable = zelto_found && access(zelto.c_str(), X_OK) == 0;
  std::vector<std::string> argv{zelto};
  for (int slot = 0; slot < 4; ++slot) {
    argv.push_back(gZeltoArguments[slot]);
  }
  std::string user_local;
  const bool has_user_local = GetUserLocalPath(user_local);
  if (has_user_local) {
    argv.push_back("--updaterUserLocalPath=" + platform::DirName(user_local));
  }

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
  const bool file_default = log_file.empty();
  const bool level_default = level == -1;
  if (file_default) {
    log_file = UpdaterDefaultLogFile();
  }
  if (level_default) {
    level = 2;
  }

  std::string plan;
  bool starts_zelto = false;
  if (launcher_running) {
    plan = "another launcher runs: this one would log \"Already running!\" and hand back";
  } else if (!installer_running) {
    plan = "no installer runs: the launcher would wait for its post, see it gone, log the "
           "warning and quit";
  } else if (!zelto_found) {
    plan = "Zelto's folder is not found: the launcher would warn and hand back";
  } else if (!zelto_runnable) {
    plan = "Zelto is missing or not executable: the launch would fail and the launcher would "
           "hand back";
  } else {
    plan = "after the installer's post the launcher would start Zelto as below";
    starts_zelto = true;
  }
  if (json) {
    std::string args;
    for (const std::string& word : argv) {
      args += (args.empty() ? "" : ",") + JsonString(word);
    }
    std::printf("{\"plan\":%s,\"installer_running\":%s,\"launcher_running\":%s,"
                "\"user_local_path\":%s,\"zelto\":%s,\"zelto_executable\":%s,\"argv\":[%s],"
                "\"log_file\":%s,\"log_level\":%d,\"library_level\":%d}\n",
                JsonString(plan).c_str(), installer_running ? "true" : "false",
                launcher_running ? "true" : "false",
                JsonString(has_user_local ? user_local : "").c_str(), JsonString(zelto).c_str(),
                zelto_runnable ? "true" : "false", args.c_str(), JsonString(log_file).c_str(),
                level, UpdaterLogLibraryLevel(level));
  } else {
    std::printf("plan: %s\n", plan.c_str());
    std::printf("installer: %s\n", installer_running ? "running" : "not running");
    std::printf("user-local folder: %s\n", has_user_local ? user_local.c_str() : "(none)");
    std::printf("Zelto: %s (%s)\n", zelto.c_str(),
                zelto_runnable ? "present, executable"
                : zelto_found  ? "missing or not executable"
                               : "folder not found");
    std::printf("argument vector:\n");
    for (const std::string& word : argv) {
      std::printf("  %s\n", word.c_str());
    }
    std::printf("log file: %s%s\n", log_file.c_str(),
                file_default ? " (default; would be written to the preferences)" : "");
    std::printf("log level: %d%s (library level %s)\n", level,
                level_default ? " (default; would be written to the preferences)" : "",
                oobe::LevelName(UpdaterLogLibraryLevel(level)));
  }
  return starts_zelto ? kOk : kNegative;
}

} // namespace oructl
