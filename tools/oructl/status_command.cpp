// oructl status: every kernel object of the hand-over and what its state
// means.
#include "launcher/handover.h"
#include "locks/updater_lock.h"
#include "oobe/file_lock.h"
#include "tools/common/json_output.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/oructl.h"

#include <cstdio>
#include <string>
#include <vector>

namespace oructl {

namespace {

struct Named {
  const char* name;
  const char* kind;
  SetState state;
};

std::string Describe(const Named& named) {
  char key[16];
  std::snprintf(key, sizeof key, "0x%08x", static_cast<unsigned>(named.state.key));
  std::string line = std::string(named.name) + " (" + named.kind + ", key " + key + "): ";
  if (!named.state.exists) {
    return line + "no set";
  }
  return line + "set " + std::to_string(named.state.id) + ", value " +
         std::to_string(named.state.value) + ", waiters " + std::to_string(named.state.waiters) +
         ", last process " + std::to_string(named.state.last_process) +
         (named.state.last_alive ? " (alive)" : " (gone)");
}

std::vector<std::string> Meaning(const SetState& launcher, const SetState& installer,
                                 const SetState& launcher_wait, const SetState& installer_wait,
                                 const PrefsLockState& prefs) {
  std::vector<std::string> meaning;
  const bool installer_running = installer.exists && installer.value == 0;
  const bool launcher_running = launcher.exists && launcher.value == 0;
  const bool launcher_waiting = launcher_wait.exists && launcher_wait.waiters > 0;
  if (installer_running && launcher_waiting) {
    meaning.push_back("installer running, launcher waiting for it");
  } else if (launcher_waiting) {
    meaning.push_back("launcher waiting for an installer that is gone (it gives up within a "
                      "second)");
  } else if (installer_running && launcher_running) {
    meaning.push_back("installer running, launcher running");
  } else if (installer_running) {
    meaning.push_back("installer running, no launcher");
  } else if (launcher_running) {
    meaning.push_back("launcher running, installer gone");
  } else {
    meaning.push_back("no hand-over in progress");
  }
  if (installer_wait.exists && installer_wait.waiters > 0) {
    meaning.push_back("installer waiting for the hand-back (Zelto or the launcher releases it)");
  }
  if (launcher_wait.exists && launcher_wait.waiters == 0 && launcher_wait.value > 0) {
    meaning.push_back("a post for the launcher is pending: no launcher has taken it");
  }
  if (prefs.stale) {
    meaning.push_back("stale preferences lock: " + DescribePrefsLockHolder(prefs) +
                      "; the next process of the updater that uses the preferences removes it "
                      "(or: oructl unlock-prefs --force)");
  } else if (prefs.present) {
    meaning.push_back("preferences lock " + DescribePrefsLockHolder(prefs));
  }
  return meaning;
}

int RunStatus(const oru_tools::CommandLine& line) {
  const bool json = line.Has("json");
  std::vector<Named> named = {
      {kOruLauncherKey, "single-holder lock", ReadSet(UpdaterLockKey(kOruLauncherKey))},
      {kUpdateInstallerKey, "single-holder lock", ReadSet(UpdaterLockKey(kUpdateInstallerKey))},
      {kSyncOruLauncherWaitKey, "rendezvous", ReadSet(UpdaterLockWaitKey(kSyncOruLauncherWaitKey))},
      {kSyncUInstPostSelfUpdateWaitKey, "rendezvous",
       ReadSet(UpdaterLockWaitKey(kSyncUInstPostSelfUpdateWaitKey))}};
  const std::string prefs_path = UpdaterPrefsPath();
  const PrefsLockState prefs = ReadPrefsLock(prefs_path);
  const std::string log_path = UpdaterLogPath();
  const SetState log_users = ReadSet(static_cast<key_t>(oobe::FileLockKey(log_path)), 0);
  const SetState log_lock = ReadSet(static_cast<key_t>(oobe::FileLockKey(log_path)), 1);
  const std::vector<std::string> meaning =
      Meaning(named[0].state, named[1].state, named[2].state, named[3].state, prefs);

  if (json) {
    oru_tools::Json locks = oru_tools::Json::array();
    for (const Named& entry : named) {
      const SetState& s = entry.state;
      locks.push_back({{"name", entry.name},
                       {"kind", entry.kind},
                       {"key", s.key},
                       {"exists", s.exists},
                       {"id", s.id},
                       {"value", s.value},
                       {"waiters", s.waiters},
                       {"last_process", s.last_process},
                       {"last_alive", s.last_alive}});
    }
    oru_tools::PrintJson({{"locks", locks},
                          {"prefs_lock",
                           {{"path", prefs.path},
                            {"present", prefs.present},
                            {"stale", prefs.stale},
                            {"holder_pid", prefs.holder.holder.pid}}},
                          {"log_lock",
                           {{"path", log_path},
                            {"exists", log_users.exists},
                            {"users", log_users.value},
                            {"held", log_lock.exists && log_lock.value == 0}}},
                          {"meaning", meaning}});
  } else {
    for (const Named& entry : named) {
      std::printf("%s\n", Describe(entry).c_str());
    }
    std::printf("preferences lock (%s): %s\n", prefs.path.c_str(),
                prefs.present ? ("present, " + DescribePrefsLockHolder(prefs)).c_str() : "free");
    std::printf("log file lock (%s): %s\n", log_path.c_str(),
                !log_users.exists ? "no set"
                                  : ("users " + std::to_string(log_users.value) + ", " +
                                     (log_lock.value == 0 ? "held" : "free"))
                                        .c_str());
    for (const std::string& sentence : meaning) {
      std::printf("=> %s\n", sentence.c_str());
    }
  }
  return prefs.stale ? kNegative : kOk;
}

} // namespace

oru_tools::Command StatusCommand() {
  oru_tools::Command command;
  command.name = "status";
  command.summary = "the named locks, rendezvous semaphores, preferences lock and log\n"
                    "file lock, and what their state means";
  command.about = "Shows the named locks and rendezvous semaphores of the hand-over (key,\n"
                  "set id, value, waiters, last process and whether it is alive), the\n"
                  "preferences lock and the updater log's file lock, and says what that\n"
                  "state means: for example \"installer running, launcher waiting for it\" or\n"
                  "\"stale preferences lock\". Looks only; changes nothing.";
  command.options = {JsonOption()};
  command.details = "Exit status: 0 nothing is stuck; 1 a stale lock was found; 2 error.";
  command.run = &RunStatus;
  return command;
}

} // namespace oructl
