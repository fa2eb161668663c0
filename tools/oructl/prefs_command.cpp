// oructl prefs list|get|set|reset and oructl unlock-prefs --force: the updater
// preferences through the updater's own preference objects, so every read
// and write takes the same inter-process lock as every other process.
#include "esd/change_type.h"
#include "esd/updater_prefs.h"
#include "locks/resource_locker.h"
#include "platform/paths.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/oructl.h"

#include <cstdio>
#include <map>
#include <string>

namespace oructl {

namespace {

const char kPrefsUsage[] =
    "Usage: oructl prefs list [--json]\n"
    "       oructl prefs get KEY [--json]\n"
    "       oructl prefs set KEY VALUE\n"
    "       oructl prefs reset KEY | --all\n"
    "\n"
    "Reads and writes the updater preferences (NuvexUpdaterPrefs.dat in the\n"
    "user's updater folder) under the preferences lock that every process of\n"
    "the updater takes. Values are typed by the key table: bools are 1 or 0,\n"
    "ints and unsigned numbers are decimal, strings are taken as they are, and\n"
    "maps are written KEY=VALUE,KEY=VALUE (bool maps take 1 or 0).\n"
    "\n"
    "  list     every key with its type and value; [default] marks a scalar\n"
    "           that holds its default\n"
    "  get      one value\n"
    "  set      stores a value, which must convert to the key's type\n"
    "  reset    gives one key its default (an empty map), or with --all deletes\n"
    "           the file so that every key starts from its default\n"
    "\n"
    "A preferences file that does not parse is moved aside (to\n"
    "NuvexUpdaterPrefs.dat.corrupt-YYYYmmdd-HHMMSS, the newest three kept) and\n"
    "every key starts from its default; a note on standard error says so.\n"
    "\n"
    "Exit status: 0 done; 2 unknown key, value of the wrong type, a preferences\n"
    "file that cannot be read or is past the reader's limits, or a lock that\n"
    "could not be had. Nothing on disk changes when the answer is 2.\n";

const char kUnlockUsage[] =
    "Usage: oructl unlock-prefs --force\n"
    "\n"
    "Removes the preferences lock (a POSIX named semaphore derived from the\n"
    "preferences file's path). Processes of this updater record who holds it\n"
    "(NuvexUpdaterPrefs.dat.holder) and remove the lock of a dead holder by\n"
    "themselves; a program that keeps no record and dies holding it leaves it\n"
    "for ever, and then every process fails to read or write the preferences.\n"
    "Refused while the recorded holder is alive.\n"
    "\n"
    "Exit status: 0 a lock was removed; 1 there was none; 2 usage, or the\n"
    "recorded holder is alive.\n";

const char* TypeOf(const UpdaterPrefEntry& entry) {
  if (entry.boolPref) {
    return "bool";
  }
  if (entry.intPref) {
    return "int";
  }
  if (entry.unsignedPref) {
    return "unsigned long";
  }
  if (entry.stringPref) {
    return "string";
  }
  return entry.boolMap ? "map of bool" : "map of string";
}

template <typename V> std::string MapText(const std::map<std::string, V>& map) {
  std::string text;
  for (const auto& [key, value] : map) {
    std::string value_text;
    if constexpr (std::is_same_v<V, bool>) {
      value_text = value ? "1" : "0";
    } else {
      value_text = value;
    }
    text += (text.empty() ? "" : ",") + key + "=" + value_text;
  }
  return text;
}

template <typename V> bool ParseMap(const std::string& text, std::map<std::string, V>& map) {
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find(',', start), text.size());
    const std::string pair = text.substr(start, end - start);
    const size_t equals = pair.find('=');
    if (equals == std::string::npos || equals == 0) {
      return false;
    }
    V value{};
    if constexpr (std::is_same_v<V, bool>) {
      if (!esd::ChangeDiffTypeImpl<std::string, bool>::ChangeType(pair.substr(equals + 1), value)) {
        return false;
      }
    } else {
      value = pair.substr(equals + 1);
    }
    map[pair.substr(0, equals)] = value;
    start = end + 1;
  }
  return true;
}

// Reads the value as text; false when the stored text does not convert.
bool ValueText(const UpdaterPrefEntry& entry, std::string& text, bool& is_default) {
  is_default = false;
  if (entry.boolPref) {
    bool value = false;
    const bool read = entry.boolPref->Get(value);
    text = value ? "1" : "0";
    is_default = read && entry.boolPref->IsDefault(value);
    return read;
  }
  if (entry.intPref) {
    int value = 0;
    const bool read = entry.intPref->Get(value);
    text = std::to_string(value);
    is_default = read && entry.intPref->IsDefault(value);
    return read;
  }
  if (entry.unsignedPref) {
    unsigned long value = 0;
    const bool read = entry.unsignedPref->Get(value);
    text = std::to_string(value);
    is_default = read && entry.unsignedPref->IsDefault(value);
    return read;
  }
  if (entry.stringPref) {
    const bool read = entry.stringPref->Get(text);
    is_default = read && entry.stringPref->IsDefault(text);
    return read;
  }
  if (entry.boolMap) {
    std::map<std::string, bool> map;
    const bool read = entry.boolMap->Get(map);
    text = MapText(map);
    return read;
  }
  std::map<std::string, std::string> map;
  const bool read = entry.stringMap->Get(map);
  text = MapText(map);
  return read;
}

// 0 stored; kError with a message for a value of the wrong type or a save
// that failed.
int StoreText(const UpdaterPrefEntry& entry, const std::string& text) {
  // The whole text (a map's keys and values included) passes the same rule
  // the setters apply; saying so here names the cause, which a failed save
  // cannot.
  if (!esd::IsStorableText(text)) {
    return Fail(std::string("the value for ") + entry.key +
                " cannot be stored: it holds a control character other than tab, line feed "
                "or carriage return, is not valid UTF-8, or is too long");
  }
  bool converted = true;
  bool saved = false;
  if (entry.boolPref) {
    bool value = false;
    converted = esd::ChangeDiffTypeImpl<std::string, bool>::ChangeType(text, value);
    saved = converted && entry.boolPref->Set(value);
  } else if (entry.intPref) {
    int value = 0;
    converted = esd::ChangeDiffTypeImpl<std::string, int>::ChangeType(text, value);
    saved = converted && entry.intPref->Set(value);
  } else if (entry.unsignedPref) {
    unsigned long value = 0;
    converted = text.find('-') == std::string::npos &&
                esd::ChangeDiffTypeImpl<std::string, unsigned long>::ChangeType(text, value);
    saved = converted && entry.unsignedPref->Set(value);
  } else if (entry.stringPref) {
    saved = entry.stringPref->Set(text);
  } else if (entry.boolMap) {
    std::map<std::string, bool> map;
    converted = ParseMap(text, map);
    saved = converted && entry.boolMap->Set(map);
  } else {
    std::map<std::string, std::string> map;
    converted = ParseMap(text, map);
    saved = converted && entry.stringMap->Set(map);
  }
  if (!converted) {
    return Fail("'" + text + "' is not a valid " + TypeOf(entry) + " for " + entry.key);
  }
  if (!saved) {
    return Fail(std::string("could not save ") + entry.key +
                ": the preferences lock could not be had or the file cannot be written "
                "(see oructl status)");
  }
  return kOk;
}

int ResetOne(const UpdaterPrefEntry& entry) {
  bool saved = false;
  if (entry.boolPref) {
    saved = entry.boolPref->Set(entry.boolPref->defaultValue);
  } else if (entry.intPref) {
    saved = entry.intPref->Set(entry.intPref->defaultValue);
  } else if (entry.unsignedPref) {
    saved = entry.unsignedPref->Set(entry.unsignedPref->defaultValue);
  } else if (entry.stringPref) {
    saved = entry.stringPref->Set(entry.stringPref->defaultValue);
  } else if (entry.boolMap) {
    saved = entry.boolMap->Set({});
  } else {
    saved = entry.stringMap->Set({});
  }
  return saved ? kOk : Fail(std::string("could not reset ") + entry.key);
}

// The process's preferences, refused when there is no file to work on, when
// its lock could not be had, or when what is stored cannot be known (the
// store would answer with defaults, which are not what is stored).
NuvexUpdaterPrefs* OpenPrefs(int& status) {
  NuvexUpdaterPrefs& prefs = GetUpdaterPrefs(false);
  const std::string& path = prefs.prefsPath();
  if (path.empty()) {
    status = Fail("no preferences folder can be found or made");
    return nullptr;
  }
  switch (prefs.fileState()) {
  case esd::PrefsFileState::kRead:
    return &prefs;
  case esd::PrefsFileState::kMovedAside:
    std::fprintf(stderr,
                 "oructl: the preferences file %s did not parse; it was moved aside to %s and "
                 "every key starts from its default\n",
                 path.c_str(), prefs.movedAsideTo().c_str());
    return &prefs;
  case esd::PrefsFileState::kNotRead:
    status = Fail("the preferences lock of " + path +
                  " could not be had (see oructl status); nothing was read or changed");
    return nullptr;
  case esd::PrefsFileState::kUnreadable:
    status = Fail("the preferences file " + path + " cannot be read; it is left as it is");
    return nullptr;
  case esd::PrefsFileState::kOverLimit:
    status = Fail("the preferences file " + path +
                  " is larger than the reader's limits; it is left as it is");
    return nullptr;
  case esd::PrefsFileState::kNotMoved:
    status = Fail("the preferences file " + path +
                  " does not parse and cannot be moved aside; it is left as it is");
    return nullptr;
  }
  return nullptr;
}

const UpdaterPrefEntry* FindEntry(const std::vector<UpdaterPrefEntry>& entries,
                                  const std::string& key) {
  for (const UpdaterPrefEntry& entry : entries) {
    if (key == entry.key) {
      return &entry;
    }
  }
  return nullptr;
}

int List(NuvexUpdaterPrefs& prefs, bool json) {
  std::string out = json ? "[" : "";
  for (const UpdaterPrefEntry& entry : prefs.Entries()) {
    std::string text;
    bool is_default = false;
    const bool readable = ValueText(entry, text, is_default);
    if (json) {
      out += (out.size() > 1 ? "," : "") + std::string("{\"key\":") + JsonString(entry.key) +
             ",\"type\":" + JsonString(TypeOf(entry)) + ",\"value\":" + JsonString(text) +
             ",\"default\":" + (is_default ? "true" : "false") +
             ",\"readable\":" + (readable ? "true" : "false") + "}";
    } else {
      out += std::string(entry.key) + " (" + TypeOf(entry) +
             ") = " + (readable ? text : "<stored text does not convert>") +
             (is_default ? " [default]" : "") + "\n";
    }
  }
  std::fputs((json ? out + "]\n" : out).c_str(), stdout);
  return kOk;
}

} // namespace

int PrefsCommand(const Arguments& given) {
  Arguments arguments = given;
  bool json = false;
  int status = kOk;
  if (!BeginCommand(arguments, kPrefsUsage, true, json, status)) {
    return status;
  }
  if (arguments.empty()) {
    return Fail("prefs needs list, get, set or reset (see oructl prefs --help)");
  }
  const std::string action = arguments[0];
  const bool known_action =
      action == "list" || action == "get" || action == "set" || action == "reset";
  if (!known_action) {
    return Fail("unknown prefs action '" + action + "' (see oructl prefs --help)");
  }
  const size_t expected = action == "list" ? 1 : action == "set" ? 3 : 2;
  if (arguments.size() != expected) {
    return Fail("wrong number of arguments for prefs " + action + " (see oructl prefs --help)");
  }
  NuvexUpdaterPrefs* prefs = OpenPrefs(status);
  if (!prefs) {
    return status;
  }
  if (action == "list") {
    return List(*prefs, json);
  }
  if (action == "reset" && arguments[1] == "--all") {
    return prefs->DeleteAllPrefs() ? kOk : Fail("could not delete " + prefs->prefsPath());
  }
  const std::vector<UpdaterPrefEntry> entries = prefs->Entries();
  const UpdaterPrefEntry* entry = FindEntry(entries, arguments[1]);
  if (!entry) {
    return Fail("unknown preference key '" + arguments[1] + "'");
  }
  if (action == "set") {
    return StoreText(*entry, arguments[2]);
  }
  if (action == "reset") {
    return ResetOne(*entry);
  }
  std::string text;
  bool is_default = false;
  if (!ValueText(*entry, text, is_default)) {
    return Fail(std::string("the stored value of ") + entry->key + " does not convert to " +
                TypeOf(*entry));
  }
  std::printf("%s\n", json ? (std::string("{\"key\":") + JsonString(entry->key) +
                              ",\"value\":" + JsonString(text) + "}")
                                 .c_str()
                           : text.c_str());
  return kOk;
}

int UnlockPrefsCommand(const Arguments& given) {
  Arguments arguments = given;
  if (TakeFlag(arguments, "--help")) {
    std::fputs(kUnlockUsage, stdout);
    return kOk;
  }
  if (!TakeFlag(arguments, "--force") || !arguments.empty()) {
    return Fail("unlock-prefs breaks a lock another process may hold: it needs --force and "
                "nothing else");
  }
  std::string folder;
  if (!GetUpdaterPrefsFolder(folder)) {
    return Fail("no preferences folder can be found or made");
  }
  const std::string path = platform::JoinPath(folder, NuvexUpdaterPrefs::kFileName);
  const PrefsLockState state = ReadPrefsLock(path);
  if (state.holder.record == esd::HolderView::Record::kLive) {
    return Fail("the preferences lock of " + path + " is " + DescribePrefsLockHolder(state) +
                "; it is not removed");
  }
  esd::ResourceLocker locker(path, NuvexUpdaterPrefs::kLockerTag);
  if (locker.Unlock(true)) {
    std::printf("removed the preferences lock of %s\n", path.c_str());
    return kOk;
  }
  std::printf("no preferences lock was held for %s\n", path.c_str());
  return kNegative;
}

} // namespace oructl
