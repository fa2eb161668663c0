// The updater's preferences: the file "NuvexUpdaterPrefs.dat" in the user's
// updater folder, one typed preference per key, once per process.
#ifndef ORU_ESD_UPDATER_PREFS_H
#define ORU_ESD_UPDATER_PREFS_H

#include "esd/prefs_writer.h"
#include "esd/typed_prefs.h"
#include "esd/updater_pref_slot.h"
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

// Where GetUpdaterFolder and GetUpdaterPrefsFolder find or make their
// folders, with nothing made: for tools that only look. A user folder that
// is not there yet is named where it would be made.
bool LookUpUpdaterFolder(platform::SystemFolderKind system_folder_kind, std::string& out);
bool LookUpUpdaterPrefsFolder(std::string& out);
void SetUpdaterPrefsFolderOverride(const std::string& folder);
std::string GetUpdaterPrefsFolderOverride();

// The machine-wide inventory folder the installer writes its stamp to.
bool GetUpdaterInventoryFolder(std::string& out);

// Where the preferences send their one log line (facade level, message).
// Until the updater log plugs in, lines go nowhere.
using UpdaterPrefsLogHook = void (*)(int level, const std::string& message);
void SetUpdaterPrefsLogHook(UpdaterPrefsLogHook hook);

// The preference kinds of the table below.
namespace updater_pref_kinds {
using Bool = esd::BasicPref<bool>;
using Int = esd::BasicPref<int>;
using ULong = esd::BasicPref<unsigned long>;
using String = esd::BasicPref<std::string>;
using BoolMap = esd::MapPref<std::string, bool>;
using StringMap = esd::MapPref<std::string, std::string>;
} // namespace updater_pref_kinds

// Every preference of the set, in table order: X(kind, key, default). The
// member carries the key's name; the defaults are expressions evaluated at
// construction, where `folder` is the preferences folder (empty when there
// is none) and `open` says whether the file is opened (and folders made). Members, defaults,
// reading, saving, the tools' key list and their documentation all come from here: adding a
// preference is one line.
#define ORU_UPDATER_PREF_TABLE(X)                                                                  \
  X(Bool, AutoCheck, true)                                                                         \
  X(Int, Automatic, 0)                                                                             \
  X(Int, AutoCheckType, 0)                                                                         \
  X(String, DownloadDir, Joined(folder, "Install"))                                                \
  X(String, UserCache, UserCacheDefault(open))                                                     \
  X(String, UserCacheTillOruUPdater, folder.empty() ? std::string() : platform::DirName(folder))   \
  X(String, DisplayLang, "")                                                                       \
  X(Bool, IsFirstRun, true)                                                                        \
  X(Bool, IsScheduledTaskAdded, false)                                                             \
  X(Bool, IsScheduledTaskNeeded, true)                                                             \
  X(Bool, InBackground, false)                                                                     \
  X(Bool, InTrayIcon, false)                                                                       \
  X(Int, AutoCheckFreq, 0)                                                                         \
  X(Int, UpdaterPrefSchedCheckFreq, 0)                                                             \
  X(String, LastDateCheck, "")                                                                     \
  X(String, uninstallts, "")                                                                       \
  X(Int, UpdaterDailyScheduledTimeHH, 2)                                                           \
  X(Int, UpdaterDailyScheduledTimeMM, 0)                                                           \
  X(Bool, ShowNewProducts, false)                                                                  \
  X(Bool, SilentCheck, false)                                                                      \
  X(BoolMap, ApplicationsEnabled, {})                                                              \
  X(StringMap, NotificationMessage, {})                                                            \
  X(BoolMap, ChannelsInstalled, {})                                                                \
  X(BoolMap, ChannelsEnabled, {})                                                                  \
  X(BoolMap, MoxChannels, {})                                                                      \
  X(String, Launch, "")                                                                            \
  X(String, ProxyServer, "")                                                                       \
  X(String, ProxyPort, "")                                                                         \
  X(Int, ConnectionType, 0)                                                                        \
  X(String, LogFile, Joined(folder, "oruu.log"))                                                   \
  X(String, logFileLib, Joined(folder, "oruuuLib.log"))                                            \
  X(String, InstallerLogFile, Joined(folder, "oruui.log"))                                         \
  X(String, NotificationLogFile, Joined(folder, "oruun.log"))                                      \
  X(String, StartupLogFile, Joined(folder, "oruul.log"))                                           \
  X(String, SilentNotificationLogFile, Joined(folder, "oruus.log"))                                \
  X(Int, LogLevel, 2)                                                                              \
  X(String, OSVersion, "")                                                                         \
  X(String, VelUVersion, "")                                                                       \
  X(String, WebFeedOverriddenURL, "")                                                              \
  X(String, WebFeedEtag, "")                                                                       \
  X(ULong, WebFeedSize, 0)                                                                         \
  X(ULong, WebFeedSeqNo, 0)

class NuvexUpdaterPrefs : public esd::PrefsWriter {
public:
  static constexpr const char* kFileName = "NuvexUpdaterPrefs.dat";
  static constexpr const char* kEnterpriseFileName = "NuvexUpdaterOrueePrefs.dat";
  static constexpr long kLockerTag = 3000;

  explicit NuvexUpdaterPrefs(bool enterprise);
  ~NuvexUpdaterPrefs() override;

  // The set with its defaults for the preferences folder `folder` and no
  // file: nothing is read, made or locked, and every save is refused. Its
  // slots document the key table and read a snapshot (ReadTextFrom).
  static std::unique_ptr<NuvexUpdaterPrefs> Unopened(const std::string& folder);

#define ORU_DECLARE_UPDATER_PREF(kind, key, default_value) updater_pref_kinds::kind key;
  ORU_UPDATER_PREF_TABLE(ORU_DECLARE_UPDATER_PREF)
#undef ORU_DECLARE_UPDATER_PREF

  // Every preference of the set, in table order.
  const std::vector<std::unique_ptr<esd::UpdaterPrefSlot>>& Slots() const {
    return slots_;
  }

private:
  // `folder`: the preferences folder the path defaults are built on, empty
  // when there is none. Without `open`, see Unopened.
  NuvexUpdaterPrefs(bool enterprise, const std::string& folder, bool open);

  void MakeSlots();
  // Reads the file at the folder's preferences path and guards it with a
  // new lock; false when there is no preferences folder.
  bool OpenFile(bool enterprise);
  void CheckUninstallStamp(bool enterprise);

  // Lockers made over the object's life; the newest guards the file, older
  // ones stay alive while they might still be the lock policy.
  std::vector<std::unique_ptr<esd::ResourceLocker>> lockers_;
  std::vector<std::unique_ptr<esd::UpdaterPrefSlot>> slots_;
};

// The one instance of this process, made by the first call with its flag.
NuvexUpdaterPrefs& GetUpdaterPrefs(bool enterprise);

#endif // ORU_ESD_UPDATER_PREFS_H
