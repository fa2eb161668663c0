#include "esd/updater_prefs.h"

#include "platform/folders.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"

#include <mutex>
#include <sstream>
#include <stdexcept>

namespace {

using platform::SystemFolderKind;
// A stamp is one short word; a larger file is no stamp.
constexpr size_t kMaxStampBytes = 64 * 1024;

std::mutex override_mutex;
std::string prefs_folder_override;

UpdaterPrefsLogHook log_hook = nullptr;

void Log(int level, const std::string& message) {
  if (log_hook) {
    log_hook(level, message);
  }
}

// Makes `folder` if it is missing, giving it `bits` of the folder above.
bool MakeInheritingFolder(const std::string& folder, uint16_t bits) {
  if (platform::IsPathFSRefable(folder)) {
    return true;
  }
  return platform::MakeDirectoryPath(folder) && platform::AddPermissionBits(folder, bits);
}

std::string Joined(const std::string& folder, const char* name) {
  return folder.empty() ? std::string() : platform::JoinPath(folder, name);
}

std::string PrefsFolderOrEmpty() {
  std::string folder;
  return GetUpdaterPrefsFolder(folder) ? folder : std::string();
}

std::string UserCacheDefault() {
  std::string base;
  if (!platform::FindSystemFolder(SystemFolderKind::kUserSupport, base, true) &&
      !platform::FindSystemFolder(SystemFolderKind::kLocalTemporary, base, true)) {
    return std::string();
  }
  return platform::JoinPath(base, "Nuvex");
}

// The first whitespace-delimited word of a small file; empty when the file
// cannot be read as one (a link, a FIFO, more than kMaxStampBytes).
std::string FirstWordOf(const std::string& path) {
  platform::ScopedFd file;
  std::string content;
  if (!platform::OpenFileAt(path, platform::OpenOptions(), file) ||
      !platform::ReadAll(file.get(), content, kMaxStampBytes)) {
    return std::string();
  }
  std::istringstream in(content);
  std::string word;
  in >> word;
  return word;
}

} // namespace

bool GetUpdaterFolder(SystemFolderKind system_folder_kind, std::string& out) {
  std::string base;
  uint16_t base_bits = 0;
  if (!platform::FindSystemFolder(system_folder_kind, base, true) ||
      !platform::GetPermissionBits(base, base_bits)) {
    return false;
  }
  const std::string nuvex = platform::JoinPath(base, "Nuvex");
  uint16_t nuvex_bits = 0;
  if (!MakeInheritingFolder(nuvex, base_bits) || !platform::GetPermissionBits(nuvex, nuvex_bits)) {
    return false;
  }
  const std::string folder = platform::JoinPath(platform::JoinPath(nuvex, "OruUpdater"), "1.0");
  if (!MakeInheritingFolder(folder, nuvex_bits)) {
    return false;
  }
  out = folder;
  return true;
}

bool GetUpdaterPrefsFolder(std::string& out) {
  const std::string override_folder = GetUpdaterPrefsFolderOverride();
  if (!override_folder.empty()) {
    out = override_folder;
    return true;
  }
  return GetUpdaterFolder(SystemFolderKind::kUserSupport, out) ||
         GetUpdaterFolder(SystemFolderKind::kLocalTemporary, out);
}

void SetUpdaterPrefsFolderOverride(const std::string& folder) {
  const std::lock_guard<std::mutex> guard(override_mutex);
  prefs_folder_override = folder;
}

std::string GetUpdaterPrefsFolderOverride() {
  const std::lock_guard<std::mutex> guard(override_mutex);
  return prefs_folder_override;
}

bool GetUpdaterInventoryFolder(std::string& out) {
  std::string base;
  if (!platform::FindSystemFolder(SystemFolderKind::kLocalSupport, base, false)) {
    return false;
  }
  out = platform::JoinPath(
      platform::JoinPath(platform::JoinPath(base, "Nuvex"), "OruUpdaterInventory"), "1.0");
  return true;
}

void SetUpdaterPrefsLogHook(UpdaterPrefsLogHook hook) {
  log_hook = hook;
}

NuvexUpdaterPrefs::NuvexUpdaterPrefs(bool enterprise)
    : NuvexUpdaterPrefs(enterprise, PrefsFolderOrEmpty()) {}

NuvexUpdaterPrefs::NuvexUpdaterPrefs(bool enterprise, const std::string& folder)
    : esd::PrefsWriter(std::string(), "Preferences"), AutoCheck("AutoCheck", true),
      Automatic("Automatic", 0), AutoCheckType("AutoCheckType", 0),
      DownloadDir("DownloadDir", Joined(folder, "Install")),
      UserCache("UserCache", UserCacheDefault()),
      UserCacheTillOruUPdater("UserCacheTillOruUPdater",
                              folder.empty() ? std::string() : platform::DirName(folder)),
      DisplayLang("DisplayLang", ""), IsFirstRun("IsFirstRun", true),
      IsScheduledTaskAdded("IsScheduledTaskAdded", false),
      IsScheduledTaskNeeded("IsScheduledTaskNeeded", true), InBackground("InBackground", false),
      InTrayIcon("InTrayIcon", false), AutoCheckFreq("AutoCheckFreq", 0),
      UpdaterPrefSchedCheckFreq("UpdaterPrefSchedCheckFreq", 0), LastDateCheck("LastDateCheck", ""),
      uninstallts("uninstallts", ""), UpdaterDailyScheduledTimeHH("UpdaterDailyScheduledTimeHH", 2),
      UpdaterDailyScheduledTimeMM("UpdaterDailyScheduledTimeMM", 0),
      ShowNewProducts("ShowNewProducts", false), SilentCheck("SilentCheck", false),
      ApplicationsEnabled("ApplicationsEnabled"), NotificationMessage("NotificationMessage"),
      ChannelsInstalled("ChannelsInstalled"), ChannelsEnabled("ChannelsEnabled"),
      MoxChannels("MoxChannels"), Launch("Launch", ""), ProxyServer("ProxyServer", ""),
      ProxyPort("ProxyPort", ""), ConnectionType("ConnectionType", 0),
      LogFile("LogFile", Joined(folder, "oruu.log")),
      logFileLib("logFileLib", Joined(folder, "oruuuLib.log")),
      InstallerLogFile("InstallerLogFile", Joined(folder, "oruui.log")),
      NotificationLogFile("NotificationLogFile", Joined(folder, "oruun.log")),
      StartupLogFile("StartupLogFile", Joined(folder, "oruul.log")),
      SilentNotificationLogFile("SilentNotificationLogFile", Joined(folder, "oruus.log")),
      LogLevel("LogLevel", 2), OSVersion("OSVersion", ""), VelUVersion("VelUVersion", ""),
      WebFeedOverriddenURL("WebFeedOverriddenURL", ""), WebFeedEtag("WebFeedEtag", ""),
      WebFeedSize("WebFeedSize", 0), WebFeedSeqNo("WebFeedSeqNo", 0) {
  PointPreferencesAtThis();
  if (!OpenFile(enterprise)) {
    return; // no preferences folder: defaults in memory, no file, no lock
  }
  CheckUninstallStamp(enterprise);
}

NuvexUpdaterPrefs::~NuvexUpdaterPrefs() = default;

std::vector<UpdaterPrefEntry> NuvexUpdaterPrefs::Entries() {
  const auto b = [](const char* key, esd::BasicPref<bool>& pref) {
    UpdaterPrefEntry entry{key};
    entry.boolPref = &pref;
    return entry;
  };
  const auto i = [](const char* key, esd::BasicPref<int>& pref) {
    UpdaterPrefEntry entry{key};
    entry.intPref = &pref;
    return entry;
  };
  const auto u = [](const char* key, esd::BasicPref<unsigned long>& pref) {
    UpdaterPrefEntry entry{key};
    entry.unsignedPref = &pref;
    return entry;
  };
  const auto t = [](const char* key, esd::BasicPref<std::string>& pref) {
    UpdaterPrefEntry entry{key};
    entry.stringPref = &pref;
    return entry;
  };
  const auto bm = [](const char* key, esd::MapPref<std::string, bool>& pref) {
    UpdaterPrefEntry entry{key};
    entry.boolMap = &pref;
    return entry;
  };
  const auto tm = [](const char* key, esd::MapPref<std::string, std::string>& pref) {
    UpdaterPrefEntry entry{key};
    entry.stringMap = &pref;
    return entry;
  };
  return {b("AutoCheck", AutoCheck),
          i("Automatic", Automatic),
          i("AutoCheckType", AutoCheckType),
          t("DownloadDir", DownloadDir),
          t("UserCache", UserCache),
          t("UserCacheTillOruUPdater", UserCacheTillOruUPdater),
          t("DisplayLang", DisplayLang),
          b("IsFirstRun", IsFirstRun),
          b("IsScheduledTaskAdded", IsScheduledTaskAdded),
          b("IsScheduledTaskNeeded", IsScheduledTaskNeeded),
          b("InBackground", InBackground),
          b("InTrayIcon", InTrayIcon),
          i("AutoCheckFreq", AutoCheckFreq),
          i("UpdaterPrefSchedCheckFreq", UpdaterPrefSchedCheckFreq),
          t("LastDateCheck", LastDateCheck),
          t("uninstallts", uninstallts),
          i("UpdaterDailyScheduledTimeHH", UpdaterDailyScheduledTimeHH),
          i("UpdaterDailyScheduledTimeMM", UpdaterDailyScheduledTimeMM),
          b("ShowNewProducts", ShowNewProducts),
          b("SilentCheck", SilentCheck),
          bm("ApplicationsEnabled", ApplicationsEnabled),
          tm("NotificationMessage", NotificationMessage),
          bm("ChannelsInstalled", ChannelsInstalled),
          bm("ChannelsEnabled", ChannelsEnabled),
          bm("MoxChannels", MoxChannels),
          t("Launch", Launch),
          t("ProxyServer", ProxyServer),
          t("ProxyPort", ProxyPort),
          i("ConnectionType", ConnectionType),
          t("LogFile", LogFile),
          t("logFileLib", logFileLib),
          t("InstallerLogFile", InstallerLogFile),
          t("NotificationLogFile", NotificationLogFile),
          t("StartupLogFile", StartupLogFile),
          t("SilentNotificationLogFile", SilentNotificationLogFile),
          i("LogLevel", LogLevel),
          t("OSVersion", OSVersion),
          t("VelUVersion", VelUVersion),
          t("WebFeedOverriddenURL", WebFeedOverriddenURL),
          t("WebFeedEtag", WebFeedEtag),
          u("WebFeedSize", WebFeedSize),
          u("WebFeedSeqNo", WebFeedSeqNo)};
}

void NuvexUpdaterPrefs::PointPreferencesAtThis() {
  for (const UpdaterPrefEntry& entry : Entries()) {
    if (entry.boolPref) {
      entry.boolPref->prefs = this;
    } else if (entry.intPref) {
      entry.intPref->prefs = this;
    } else if (entry.unsignedPref) {
      entry.unsignedPref->prefs = this;
    } else if (entry.stringPref) {
      entry.stringPref->prefs = this;
    } else if (entry.boolMap) {
      entry.boolMap->prefs = this;
    } else {
      entry.stringMap->prefs = this;
    }
  }
}

bool NuvexUpdaterPrefs::OpenFile(bool enterprise) {
  std::string folder;
  if (!GetUpdaterPrefsFolder(folder)) {
    return false;
  }
  const std::string path = platform::JoinPath(folder, enterprise ? kEnterpriseFileName : kFileName);
  // Other programs sharing the file read it first and make its lock after;
  // a process that saves on the strength of that unlocked read can undo a
  // change another process made in between. Here the lock guards the file
  // before the first read, which then happens under it.
  lockers_.push_back(std::make_unique<esd::ResourceLocker>(path, kLockerTag));
  if (!lockPolicy() || !lockPolicy()->IsLocked()) {
    setLockPolicy(lockers_.back().get());
  }
  NamePrefsPath(path);
  try {
    SetPrefsPath(path);
  } catch (const std::invalid_argument&) {
    DeleteAllPrefs();
    SetPrefsPath(path);
  }
  return true;
}

void NuvexUpdaterPrefs::CheckUninstallStamp(bool enterprise) {
  std::string inventory;
  if (!GetUpdaterInventoryFolder(inventory)) {
    Log(2, "Could not get Updater Inventory path on machine ");
    return;
  }
  const std::string stamp_path = platform::JoinPath(inventory, "uninstallts");
  if (!platform::IsPathFSRefable(stamp_path)) {
    return;
  }
  // The comparison and the deletion are one change to the file: both under
  // the lock. A file this process could not read is never deleted for a
  // stamp it could not compare.
  ScopedLock lock(*this);
  if (!lock.held() || !IsWritable()) {
    return;
  }
  const std::string stamp = FirstWordOf(stamp_path);
  std::string stored;
  (void)uninstallts.Get(stored); // an unreadable value counts as a mismatch
  if (stamp == stored || !platform::DeletePath(prefsPath())) {
    return;
  }
  if (!OpenFile(enterprise)) {
    throw std::runtime_error("Unable to create file!");
  }
}

NuvexUpdaterPrefs& GetUpdaterPrefs(bool enterprise) {
  static NuvexUpdaterPrefs prefs(enterprise);
  return prefs;
}
