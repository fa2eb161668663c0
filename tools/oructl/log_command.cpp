// oructl log [sessions]: the updater log as records, filtered, or split into
// launcher runs.
#include "esd/updater_prefs.h"
#include "launcher/updater_log.h"
#include "tools/common/json_output.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/log_records.h"
#include "tools/oructl/oructl.h"

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace oructl {

namespace {

const char kUsage[] =
    "Usage: oructl log [--file PATH] [--level NAME] [--field TEXT] [--thread ID]\n"
    "                  [--since TIME] [--until TIME] [--json]\n"
    "       oructl log sessions [--file PATH] [--json]\n"
    "\n"
    "Reads the updater log (the preference LogFile, or PATH) together with its\n"
    "rotated copies, oldest first, as records: time, level, six fields, thread\n"
    "and message.\n"
    "\n"
    "  --level NAME    only records at NAME or above (TRACE DEBUG INFO WARN\n"
    "                  ERROR FATAL NONE)\n"
    "  --field TEXT    only records with a field equal to TEXT\n"
    "  --thread ID     only records of that thread (a launcher's process id)\n"
    "  --since TIME    only records at or after TIME (\"MM/DD/YY HH:MM:SS\")\n"
    "  --until TIME    only records at or before TIME\n"
    "\n"
    "\"log sessions\" splits the records into launcher runs by process, and\n"
    "flags a run whose last record is not the log's end banner as unfinished.\n"
    "\n"
    "Exit status: 0 done (sessions: every run finished); 1 sessions: some run\n"
    "is unfinished; 2 usage, an unreadable log, or a line that is no log line.\n";

constexpr time_t kSameRunGap = 60;

struct Filters {
  int level = -1;
  std::string field;
  std::string thread;
  bool has_since = false;
  bool has_until = false;
  time_t since = 0;
  time_t until = 0;
};

bool Matches(const LogRecord& record, const Filters& filters) {
  if (filters.level >= 0 && LevelRank(record.level) < filters.level) {
    return false;
  }
  if (!filters.field.empty()) {
    bool found = false;
    for (const std::string& field : record.fields) {
      found = found || field == filters.field;
    }
    if (!found) {
      return false;
    }
  }
  if (!filters.thread.empty() && record.thread != filters.thread) {
    return false;
  }
  const time_t when = record.seconds;
  return (!filters.has_since || when >= filters.since) &&
         (!filters.has_until || when <= filters.until);
}

oru_tools::Json RecordJson(const LogRecord& record) {
  return {{"file", record.file},      {"line", record.line},     {"time", record.time},
          {"level", record.level},    {"fields", record.fields}, {"thread", record.thread},
          {"message", record.message}};
}

struct Session {
  std::string thread;
  std::string first_time;
  std::string last_time;
  time_t last_seconds = 0;
  int records = 0;
  std::string last_message;
  bool finished() const { return last_message.rfind(kUpdaterLogEndBanner, 0) == 0; }
};

// A run is the records of one process; a process id seen again long after
// its run ended starts a new run.
std::vector<Session> SplitSessions(const std::vector<LogRecord>& records) {
  std::vector<Session> sessions;
  std::map<std::string, size_t> current;
  for (const LogRecord& record : records) {
    const time_t when = record.seconds;
    const auto found = current.find(record.thread);
    const bool continues =
        found != current.end() && !(sessions[found->second].finished() &&
                                    when - sessions[found->second].last_seconds >= kSameRunGap);
    if (!continues) {
      current[record.thread] = sessions.size();
      sessions.push_back({record.thread, record.time, record.time, when, 0, ""});
    }
    Session& session = sessions[current[record.thread]];
    session.last_time = record.time;
    session.last_seconds = when;
    session.last_message = record.message;
    ++session.records;
  }
  return sessions;
}

int PrintSessions(const std::vector<LogRecord>& records, bool json) {
  const std::vector<Session> sessions = SplitSessions(records);
  int unfinished = 0;
  oru_tools::Json listed = oru_tools::Json::array();
  std::string out;
  for (const Session& session : sessions) {
    unfinished += session.finished() ? 0 : 1;
    listed.push_back({{"thread", session.thread},
                      {"first", session.first_time},
                      {"last", session.last_time},
                      {"records", session.records},
                      {"finished", session.finished()},
                      {"last_message", session.last_message}});
    out += "run " + session.thread + ": " + session.first_time + " .. " + session.last_time + ", " +
           std::to_string(session.records) + " records, " +
           (session.finished() ? "finished" : "UNFINISHED (last: " + session.last_message + ")") +
           "\n";
  }
  if (json) {
    oru_tools::PrintJson(listed);
  } else {
    std::fputs(out.c_str(), stdout);
  }
  return unfinished == 0 ? kOk : kNegative;
}

} // namespace

int LogCommand(const Arguments& given) {
  oru_tools::CommandLine line({});
  int status = kOk;
  if (!BeginCommand(given, kUsage,
                    {{"json", false},
                     {"file", true},
                     {"level", true},
                     {"field", true},
                     {"thread", true},
                     {"since", true},
                     {"until", true}},
                    line, status)) {
    return status;
  }
  std::vector<std::string> words = line.words();
  const bool sessions = !words.empty() && words[0] == "sessions";
  if (sessions) {
    words.erase(words.begin());
  }
  if (!words.empty()) {
    return Fail("unexpected '" + words[0] + "' (see oructl log --help)");
  }
  const bool json = line.Has("json");
  std::string file = line.Value("file");
  Filters filters;
  filters.field = line.Value("field");
  filters.thread = line.Value("thread");
  if (line.Has("level") && (filters.level = LevelRank(line.Value("level"))) < 0) {
    return Fail("unknown level '" + line.Value("level") + "'");
  }
  if (line.Has("since") &&
      !(filters.has_since = ParseLogTime(line.Value("since"), filters.since))) {
    return Fail("--since takes \"MM/DD/YY HH:MM:SS\", not '" + line.Value("since") + "'");
  }
  if (line.Has("until") &&
      !(filters.has_until = ParseLogTime(line.Value("until"), filters.until))) {
    return Fail("--until takes \"MM/DD/YY HH:MM:SS\", not '" + line.Value("until") + "'");
  }
  if (file.empty()) {
    file = UpdaterLogPath();
  }
  std::vector<LogRecord> records;
  std::string error;
  if (file.empty() || !ReadLogRecords(LogFilesOf(file), records, error)) {
    return Fail(file.empty() ? "no log file is configured" : error);
  }
  if (records.empty() && !json) {
    std::puts("no entries");
    return kOk;
  }
  if (sessions) {
    return PrintSessions(records, json);
  }
  oru_tools::Json listed = oru_tools::Json::array();
  std::string out;
  for (const LogRecord& record : records) {
    if (!Matches(record, filters)) {
      continue;
    }
    if (json) {
      listed.push_back(RecordJson(record));
    } else {
      out += record.text + "\n";
    }
  }
  if (json) {
    oru_tools::PrintJson(listed);
  } else {
    std::fwrite(out.data(), 1, out.size(), stdout);
  }
  return kOk;
}

} // namespace oructl
