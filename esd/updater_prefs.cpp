#include "esd/updater_prefs.h"

#include "platform/folders.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"

#include <map>
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

// Made on the way when `make`; only named otherwise.
std::string UserCacheDefault(bool make) {
  std::string base;
  const bool found =
      make ? platform::FindSystemFolder(SystemFolderKind::kUserSupport, base, true) ||
                 platform::FindSystemFolder(SystemFolderKind::kLocalTemporary, base, true)
           : platform::SystemFolderPathOf(SystemFolderKind::kUserSupport, base) ||
                 platform::SystemFolderPathOf(SystemFolderKind::kLocalTemporary, base);
  return found ? platform::JoinPath(base, "Nuvex") : std::string();
}

std::string UpdaterFolderBelow(const std::string& base) {
  return platform::JoinPath(platform::JoinPath(platform::JoinPath(base, "Nuvex"), "OruUpdater"),
                            "1.0");
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

// The value type of a preference's default.
template <typename Pref> struct DefaultOf;
template <typename T> struct DefaultOf<esd::BasicPref<T>> { using type = T; };
template <typename V> struct DefaultOf<esd::MapPref<std::string, V>> {
  using type = std::map<std::string, V>;
};

// A preference of the table with its key and default; a map's default is
// always the empty map.
template <typename Pref> Pref MakePref(const char* key, typename DefaultOf<Pref>::type value) {
  if constexpr (std::is_same_v<typename DefaultOf<Pref>::type, std::map<std::string, bool>> ||
                std::is_same_v<typename DefaultOf<Pref>::type,
                               std::map<std::string, std::string>>) {
    return Pref(key);
  } else {
    return Pref(key, std::move(value));
  }
}

template <typename T> std::unique_ptr<esd::UpdaterPrefSlot> SlotOf(esd::BasicPref<T>& pref) {
  return std::make_unique<esd::ScalarSlot<T>>(pref);
}

template <typename V>
std::unique_ptr<esd::UpdaterPrefSlot> SlotOf(esd::MapPref<std::string, V>& pref) {
  return std::make_unique<esd::MapSlot<V>>(pref);
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
  const std::string folder = UpdaterFolderBelow(base);
  if (!MakeInheritingFolder(folder, nuvex_bits)) {
    return false;
  }
  out = folder;
  return true;
}

bool LookUpUpdaterFolder(SystemFolderKind system_folder_kind, std::string& out) {
  std::string base;
  if (!platform::SystemFolderPathOf(system_folder_kind, base)) {
    return false;
  }
  out = UpdaterFolderBelow(base);
  return true;
}

bool LookUpUpdaterPrefsFolder(std::string& out) {
  const std::string override_folder = GetUpdaterPrefsFolderOverride();
  if (!override_folder.empty()) {
    out = override_folder;
    return true;
  }
  return LookUpUpdaterFolder(SystemFolderKind::kUserSupport, out) ||
         LookUpUpdaterFolder(SystemFolderKind::kLocalTemporary, out);
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
    : NuvexUpdaterPrefs(enterprise, PrefsFolderOrEmpty(), true) {}

std::unique_ptr<NuvexUpdaterPrefs> NuvexUpdaterPrefs::Unopened(const std::string& folder) {
  return std::unique_ptr<NuvexUpdaterPrefs>(new NuvexUpdaterPrefs(false, folder, false));
}

NuvexUpdaterPrefs::NuvexUpdaterPrefs(bool enterprise, const std::string& folder, bool open)
    : esd::PrefsWriter(std::string(), "Preferences")
#define ORU_INIT_UPDATER_PREF(kind, key, default_value)                                            \
  , key(MakePref<updater_pref_kinds::kind>(#key, default_value))
          ORU_UPDATER_PREF_TABLE(ORU_INIT_UPDATER_PREF)
#undef ORU_INIT_UPDATER_PREF
{
  MakeSlots();
  for (const auto& slot : slots_) {
    slot->Attach(this);
  }
  if (!open || !OpenFile(enterprise)) {
    return; // no preferences folder: defaults in memory, no file, no lock
  }
  CheckUninstallStamp(enterprise);
}

NuvexUpdaterPrefs::~NuvexUpdaterPrefs() = default;

void NuvexUpdaterPrefs::MakeSlots() {
#define ORU_SLOT_OF_UPDATER_PREF(kind, key, default_value) slots_.push_back(SlotOf(key));
  ORU_UPDATER_PREF_TABLE(ORU_SLOT_OF_UPDATER_PREF)
#undef ORU_SLOT_OF_UPDATER_PREF
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
