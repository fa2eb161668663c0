// oructl prefs list|get|set|reset and oructl unlock-prefs --force: the updater
// preferences through the updater's own preference objects. Writes take the
// same inter-process lock as every other process; list and get only look.
#include "esd/change_type.h"
#include "esd/prefs_snapshot.h"
#include "esd/updater_prefs.h"
#include "locks/resource_locker.h"
#include "platform/paths.h"
#include "tools/common/json_output.h"
#include "tools/common/terminal.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/oructl.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>

namespace oructl {

namespace {

const char kPrefsUsage[] =
    "Usage: oructl prefs list [--json] [--no-pager]\n"
    "       oructl prefs keys\n"
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
    "           that holds its default; on a terminal through $PAGER, as\n"
    "           oructl log (--no-pager: never)\n"
    "  keys     the key table: every key, its type and its default\n"
    "  get      one value\n"
    "  set      stores a value, which must convert to the key's type\n"
    "  reset    gives one key its default (an empty map), or with --all deletes\n"
    "           the file so that every key starts from its default\n"
    "\n"
    "list and get only look: they read the file once, take no lock and make,\n"
    "change or move nothing. set and reset work under the lock; for them a\n"
    "preferences file that does not parse is moved aside (to\n"
    "NuvexUpdaterPrefs.dat.corrupt-YYYYmmdd-HHMMSS, the newest three kept) and\n"
    "every key starts from its default; a note on standard error says so.\n"
    "\n"
    "Exit status: 0 done; 2 unknown key, value of the wrong type, a preferences\n"
    "file that does not parse (list, get), cannot be read or is past the\n"
    "reader's limits, or a lock that could not be had. Nothing on disk changes\n"
    "when the answer is 2.\n";

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

using Slot = esd::UpdaterPrefSlot;

// The preferences lock of `path` could not be had: who holds it, as status
// tells it.
std::string LockNotHad(const std::string& path) {
  const PrefsLockState lock = ReadPrefsLock(path);
  return "the preferences lock of " + path + " could not be had: " +
         (lock.present ? DescribePrefsLockHolder(lock) : "it was let go meanwhile; try again") +
         " (see oructl status)";
}

// Why a change was not saved: who holds the lock, or the system's error of
// the save. Nothing was changed either way.
std::string WhyNotSaved(const NuvexUpdaterPrefs& prefs) {
  const esd::PrefsWriter::SaveFailure& failure = prefs.lastSaveFailure();
  const std::string& path = prefs.prefsPath();
  if (failure.lockNotHad) {
    return LockNotHad(path) + "; nothing was changed";
  }
  if (failure.error != 0) {
    return "the preferences file " + path +
           " could not be written: " + std::strerror(failure.error) + "; it is left as it was";
  }
  return "the preferences file " + path + " cannot be written; it is left as it was";
}

// 0 stored; kError with a message for a value of the wrong type or a save
// that failed.
int StoreText(const NuvexUpdaterPrefs& prefs, Slot& slot, const std::string& text) {
  // The whole text (a map's keys and values included) passes the same rule
  // the setters apply; saying so here names the cause, which a failed save
  // cannot.
  if (!esd::IsStorableText(text)) {
    return Fail(std::string("the value for ") + slot.key() +
                " cannot be stored: it holds a control character other than tab, line feed "
                "or carriage return, is not valid UTF-8, or is too long");
  }
  bool converted = true;
  const bool saved = slot.StoreText(text, converted);
  if (!converted) {
    return Fail("'" + text + "' is not a valid " + slot.type() + " for " + slot.key());
  }
  if (!saved) {
    return Fail(std::string("could not save ") + slot.key() + ": " + WhyNotSaved(prefs));
  }
  return kOk;
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
    status = Fail(LockNotHad(path) + "; nothing was read or changed");
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

Slot* FindSlot(const NuvexUpdaterPrefs& prefs, const std::string& key) {
  for (const auto& slot : prefs.Slots()) {
    if (key == slot->key()) {
      return slot.get();
    }
  }
  return nullptr;
}

// A value read as text, as JSON of its type: a bool as true or false, a
// number as a number, a map as an object; text that does not convert stays
// text.
oru_tools::Json TypedValue(const Slot& slot, const std::string& text, bool readable) {
  const std::string type = slot.type();
  if (!readable) {
    return text;
  }
  if (type == "bool") {
    return text == "1";
  }
  if (type == "int") {
    return std::stoll(text);
  }
  if (type == "unsigned long") {
    return std::stoull(text);
  }
  if (type.rfind("map of ", 0) == 0) {
    oru_tools::Json map = oru_tools::Json::object();
    std::map<std::string, std::string> entries;
    (void)esd::slot_text::ToMap(text, entries);
    for (const auto& [key, value] : entries) {
      map[key] = type == "map of bool" ? oru_tools::Json(value == "1") : oru_tools::Json(value);
    }
    return map;
  }
  return text;
}

// The stored preferences, looked at: parsed once without the lock, with
// nothing moved aside or made. Null, with the error said, when what is
// stored cannot be known.
std::unique_ptr<esd::PrefsSnapshot> LookAtPrefs(const std::string& path, int& status) {
  if (path.empty()) {
    status = Fail("no preferences folder can be found");
    return nullptr;
  }
  auto snapshot = std::make_unique<esd::PrefsSnapshot>(path, "Preferences");
  switch (snapshot->state()) {
  case esd::PrefsSnapshot::State::kParsed:
  case esd::PrefsSnapshot::State::kNoFile:
    return snapshot;
  case esd::PrefsSnapshot::State::kMalformed:
    status = Fail("the preferences file " + path +
                  " does not parse; it is left as it is (the next process that sets a "
                  "preference moves it aside)");
    return nullptr;
  case esd::PrefsSnapshot::State::kUnreadable:
    status = Fail("the preferences file " + path + " cannot be read; it is left as it is");
    return nullptr;
  case esd::PrefsSnapshot::State::kOverLimit:
    break;
  }
  status = Fail("the preferences file " + path +
                " is larger than the reader's limits; it is left as it is");
  return nullptr;
}

int List(const NuvexUpdaterPrefs& table, esd::PrefsSnapshot& stored, bool json) {
  oru_tools::Json listed = oru_tools::Json::array();
  std::string out;
  for (const auto& slot : table.Slots()) {
    std::string text;
    bool is_default = false;
    const bool readable = slot->ReadTextFrom(stored.Find(slot->key()), text, is_default);
    listed.push_back({{"key", slot->key()},
                      {"type", slot->type()},
                      {"value", TypedValue(*slot, text, readable)},
                      {"default", is_default},
                      {"readable", readable}});
    out += std::string(slot->key()) + " (" + slot->type() +
           ") = " + (readable ? text : "<stored text does not convert>") +
           (is_default ? " [default]" : "") + "\n";
  }
  if (json) {
    oru_tools::PrintJson(listed);
  } else {
    std::fputs(out.c_str(), stdout);
  }
  return kOk;
}

int Get(const Slot& slot, esd::PrefsSnapshot& stored, bool json) {
  std::string text;
  bool is_default = false;
  if (!slot.ReadTextFrom(stored.Find(slot.key()), text, is_default)) {
    return Fail(std::string("the stored value of ") + slot.key() + " does not convert to " +
                slot.type());
  }
  if (json) {
    oru_tools::PrintJson({{"key", slot.key()}, {"value", TypedValue(slot, text, true)}});
  } else {
    std::printf("%s\n", text.c_str());
  }
  return kOk;
}

// list and get: looks only.
int Look(const std::string& action, const Arguments& arguments, bool json) {
  const std::unique_ptr<NuvexUpdaterPrefs> table =
      NuvexUpdaterPrefs::Unopened(UpdaterPrefsFolder());
  const Slot* slot = nullptr;
  if (action == "get" && !(slot = FindSlot(*table, arguments[1]))) {
    return Fail("unknown preference key '" + arguments[1] + "' (see oructl prefs keys)");
  }
  int status = kOk;
  const std::unique_ptr<esd::PrefsSnapshot> stored = LookAtPrefs(UpdaterPrefsPath(), status);
  if (!stored) {
    return status;
  }
  return slot ? Get(*slot, *stored, json) : List(*table, *stored, json);
}

// The key table as documentation: every key, its type and its default
// here. Reads nothing.
int Keys(const NuvexUpdaterPrefs& prefs) {
  for (const auto& slot : prefs.Slots()) {
    std::printf("%-28s %-14s %s\n", slot->key(), slot->type(),
                std::string(slot->type()).rfind("map", 0) == 0
                    ? "(empty map)"
                    : ("\"" + slot->DefaultText() + "\"").c_str());
  }
  return kOk;
}

} // namespace

int PrefsCommand(const Arguments& given) {
  oru_tools::CommandLine line({});
  int status = kOk;
  if (!BeginCommand(given, kPrefsUsage, {{"json", false}, {"all", false}, {"no-pager", false}},
                    line, status)) {
    return status;
  }
  const bool json = line.Has("json");
  Arguments arguments = line.words();
  if (arguments.empty()) {
    return Fail("prefs needs list, get, set or reset (see oructl prefs --help)");
  }
  const std::string action = arguments[0];
  const bool known_action = action == "list" || action == "get" || action == "set" ||
                            action == "reset" || action == "keys";
  if (!known_action) {
    return Fail("unknown prefs action '" + action + "'" +
                oru_tools::DidYouMean(action, {"list", "get", "set", "reset", "keys"}) +
                " (see oructl prefs --help)");
  }
  const bool all = line.Has("all");
  if (all && action != "reset") {
    return Fail("--all goes with reset only (see oructl prefs --help)");
  }
  const size_t expected = action == "list" || action == "keys" || all ? 1 : action == "set" ? 3 : 2;
  if (arguments.size() != expected) {
    return Fail("wrong number of arguments for prefs " + action + " (see oructl prefs --help)");
  }
  if (action == "keys") {
    return Keys(*NuvexUpdaterPrefs::Unopened(UpdaterPrefsFolder()));
  }
  if (action == "list" || action == "get") {
    oru_tools::Pager pager;
    if (action == "list" && !line.Has("no-pager")) {
      pager.Start();
    }
    return Look(action, arguments, json);
  }
  NuvexUpdaterPrefs* prefs = OpenPrefs(status);
  if (!prefs) {
    return status;
  }
  if (all) {
    return prefs->DeleteAllPrefs()
               ? kOk
               : Fail("could not reset every preference: " + WhyNotSaved(*prefs));
  }
  Slot* slot = FindSlot(*prefs, arguments[1]);
  if (!slot) {
    return Fail("unknown preference key '" + arguments[1] + "' (see oructl prefs keys)");
  }
  if (action == "set") {
    return StoreText(*prefs, *slot, arguments[2]);
  }
  return slot->Reset()
             ? kOk
             : Fail(std::string("could not reset ") + slot->key() + ": " + WhyNotSaved(*prefs));
}

int UnlockPrefsCommand(const Arguments& given) {
  oru_tools::CommandLine line({});
  int status = kOk;
  if (!BeginCommand(given, kUnlockUsage, {{"force", false}}, line, status)) {
    return status;
  }
  if (!line.Has("force") || !line.words().empty()) {
    return Fail("unlock-prefs breaks a lock another process may hold: it needs --force and "
                "nothing else");
  }
  const std::string path = UpdaterPrefsPath();
  if (path.empty()) {
    return Fail("no preferences folder can be found");
  }
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
