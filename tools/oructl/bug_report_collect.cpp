// The pieces of a bug report, each read without changing anything.
#include "esd/corrupt_file.h"
#include "esd/updater_prefs.h"
#include "locks/lock_holder.h"
#include "platform/locale.h"
#include "platform/os_info.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"
#include "tools/common/command_line.h"
#include "tools/common/run_program.h"
#include "tools/oructl/bug_report.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/log_records.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/utsname.h>
#include <unistd.h>

namespace oructl {

namespace {

// The newest records of `text` within `most` bytes, cut at a line start.
std::string NewestWithin(const std::string& text, size_t most, std::string& note) {
  if (text.size() <= most) {
    return text;
  }
  size_t from = text.size() - most;
  from = text.find('\n', from);
  from = from == std::string::npos ? text.size() : from + 1;
  note = "cut: the newest " + std::to_string(text.size() - from) + " of " +
         std::to_string(text.size()) + " bytes kept";
  return text.substr(from);
}

ReportItem LogItem(const std::string& file, bool has_since, int64_t since, size_t room) {
  ReportItem item;
  item.name = "logs/" + platform::BaseName(file);
  item.from = file;
  std::string text;
  std::string error;
  const auto keep = [&](const LogRecord& record) {
    if (!has_since || record.seconds >= since) {
      text += record.text + "\n";
    }
    return true;
  };
  if (!ForEachRecord({file}, keep, error)) {
    item.note = "not read: " + error;
  }
  std::string cut;
  item.bytes = RedactLogText(NewestWithin(text, std::min(kMostOfOneLog, room), cut), item.redacted);
  item.note += cut;
  return item;
}

// A small file read through its folder, redacted as preferences text.
ReportItem PrefsItem(const platform::FolderHandle& folder, const std::string& path,
                     const std::string& name) {
  constexpr size_t kMostOfAPrefsFile = 4u << 20;
  ReportItem item;
  item.name = "prefs/" + name;
  item.from = path + "/" + name;
  platform::ScopedFd file;
  std::string text;
  if (!platform::OpenFileIn(folder, name, platform::OpenOptions(), file) ||
      !platform::ReadAll(file.get(), text, kMostOfAPrefsFile)) {
    item.note = std::string("not read: ") + std::strerror(errno);
  }
  item.bytes = RedactPrefsText(text, item.redacted);
  return item;
}

ReportItem LookItem(const std::string& name, const std::vector<std::string>& arguments) {
  ReportItem item;
  item.name = "looks/" + name + ".json";
  item.from = "oructl";
  for (const std::string& argument : arguments) {
    item.from += " " + argument;
  }
  const oru_tools::ProgramRun run = oru_tools::RunProgram(oru_tools::OwnExecutable(), arguments);
  oru_tools::Json json = oru_tools::Json::parse(run.output, nullptr, false);
  if (!run.started || json.is_discarded()) {
    item.note = "no answer: " + (run.started ? run.errors : std::string("could not start"));
    return item;
  }
  item.note = run.exitStatus == 0 ? "" : "exit status " + std::to_string(run.exitStatus);
  RedactJson(json, item.redacted);
  item.bytes = json.dump(2) + "\n";
  return item;
}

} // namespace

std::vector<ReportItem> CollectLogs(bool has_since, int64_t since) {
  std::vector<ReportItem> items;
  size_t room = kMostOfAllLogs;
  for (const std::string& log : ProductLogPaths()) {
    for (const std::string& file : LogFilesOf(log)) {
      platform::ScopedFd there;
      std::string error;
      if (OpenLogFile(file, there, error) && !there.valid()) {
        continue; // no such log yet
      }
      ReportItem item = LogItem(file, has_since, since, room);
      room -= std::min(room, item.bytes.size());
      if (room == 0 && item.note.empty()) {
        item.note = "the logs reached the report's limit; older files are left out";
      }
      items.push_back(std::move(item));
    }
  }
  return items;
}

std::vector<ReportItem> CollectPrefs() {
  const std::string folder_path = UpdaterPrefsFolder();
  platform::FolderHandle folder;
  std::vector<std::string> names;
  if (folder_path.empty() || !platform::OpenFolder(folder_path, folder) ||
      !platform::ListFolder(folder, names)) {
    return {};
  }
  const std::string prefs = NuvexUpdaterPrefs::kFileName;
  std::vector<ReportItem> items;
  for (const std::string& name : names) {
    const bool wanted = name == prefs || name == prefs + esd::kHolderRecordSuffix ||
                        name.rfind(prefs + esd::kCorruptInfix, 0) == 0;
    if (wanted) {
      items.push_back(PrefsItem(folder, folder_path, name));
    }
  }
  return items;
}

std::vector<ReportItem> CollectLooks() {
  std::vector<ReportItem> items = {
      LookItem("status", {"status", "--json"}), LookItem("explain", {"explain", "--json"}),
      LookItem("doctor", {"doctor", "--json"}),
      LookItem("prefs-list", {"prefs", "list", "--json", "--no-pager"}),
      LookItem("log-sessions", {"log", "sessions", "--json"})};
  ReportItem sets;
  sets.name = "looks/semaphores.json";
  sets.from = "status: the hand-over's semaphore sets and locks";
  const oru_tools::Json status = oru_tools::Json::parse(items[0].bytes, nullptr, false);
  if (!status.is_discarded() && status.is_object()) {
    sets.bytes = oru_tools::Json({{"sets", status.value("locks", oru_tools::Json::array())},
                                  {"prefs_lock", status.value("prefs_lock", oru_tools::Json())},
                                  {"log_lock", status.value("log_lock", oru_tools::Json())}})
                     .dump(2) +
                 "\n";
  }
  items.push_back(sets);
  return items;
}

ReportItem CollectSystem() {
  struct utsname names = {};
  uname(&names);
  platform::OSVersion version;
  platform::GetOSVersion(version);
  std::string os_name;
  platform::FormatOSName(version, os_name);
  const char* zone = std::getenv("TZ");
  const char* lang = std::getenv("LANG");
  tzset();
  const oru_tools::Json system = {
      {"package_version", oru_tools::ProjectVersion()},
      {"os", os_name},
      {"kernel",
       {{"name", names.sysname},
        {"release", names.release},
        {"version", names.version},
        {"machine", names.machine}}},
      {"locale", platform::CurrentLocaleIdentifier()},
      {"LANG", lang ? lang : ""},
      {"time_zone", {{"TZ", zone ? zone : ""}, {"names", {tzname[0], tzname[1]}}}},
      {"uid", getuid()},
      {"euid", geteuid()},
      {"report_made", static_cast<int64_t>(time(nullptr))}};
  ReportItem item;
  item.name = "system.json";
  item.from = "the system";
  item.bytes = system.dump(2) + "\n";
  return item;
}

} // namespace oructl
