// oructl doctor: the known causes of a failed hand-over, each checked and,
// when found, printed with its fix.
#include "esd/expat_dom_builder.h"
#include "esd/prefs_snapshot.h"
#include "launcher/handover.h"
#include "launcher/updater_log.h"
#include "launcher/zelto.h"
#include "locks/resource_locker.h"
#include "locks/updater_lock.h"
#include "oobe/log_rotation.h"
#include "platform/disk_space.h"
#include "platform/paths.h"
#include "platform/semaphore_limits.h"
#include "tools/common/json_output.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/oructl.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

namespace oructl {

namespace {

struct Check {
  std::string name;
  bool ok;
  std::string detail;
  std::string fix;
};

bool Writable(const std::string& path) {
  return access(path.c_str(), W_OK) == 0;
}

// A folder the updater can write to, or make: its nearest level that is
// there is a writable folder.
bool WritableOrCanBeMade(const std::string& folder) {
  std::string level = folder;
  while (!platform::PathExists(level) && level != platform::DirName(level)) {
    level = platform::DirName(level);
  }
  return platform::IsDirectory(level) && Writable(level);
}

Check SemaphoreRoom() {
  const char* fix = "raise kernel.sem (the fourth number, SEMMNI) or remove unused sets with ipcrm";
  platform::SemaphoreSetCount count;
  if (!platform::CountSemaphoreSets(count)) {
    return {"System V semaphore sets", true, "the system does not say how many are in use", fix};
  }
  const bool ok = count.allowed == 0 || count.inUse + 8 <= count.allowed;
  return {"System V semaphore sets", ok,
          std::to_string(count.inUse) + " of " + std::to_string(count.allowed) + " sets in use",
          fix};
}

Check PrefsFile(const std::string& path) {
  if (path.empty()) {
    return {"preferences", false, "no preferences folder can be found",
            "make the user's application support folder writable"};
  }
  const std::string folder = platform::DirName(path);
  if (!WritableOrCanBeMade(folder)) {
    return {"preferences", false, folder + " is not writable",
            "give the user write access to " + folder};
  }
  if (!platform::PathExists(path)) {
    return {"preferences", true, path + " not made yet (defaults apply)", ""};
  }
  esd::ExpatDOMBuilder<esd::XMLDocumentNode> reader;
  if (!reader.Create(nullptr, nullptr) || !reader.ParseFile(path, true)) {
    return {"preferences", false, path + " does not parse",
            "move it aside or run oructl prefs reset --all (every key gets its default)"};
  }
  if (!Writable(path)) {
    return {"preferences", false, path + " is not writable", "give the user write access"};
  }
  return {"preferences", true, path + " readable and writable", ""};
}

Check LogFile(const std::string& path) {
  if (path.empty()) {
    return {"log file", false, "no log file can be placed", "set the preference LogFile"};
  }
  // The launcher makes the user's updater folder, never another folder a
  // preference names.
  const std::string folder = platform::DirName(path);
  const bool made_by_the_launcher = folder == platform::DirName(UpdaterDefaultLogPath());
  if (made_by_the_launcher ? !WritableOrCanBeMade(folder)
                           : !platform::IsDirectory(folder) || !Writable(folder)) {
    return {"log file", false, folder + " is missing or not writable",
            "create it or give write access"};
  }
  if (platform::PathExists(path) && !Writable(path)) {
    return {"log file", false, path + " is not writable", "chmod 0666 " + path};
  }
  return {"log file", true, path + " writable", ""};
}

Check Zelto() {
  std::string path;
  if (!FindZeltoExecutable(path)) {
    return {"Zelto", false, "the machine's application support folder is not found",
            "install Zelto (its folder is missing)"};
  }
  if (!platform::IsFile(path)) {
    return {"Zelto", false, path + " is missing", "reinstall Zelto"};
  }
  if (access(path.c_str(), X_OK) != 0) {
    return {"Zelto", false, path + " is not executable", "chmod +x " + path};
  }
  return {"Zelto", true, path + " present and executable", ""};
}

uint64_t SizeOf(const std::string& path) {
  uint64_t size = 0;
  return platform::GetFileSize(path, size) ? size : 0;
}

// Room for what the updater writes next: a preferences save writes the
// whole file beside the old one, and setting the log aside copies it at its
// size limit. Where both live on one disk, they need the sum.
Check FreeSpace(const std::string& prefs_path, const std::string& log_path) {
  constexpr uint64_t kSaveMargin = 64 * 1024;
  std::string level_text;
  (void)esd::ReadStoredText(prefs_path, "Preferences", "LogLevel", level_text);
  const int level = level_text.empty() ? 2 : std::atoi(level_text.c_str());
  const uint64_t save_needs = SizeOf(prefs_path) + kSaveMargin;
  const uint64_t rotation_needs = oobe::RotationSizeLimit(UpdaterLogLibraryLevel(level));
  platform::DiskSpace prefs_disk;
  platform::DiskSpace log_disk;
  const bool prefs_known = !prefs_path.empty() && platform::GetDiskSpace(prefs_path, prefs_disk);
  const bool log_known = !log_path.empty() && platform::GetDiskSpace(log_path, log_disk);
  const bool shared = prefs_known && log_known && prefs_disk.device == log_disk.device;
  const uint64_t prefs_free = prefs_disk.freeBytes;
  const uint64_t log_free = log_disk.freeBytes;
  std::string short_of;
  if (prefs_known && prefs_free < save_needs + (shared ? rotation_needs : 0)) {
    short_of = std::to_string(prefs_free) +
               " bytes free where the preferences live; a save needs " +
               std::to_string(save_needs) +
               (shared ? " and setting the log aside " + std::to_string(rotation_needs) : "");
  } else if (log_known && !shared && log_free < rotation_needs) {
    short_of = std::to_string(log_free) +
               " bytes free where the log lives; setting it aside needs " +
               std::to_string(rotation_needs);
  }
  if (!short_of.empty()) {
    return {"disk space", false, short_of,
            "free space on that disk: meanwhile changes to the preferences fail (the file stays "
            "as it was) and the log is not set aside (records that do not fit are not written)"};
  }
  return {"disk space", true, "room for a preferences save and for setting the log aside", ""};
}

// A lock held by a program that keeps no record is judged only by time:
// every writer waits a second for it, so one held longer blocks them all.
bool RecordlessLockBlocksWrites(const std::string& prefs_path) {
  const auto held_without_record = [&] {
    const PrefsLockState lock = ReadPrefsLock(prefs_path);
    return lock.present && lock.holder.record == esd::HolderView::Record::kNone;
  };
  if (!held_without_record()) {
    return false;
  }
  usleep(esd::ResourceLocker::kLockAttempts * esd::ResourceLocker::kPauseMicroseconds);
  return held_without_record();
}

Check StaleLocks(const std::string& prefs_path) {
  const PrefsLockState prefs = prefs_path.empty() ? PrefsLockState() : ReadPrefsLock(prefs_path);
  if (prefs.stale) {
    return {"locks", false, "the preferences lock was " + DescribePrefsLockHolder(prefs),
            "none needed: the next process of the updater removes it (or: oructl unlock-prefs "
            "--force)"};
  }
  if (!prefs_path.empty() && RecordlessLockBlocksWrites(prefs_path)) {
    return {"locks", false,
            "the preferences lock has been held for longer than writers wait by a program that "
            "keeps no holder record: every change to the preferences fails while it is held",
            "if no program of the updater is running, oructl unlock-prefs --force frees it"};
  }
  const SetState post = ReadSet(UpdaterLockWaitKey(kSyncOruLauncherWaitKey));
  if (post.exists && post.value > 0 && post.waiters == 0 && !ProcessAlive(post.last_process)) {
    return {"locks", false, "a post for the launcher was left by a process that is gone",
            "ipcrm -s " + std::to_string(post.id)};
  }
  return {"locks", true, "no stale lock", ""};
}

int RunDoctor(const oru_tools::CommandLine& line) {
  const bool json = line.Has("json");
  const std::string prefs_path = UpdaterPrefsPath();
  const std::string log_path = UpdaterLogPath();
  const std::vector<Check> checks = {
      SemaphoreRoom(), PrefsFile(prefs_path),           LogFile(log_path),
      Zelto(),         FreeSpace(prefs_path, log_path), StaleLocks(prefs_path)};
  bool healthy = true;
  oru_tools::Json listed = oru_tools::Json::array();
  std::string out;
  for (const Check& check : checks) {
    healthy = healthy && check.ok;
    listed.push_back(
        {{"check", check.name}, {"ok", check.ok}, {"detail", check.detail}, {"fix", check.fix}});
    out += (check.ok ? "ok    " : "FAIL  ") + check.name + ": " + check.detail +
           (check.ok ? "" : "\n      fix: " + check.fix) + "\n";
  }
  if (json) {
    oru_tools::PrintJson(listed);
  } else {
    std::fputs(out.c_str(), stdout);
  }
  return healthy ? kOk : kNegative;
}

} // namespace

oru_tools::Command DoctorCommand() {
  oru_tools::Command command;
  command.name = "doctor";
  command.summary = "checks the known causes of a failed hand-over";
  command.about = "Checks the known causes of a failed hand-over and prints each with its\n"
                  "state and, for a fault, the fix:\n"
                  "  - room for the hand-over's System V semaphore sets\n"
                  "  - the preferences folder and file: present, writable, parsing\n"
                  "  - the log file's folder and file: writable\n"
                  "  - Zelto: present and executable\n"
                  "  - free space for a preferences save and for setting the log aside\n"
                  "  - a preferences lock that blocks every change (left by a process that\n"
                  "    died, or held past the writers' wait by a program that keeps no\n"
                  "    holder record), or a post nobody took";
  command.options = {JsonOption()};
  command.details = "Exit status: 0 healthy; 1 faults found; 2 error.";
  command.run = &RunDoctor;
  return command;
}

} // namespace oructl
