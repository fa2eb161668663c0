// The updater's preferences: the file "NuvexUpdaterPrefs.dat" in the user's
// updater folder, one typed preference per key, once per process.
#ifndef ORU_ESD_UPDATER_PREFS_H
#define ORU_ESD_UPDATER_PREFS_H

#include "esd/prefs_writer.h"
#include "esd/typed_prefs.h"
#include "locks/resource_locker.h"
#include "platform/folders.h"

#include <memory>
#include <string>
#include <vector>

// The user's updater folder ("Nuvex/OruUpdater/1.0" under the folder of a
// FindSystemFolder kind), made with missing levels that take the permission
// bits of the folder above them.
bool GetUpdaterFolder(platform::SystemFolderKind system_folder_kind, std::string& out);

// The preferences folder: the process-wide override when set, else the
// updater folder under kind 7, else under kind 2.
bool GetUpdaterPrefsFolder(std::string& out);
void SetUpdaterPrefsFolderOverride(const std::string& folder);
std::string GetUpdaterPrefsFolderOverride();

// The machine-wide inventory folder the installer writes its stamp to.
bool GetUpdaterInventoryFolder(std::string& out);

// Where the preferences send their one log line (facade level, message).
// Until the updater log plugs in, lines go nowhere.
using UpdaterPrefsLogHook = void (*)(int level, const std::string& message);
void SetUpdaterPrefsLogHook(UpdaterPrefsLogHook hook);

// One preference of the set, for tools that work on them by key: exactly one
// of the pointers is set.
struct UpdaterPrefEntry {
  const char* key;
  esd::BasicPref<bool>* boolPref = nullptr;
  esd::BasicPref<int>* intPref = nullptr;
  esd::BasicPref<unsigned long>* unsignedPref = nullptr;
  esd::BasicPref<std::string>* stringPref = nullptr;
  esd::MapPref<std::string, bool>* boolMap = nullptr;
  esd::MapPref<std::string, std::string>* stringMap = nullptr;
};

class NuvexUpdaterPrefs : public esd::PrefsWriter {
public:
  static constexpr const char* kFileName = "NuvexUpdaterPrefs.dat";
  static constexpr const char* kEnterpriseFileName = "NuvexUpdaterOrueePrefs.dat";
  static constexpr long kLockerTag = 3000;

  explicit NuvexUpdaterPrefs(bool enterprise);
  ~NuvexUpdaterPrefs() override;

  esd::BasicPref<bool> AutoCheck;
  esd::BasicPref<int> Automatic;
  esd::BasicPref<int> AutoCheckType;
  esd::BasicPref<std::string> DownloadDir;
  esd::BasicPref<std::string> UserCache;
  esd::BasicPref<std::string> UserCacheTillOruUPdater;
  esd::BasicPref<std::string> DisplayLang;
  esd::BasicPref<bool> IsFirstRun;
  esd::BasicPref<bool> IsScheduledTaskAdded;
  esd::BasicPref<bool> IsScheduledTaskNeeded;
  esd::BasicPref<bool> InBackground;
  esd::BasicPref<bool> InTrayIcon;
  esd::BasicPref<int> AutoCheckFreq;
  esd::BasicPref<int> UpdaterPrefSchedCheckFreq;
  esd::BasicPref<std::string> LastDateCheck;
  esd::BasicPref<std::string> uninstallts;
  esd::BasicPref<int> UpdaterDailyScheduledTimeHH;
  esd::BasicPref<int> UpdaterDailyScheduledTimeMM;
  esd::BasicPref<bool> ShowNewProducts;
  esd::BasicPref<bool> SilentCheck;
  esd::MapPref<std::string, bool> ApplicationsEnabled;
  esd::MapPref<std::string, std::string> NotificationMessage;
  esd::MapPref<std::string, bool> ChannelsInstalled;
  esd::MapPref<std::string, bool> ChannelsEnabled;
  esd::MapPref<std::string, bool> MoxChannels;
  esd::BasicPref<std::string> Launch;
  esd::BasicPref<std::string> ProxyServer;
  esd::BasicPref<std::string> ProxyPort;
  esd::BasicPref<int> ConnectionType;
  esd::BasicPref<std::string> LogFile;
  esd::BasicPref<std::string> logFileLib;
  esd::BasicPref<std::string> InstallerLogFile;
  esd::BasicPref<std::string> NotificationLogFile;
  esd::BasicPref<std::string> StartupLogFile;
  esd::BasicPref<std::string> SilentNotificationLogFile;
  esd::BasicPref<int> LogLevel;
  esd::BasicPref<std::string> OSVersion;
  esd::BasicPref<std::string> VelUVersion;
  esd::BasicPref<std::string> WebFeedOverriddenURL;
  esd::BasicPref<std::string> WebFeedEtag;
  esd::BasicPref<unsigned long> WebFeedSize;
  esd::BasicPref<unsigned long> WebFeedSeqNo;

  // Every preference of the set, in table order.
  std::vector<UpdaterPrefEntry> Entries();

private:
  // `folder`: the preferences folder the path defaults are built on, empty
  // when there is none.
  NuvexUpdaterPrefs(bool enterprise, const std::string& folder);

  void PointPreferencesAtThis();
  // Reads the file at the folder's preferences path and guards it with a
  // new lock; false when there is no preferences folder.
  bool OpenFile(bool enterprise);
  void CheckUninstallStamp(bool enterprise);

  // Lockers made over the object's life; the newest guards the file, older
  // ones stay alive while they might still be the lock policy.
  std::vector<std::unique_ptr<esd::ResourceLocker>> lockers_;
};

// The one instance of this process, made by the first call with its flag.
NuvexUpdaterPrefs& GetUpdaterPrefs(bool enterprise);

#endif // ORU_ESD_UPDATER_PREFS_H
