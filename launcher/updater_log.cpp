#include "launcher/updater_log.h"

#include "esd/format_string.h"
#include "esd/updater_prefs.h"
#include "launcher/log_file_rule.h"
#include "launcher/user_local_path.h"
#include "locks/resource_locker.h"
#include "locks/updater_lock.h"
#include "oobe/log_manager.h"
#include "platform/paths.h"

#include <memory>
#include <vector>

namespace {

const char kApplicationVersion[] = "10.0.0.22";

// Facade level 1..10 -> library level; 10 maps to 0 on purpose.
constexpr int32_t kLibraryLevels[10] = {30, 30, 20, 20, 30, 30, 30, 30, 30, 0};

struct FacadeState {
  // The log manager is made first, so that it outlives this state.
  FacadeState() { (void)oobe::LogManager::Instance(); }

  // Targets replaced by a later open stay registered and keep receiving
  // lines; they are unregistered and destroyed when the process ends.
  ~FacadeState() {
    for (auto& target : replaced) {
      oobe::LogManager::Instance().RemoveTarget(kUpdaterLogName, target.get());
    }
  }

  oobe::LogTargetDefault* target = nullptr;
  std::vector<std::unique_ptr<oobe::LogTargetDefault>> replaced;
  int level = 0;
  std::string fields[4];
  // Lines of the preferences store from before the log was open.
  std::vector<std::pair<int, std::string>> earlyStoreLines;
};

FacadeState& State() {
  static FacadeState state;
  return state;
}

// The part before the last "/"; "/" for a path whose only "/" is first.
std::string ParentDirectory(const std::string& path) {
  return platform::DirName(path);
}

// The part after the last "/" or "\" (either counts here).
std::string FileNameOf(const std::string& path) {
  const size_t separator = path.find_last_of("/\\");
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

void ForwardPrefsLine(int level, const std::string& message) {
  UpdaterLogWrite(level, message);
}

// The store reads its file while the log is being set up (the log's own
// settings are in it), so what it reports then (a file moved aside, one it
// cannot read) waits for the log to open.
void ForwardStoreLine(int level, const std::string& message) {
  FacadeState& state = State();
  if (!state.target) {
    state.earlyStoreLines.emplace_back(level, message);
    return;
  }
  UpdaterLogWrite(level, message);
}

void WriteEarlyStoreLines() {
  FacadeState& state = State();
  for (const auto& [level, message] : state.earlyStoreLines) {
    UpdaterLogWrite(level, message);
  }
  state.earlyStoreLines.clear();
}

// The lower modules report through hooks that this facade installs, so
// their lines reach the log whichever entry point opened it.
void InstallComponentLogHooks() {
  SetUpdaterPrefsLogHook(&ForwardPrefsLine);
  esd::SetPrefsLogHook(&ForwardStoreLine);
  esd::SetResourceLockerLogHook(&ForwardStoreLine);
  SetLockLogHook(&UpdaterLogValue);
}

} // namespace

const char kUpdaterLogName[] = "UPDATER";
const char kUpdaterLogBeginBanner[] = ">>> Nuvex Updater Log Begin >>>";
const char kUpdaterLogEndBanner[] = "<<< Nuvex Updater Log End <<<";
const char kPrefsLockRefusedLine[] =
    "Oru Launcher : WARNING - the preferences lock could not be had, so this run logs to the "
    "default file at level 2; the lock is that of ";

int32_t UpdaterLogLibraryLevel(int level) {
  return level >= 1 && level <= 10 ? kLibraryLevels[level - 1] : 30;
}

std::string UpdaterDefaultLogFile() {
  std::string folder;
  return GetUserLocalPath(folder) ? UpdaterDefaultLogFileIn(folder) : std::string();
}

std::string UpdaterDefaultLogFileIn(const std::string& folder) {
  return folder.empty() ? std::string() : platform::JoinPath(folder, "oruu.log");
}

namespace {

// What the preferences say of the log: "LogFile" and "LogLevel" under the
// preferences lock, defaults written back when missing. Without the lock,
// `refused_lock` names it and nothing is read.
void ReadLogSettings(std::string& path, int& level, std::string& refused_lock) {
  try {
    NuvexUpdaterPrefs& prefs = GetUpdaterPrefs(false);
    if (!prefs.LockPrefs()) {
      refused_lock = prefs.prefsPath();
      return;
    }
    prefs.GetPref<std::string>("LogFile", path, std::string());
    prefs.GetPref<int>("LogLevel", level, -1);
    if (path.empty()) {
      path = UpdaterDefaultLogFile();
      prefs.SetPref<std::string>("LogFile", path);
    }
    if (level == -1) {
      level = 2;
      prefs.SetPref<int>("LogLevel", 2);
    }
    if (esd::LockPolicyInterface* lock = prefs.lockPolicy()) {
      lock->Unlock(false);
    }
  } catch (...) {
    // The values read so far stand; the preferences lock, if this process
    // took it, stays with it, as every program sharing the preferences does.
  }
}

} // namespace

bool UpdaterLogStart() {
  // Before the preferences are read: what the store reports then waits for
  // the log to open.
  InstallComponentLogHooks();
  int level = 0;
  std::string path;
  std::string refused_lock;
  ReadLogSettings(path, level, refused_lock);
  // Other programs turn logging off when the preferences lock cannot be
  // had. Everything the launcher does is to be in the updater's log, and a
  // lock nobody lets go is just what support must read about: the run logs
  // to the default file at level 2 and says which lock it could not take.
  if (!refused_lock.empty()) {
    level = 2;
  }
  if (level <= 0) {
    return true;
  }
  // The stored value is the user's choice and is left as it is; only this
  // run writes to the default instead.
  const UpdaterLogChoice choice = ChooseUpdaterLog(path, level, &UpdaterDefaultLogFile, false);
  path = choice.file;
  UpdaterLogOpen(path, level, "", kUpdaterLogName, "SHARED");
  UpdaterLogText(1, "Application Version: ", kApplicationVersion);
  UpdaterLogValue(2, "cmdline option: -logFile", path);
  UpdaterLogInt(2, "cmdline option: -logLevel", level);
  if (!choice.refusal.empty()) {
    UpdaterLogWrite(2, choice.refusal);
  }
  if (!refused_lock.empty()) {
    UpdaterLogWrite(2, std::string(kPrefsLockRefusedLine) + refused_lock);
  }
  WriteEarlyStoreLines();
  return true;
}

UpdaterLogChoice ChooseUpdaterLog(const std::string& stored_file, int stored_level,
                                  std::string (*default_file)(), bool looking_only) {
  UpdaterLogChoice choice;
  if (!stored_file.empty()) {
    choice.refusal =
        looking_only ? LogFileRefusalLookingOnly(stored_file) : LogFileRefusal(stored_file);
  }
  choice.fileIsDefault = stored_file.empty() || !choice.refusal.empty();
  choice.file = choice.fileIsDefault ? default_file() : stored_file;
  choice.levelIsDefault = stored_level == -1;
  choice.level = choice.levelIsDefault ? 2 : stored_level;
  return choice;
}

bool UpdaterLogOpen(const std::string& path, int level, const std::string& field1,
                    const std::string& field2, const std::string& field3) {
  if (level < 1) {
    return false;
  }
  InstallComponentLogHooks();
  FacadeState& state = State();
  // A target open before stays registered beside the new one.
  if (state.target) {
    state.replaced.emplace_back(state.target);
  }
  auto* target = new oobe::LogTargetDefault(kUpdaterLogName);
  state.target = target;
  target->SetLevel(UpdaterLogLibraryLevel(level));
  bool placed = false;
  const std::string parent = path.empty() ? std::string() : ParentDirectory(path);
  if (!parent.empty()) {
    (void)target->SetLogFile(FileNameOf(path).c_str(), parent.c_str());
    placed = true;
  }
  oobe::LogManager::Instance().AddTarget(target);
  state.level = level;
  state.fields[0] = field1;
  state.fields[1] = field2;
  state.fields[2] = field3;
  state.fields[3].clear();
  UpdaterLogWrite(1, kUpdaterLogBeginBanner);
  return placed;
}

void UpdaterLogClose() {
  FacadeState& state = State();
  if (!state.target) {
    return;
  }
  UpdaterLogWrite(1, std::string(kUpdaterLogEndBanner) + "\n\n");
  oobe::LogManager::Instance().RemoveTarget(kUpdaterLogName, state.target);
  delete state.target;
  state.target = nullptr;
}

void UpdaterLogWrite(int level, const std::string& message) {
  const FacadeState& state = State();
  if (state.level < 1 || state.level < level || !state.target) {
    return;
  }
  oobe::LogManager::Instance().Write(kUpdaterLogName, UpdaterLogLibraryLevel(level),
                                     state.fields[0].c_str(), state.fields[1].c_str(),
                                     state.fields[2].c_str(), state.fields[3].c_str(), "", "",
                                     message.c_str(), 0);
}

void UpdaterLogMessage(int level, const std::string& message) {
  const std::string copy = message;
  UpdaterLogWrite(level, copy);
}

void UpdaterLogValue(int level, const std::string& message, const std::string& value) {
  UpdaterLogWrite(level, message + " = " + value);
}

void UpdaterLogInt(int level, const std::string& message, int value) {
  std::string line;
  // Written whatever the formatting reports.
  (void)esd::FormatString(line, "%0 = %1", message, value);
  UpdaterLogWrite(level, line);
}

void UpdaterLogText(int level, const std::string& message, const char* value) {
  UpdaterLogWrite(level, message + (value ? value : "<NULL>"));
}
