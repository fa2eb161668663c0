// Read-only views of the hand-over's kernel objects: looking never takes or
// changes anything.
#ifndef ORU_TOOLS_ORUCTL_IPC_STATE_H
#define ORU_TOOLS_ORUCTL_IPC_STATE_H

#include "locks/lock_holder.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace oructl {

struct SetState {
  key_t key = -1;
  bool exists = false;
  int id = -1;
  int value = -1;
  int waiters = 0;
  pid_t last_process = 0;
  bool last_alive = false;
};

SetState ReadSet(key_t key, int semaphore = 0);
bool ProcessAlive(pid_t pid);

// The preferences lock of a preferences file (see esd::LookAtLock); a
// semaphore whose holder keeps no record is never judged.
struct PrefsLockState {
  std::string path;
  bool present = false;
  esd::HolderView holder;
  bool stale = false;
};
PrefsLockState ReadPrefsLock(const std::string& prefs_path);
// A sentence on who holds the lock, for people.
std::string DescribePrefsLockHolder(const PrefsLockState& state);

// The updater's preferences folder and file and its log file, as the
// launcher would use them; looked up without making anything (empty: none).
std::string UpdaterPrefsFolder();
std::string UpdaterPrefsPath();
std::string UpdaterLogPath();
// Every log of the updater's programs that the preferences name (each
// "*LogFile" key, stored or by default), the updater's own first; looked
// up without the lock.
std::vector<std::string> ProductLogPaths();
// The log file the launcher uses when the preferences name none.
std::string UpdaterDefaultLogPath();

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_IPC_STATE_H
