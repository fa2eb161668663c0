#include "tools/oructl/ipc_state.h"

#include "esd/prefs_snapshot.h"
#include "esd/updater_prefs.h"
#include "launcher/updater_log.h"
#include "launcher/user_local_path.h"
#include "locks/resource_locker.h"
#include "platform/paths.h"

#include <errno.h>
#include <fcntl.h>
#include <memory>
#include <semaphore.h>
#include <signal.h>
#include <sys/sem.h>
#include <time.h>

namespace oructl {

bool ProcessAlive(pid_t pid) {
  return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

SetState ReadSet(key_t key, int semaphore) {
  SetState state;
  state.key = key;
  if (key == -1) {
    return state;
  }
  state.id = semget(key, 0, 0);
  if (state.id < 0) {
    return state;
  }
  state.exists = true;
  state.value = semctl(state.id, semaphore, GETVAL);
  state.waiters = semctl(state.id, semaphore, GETNCNT);
  state.last_process = semctl(state.id, semaphore, GETPID);
  state.last_alive = ProcessAlive(state.last_process);
  return state;
}

PrefsLockState ReadPrefsLock(const std::string& prefs_path) {
  PrefsLockState state;
  state.path = prefs_path;
  const esd::LockView view = esd::LookAtLock(prefs_path);
  state.present = view.present;
  state.holder = view.holder;
  state.stale = view.stale;
  return state;
}

std::string DescribePrefsLockHolder(const PrefsLockState& state) {
  const std::string pid = std::to_string(state.holder.holder.pid);
  switch (state.holder.record) {
  case esd::HolderView::Record::kLive:
    return state.holder.holder.empty() ? "held by a process of the updater that is taking it"
                                       : "held by process " + pid + ", which is alive";
  case esd::HolderView::Record::kDead:
    return "left by process " + pid + ", which died holding it";
  case esd::HolderView::Record::kNone:
    break;
  }
  return "held by a program that keeps no holder record (not judged)";
}

std::string UpdaterPrefsFolder() {
  std::string folder;
  return LookUpUpdaterPrefsFolder(folder) ? folder : std::string();
}

std::string UpdaterPrefsPath() {
  const std::string folder = UpdaterPrefsFolder();
  return folder.empty() ? folder : platform::JoinPath(folder, NuvexUpdaterPrefs::kFileName);
}

std::string UpdaterDefaultLogPath() {
  std::string folder;
  return LookUpUserLocalPath(folder) ? UpdaterDefaultLogFileIn(folder) : std::string();
}

std::string UpdaterLogPath() {
  std::string path;
  (void)esd::ReadStoredText(UpdaterPrefsPath(), "Preferences", "LogFile", path); // else the default
  return ChooseUpdaterLog(path, -1, &UpdaterDefaultLogPath, /*looking_only=*/true).file;
}

std::vector<std::string> ProductLogPaths() {
  std::vector<std::string> paths;
  const std::string updater_log = UpdaterLogPath();
  if (!updater_log.empty()) {
    paths.push_back(updater_log);
  }
  const std::string folder = UpdaterPrefsFolder();
  if (folder.empty()) {
    return paths;
  }
  const std::unique_ptr<NuvexUpdaterPrefs> table = NuvexUpdaterPrefs::Unopened(folder);
  for (const auto& slot : table->Slots()) {
    const std::string key = slot->key();
    if (key == "LogFile" || key.size() < 7 || key.compare(key.size() - 7, 7, "LogFile") != 0) {
      continue;
    }
    std::string path;
    if (!esd::ReadStoredText(UpdaterPrefsPath(), "Preferences", key, path) || path.empty()) {
      path = slot->DefaultText();
    }
    if (!path.empty() && path[0] == '/') {
      paths.push_back(path);
    }
  }
  return paths;
}

} // namespace oructl
