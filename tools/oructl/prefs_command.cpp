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

// list and get: looks only. Without a key, lists every key.
int Look(const std::string* key, bool json) {
  const std::unique_ptr<NuvexUpdaterPrefs> table =
      NuvexUpdaterPrefs::Unopened(UpdaterPrefsFolder());
  const Slot* slot = nullptr;
  if (key && !(slot = FindSlot(*table, *key))) {
    return Fail("unknown preference key '" + *key + "' (see oructl prefs keys)");
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

int RunPrefsList(const oru_tools::CommandLine& line) {
  oru_tools::Pager pager;
  if (!line.Has("no-pager")) {
    pager.Start();
  }
  return Look(nullptr, line.Has("json"));
}

int RunPrefsKeys(const oru_tools::CommandLine&) {
  return Keys(*NuvexUpdaterPrefs::Unopened(UpdaterPrefsFolder()));
}

int RunPrefsGet(const oru_tools::CommandLine& line) {
  return Look(&line.words()[0], line.Has("json"));
}

// The preferences opened for a change, and the slot of `key` in them; null
// with the error said when either cannot be had.
Slot* SlotToChange(const std::string& key, NuvexUpdaterPrefs*& prefs, int& status) {
  prefs = OpenPrefs(status);
  if (!prefs) {
    return nullptr;
  }
  Slot* slot = FindSlot(*prefs, key);
  if (!slot) {
    status = Fail("unknown preference key '" + key + "' (see oructl prefs keys)");
  }
  return slot;
}

int RunPrefsSet(const oru_tools::CommandLine& line) {
  int status = kOk;
  NuvexUpdaterPrefs* prefs = nullptr;
  Slot* slot = SlotToChange(line.words()[0], prefs, status);
  return slot ? StoreText(*prefs, *slot, line.words()[1]) : status;
}

int RunPrefsReset(const oru_tools::CommandLine& line) {
  const bool all = line.Has("all");
  if (all == !line.words().empty()) {
    return Fail("prefs reset takes a KEY or --all (see oructl prefs reset --help)");
  }
  int status = kOk;
  NuvexUpdaterPrefs* prefs = nullptr;
  if (all) {
    prefs = OpenPrefs(status);
    if (!prefs) {
      return status;
    }
    return prefs->DeleteAllPrefs()
               ? kOk
               : Fail("could not reset every preference: " + WhyNotSaved(*prefs));
  }
  Slot* slot = SlotToChange(line.words()[0], prefs, status);
  if (!slot) {
    return status;
  }
  return slot->Reset()
             ? kOk
             : Fail(std::string("could not reset ") + slot->key() + ": " + WhyNotSaved(*prefs));
}

std::vector<std::string> PrefKeys() {
  std::vector<std::string> keys;
  const std::unique_ptr<NuvexUpdaterPrefs> table =
      NuvexUpdaterPrefs::Unopened(UpdaterPrefsFolder());
  for (const auto& slot : table->Slots()) {
    keys.push_back(slot->key());
  }
  return keys;
}

int RunUnlockPrefs(const oru_tools::CommandLine& line) {
  if (!line.Has("force")) {
    return Fail("unlock-prefs breaks a lock another process may hold: it needs --force");
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

oru_tools::Command PrefsGroup() {
  oru_tools::Command prefs;
  prefs.name = "prefs";
  prefs.summary = "the updater preferences, typed by their key table";
  prefs.about = "Reads and writes the updater preferences (NuvexUpdaterPrefs.dat in the\n"
                "user's updater folder) under the preferences lock that every process of\n"
                "the updater takes. Values are typed by the key table: bools are 1 or 0,\n"
                "ints and unsigned numbers are decimal, strings are taken as they are, and\n"
                "maps are written KEY=VALUE,KEY=VALUE (bool maps take 1 or 0).";
  prefs.details = "list and get only look: they read the file once, take no lock and make,\n"
                  "change or move nothing. set and reset work under the lock; for them a\n"
                  "preferences file that does not parse is moved aside (to\n"
                  "NuvexUpdaterPrefs.dat.corrupt-YYYYmmdd-HHMMSS, the newest three kept) and\n"
                  "every key starts from its default; a note on standard error says so.\n"
                  "\n"
                  "Exit status: 0 done; 2 unknown key, value of the wrong type, a preferences\n"
                  "file that does not parse (list, get), cannot be read or is past the\n"
                  "reader's limits, or a lock that could not be had. Nothing on disk changes\n"
                  "when the answer is 2.";
  return prefs;
}

oru_tools::Command PrefsListCommand() {
  oru_tools::Command list;
  list.name = "prefs list";
  list.summary =
      "every key with its type and value; [default] marks a scalar\nthat holds its default";
  list.about = "Lists every key with its type and value; [default] marks a scalar that\n"
               "holds its default. Reads the file once and takes no lock.";
  list.options = {JsonOption(), NoPagerOption()};
  list.details = "Exit status: 0 done; 2 unknown key, or a preferences file that does not\n"
                 "parse, cannot be read or is past the reader's limits. Reads only.";
  list.run = &RunPrefsList;
  return list;
}

oru_tools::Command PrefsKeysCommand() {
  oru_tools::Command keys;
  keys.name = "prefs keys";
  keys.summary = "the key table: every key, its type and its default";
  keys.about = "Prints the key table: every key, its type and its default. Reads nothing.";
  keys.details = "Exit status: 0.";
  keys.run = &RunPrefsKeys;
  return keys;
}

oru_tools::Command PrefsGetCommand() {
  oru_tools::Command get;
  get.name = "prefs get";
  get.wordsText = "KEY";
  get.minWords = get.maxWords = 1;
  get.summary = "one value";
  get.about = "Prints the value of KEY. Reads the file once and takes no lock.";
  get.options = {JsonOption()};
  get.firstWord = oru_tools::Completer::WordsNow(&PrefKeys);
  get.details = "Exit status: 0 done; 2 unknown key, or a preferences file that does not\n"
                "parse, cannot be read or is past the reader's limits. Reads only.";
  get.run = &RunPrefsGet;
  return get;
}

oru_tools::Command PrefsSetCommand() {
  oru_tools::Command set;
  set.name = "prefs set";
  set.wordsText = "KEY VALUE";
  set.minWords = set.maxWords = 2;
  set.summary = "stores a value, which must convert to the key's type";
  set.about = "Stores VALUE for KEY under the preferences lock; VALUE must convert to\n"
              "the key's type.";
  set.firstWord = oru_tools::Completer::WordsNow(&PrefKeys);
  set.details = "Exit status: 0 done; 2 unknown key, a value of the wrong type, or a lock\n"
                "or save that failed; nothing on disk changes then.";
  set.run = &RunPrefsSet;
  return set;
}

oru_tools::Command PrefsResetCommand() {
  oru_tools::Command reset;
  reset.name = "prefs reset";
  reset.wordsText = "[KEY]";
  reset.maxWords = 1;
  reset.summary = "gives one key its default, or every key with --all";
  reset.about = "Gives KEY its default (an empty map), under the preferences lock.";
  reset.options = {
      {"all", '\0', "", "deletes the file, so that every key starts from its\ndefault"}};
  reset.firstWord = oru_tools::Completer::WordsNow(&PrefKeys);
  reset.details = "Exit status: 0 done; 2 unknown key, a value of the wrong type, or a lock\n"
                  "or save that failed; nothing on disk changes then.";
  reset.run = &RunPrefsReset;
  return reset;
}

} // namespace

std::vector<oru_tools::Command> PrefsCommands() {
  return {PrefsGroup(),      PrefsListCommand(), PrefsKeysCommand(),
          PrefsGetCommand(), PrefsSetCommand(),  PrefsResetCommand()};
}

oru_tools::Command UnlockPrefsCommand() {
  oru_tools::Command command;
  command.name = "unlock-prefs";
  command.summary = "breaks a stale preferences lock";
  command.about = "Removes the preferences lock (a POSIX named semaphore derived from the\n"
                  "preferences file's path). Processes of this updater record who holds it\n"
                  "(NuvexUpdaterPrefs.dat.holder) and remove the lock of a dead holder by\n"
                  "themselves; a program that keeps no record and dies holding it leaves it\n"
                  "for ever, and then every process fails to read or write the preferences.\n"
                  "Refused while the recorded holder is alive.";
  command.options = {{"force", '\0', "", "required: the lock may be another process's"}};
  command.details = "Exit status: 0 a lock was removed; 1 there was none; 2 usage, or the\n"
                    "recorded holder is alive.";
  command.run = &RunUnlockPrefs;
  return command;
}

} // namespace oructl
