#include "tools/oructl/ipc_state.h"

#include "esd/updater_prefs.h"
#include "launcher/updater_log.h"
#include "locks/resource_locker.h"
#include "platform/paths.h"

#include <errno.h>
#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/sem.h>
#include <time.h>

namespace oructl {

namespace {

bool NamedSemaphoreExists(const std::string& name) {
  sem_t* semaphore = sem_open(name.c_str(), 0);
  if (semaphore == SEM_FAILED) {
    return false;
  }
  sem_close(semaphore);
  return true;
}

} // namespace

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

PrefsLockState ReadPrefsLock(const std::string& prefs_path, int watch_ms) {
  PrefsLockState state;
  state.path = prefs_path;
  const std::string name = esd::SystemSemaphoreName(esd::ResourceLocker::SemaphoreName(prefs_path));
  state.present = NamedSemaphoreExists(name);
  if (!state.present) {
    return state;
  }
  for (int waited = 0; waited < watch_ms; waited += 10) {
    const struct timespec pause = {0, 10000000};
    nanosleep(&pause, nullptr);
    if (!NamedSemaphoreExists(name)) {
      return state;
    }
  }
  state.stale = true;
  return state;
}

std::string UpdaterPrefsPath() {
  std::string folder;
  return GetUpdaterPrefsFolder(folder) ? platform::JoinPath(folder, NuvexUpdaterPrefs::kFileName)
                                       : std::string();
}

std::string UpdaterLogPath() {
  std::string path;
  GetUpdaterPrefs(false).GetPref<std::string>("LogFile", path, std::string());
  return path.empty() ? UpdaterDefaultLogFile() : path;
}

} // namespace oructl
