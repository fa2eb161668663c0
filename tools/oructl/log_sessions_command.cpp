// oructl log sessions: the updater log split into launcher runs, each
// flagged finished or not, and with --timeline drawn as its phases.
#include "launcher/handover.h"
#include "launcher/updater_log.h"
#include "platform/paths.h"
#include "tools/common/handover_trace.h"
#include "tools/common/json_output.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/log_merge.h"
#include "tools/oructl/log_records.h"
#include "tools/oructl/oructl.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace oructl {

namespace {

constexpr int64_t kSameRunGapSeconds = 60;
constexpr int kBarWidth = 40;

struct Session {
  std::string track; // "run 7508" for the updater's, "oruui.log run 7508" for another log's
  std::string thread;
  std::string first_time; // as written
  std::string last_time;
  int64_t first_ms = 0; // moments, in milliseconds since 1970 UTC
  int64_t last_ms = 0;
  int64_t wait_ms = -1;       // the launcher's wait line, when it came
  int64_t after_wait_ms = -1; // the first record after it
  int records = 0;
  std::string last_message;
  bool finished() const { return last_message.rfind(kUpdaterLogEndBanner, 0) == 0; }
};

struct Phase {
  const char* name;
  int64_t start_ms; // from the run's first record
  int64_t duration_ms;
};

std::vector<Phase> PhasesOf(const Session& session) {
  const int64_t first = session.first_ms;
  const int64_t last = session.last_ms;
  if (session.wait_ms < 0) {
    return {{"run", 0, last - first}};
  }
  const int64_t woke = session.after_wait_ms < 0 ? last : session.after_wait_ms;
  std::vector<Phase> phases = {
      {"start-up", 0, session.wait_ms - first},
      {"waiting for the installer", session.wait_ms - first, woke - session.wait_ms}};
  if (session.after_wait_ms >= 0) {
    phases.push_back({"hand-over", woke - first, last - woke});
  }
  return phases;
}

// Where a record comes from: which log of the view, and whether that log
// is the updater's own, where only the updater's records make runs (other
// programs write the same file).
struct RecordSource {
  size_t log = 0;
  std::string logName; // empty for the updater's own log
};

// Runs in the order they started. A run is the records one process wrote
// to one log; a process id seen again long after its run ended starts a
// new run.
class SessionSplitter {
public:
  void Add(const LogRecord& record, int64_t moment_ms, const RecordSource& source) {
    if (source.logName.empty() && record.fields[1] != kUpdaterLogName) {
      return;
    }
    Session& session = RunOf(record, moment_ms, source);
    if (session.wait_ms >= 0 && session.after_wait_ms < 0) {
      session.after_wait_ms = moment_ms;
    }
    if (session.wait_ms < 0 && record.fields[1] == kUpdaterLogName &&
        record.message == kLauncherWaitsLine) {
      session.wait_ms = moment_ms;
    }
    session.last_time = record.time;
    session.last_ms = moment_ms;
    session.last_message = record.message;
    ++session.records;
  }
  const std::vector<Session>& sessions() const { return sessions_; }

private:
  Session& RunOf(const LogRecord& record, int64_t moment_ms, const RecordSource& source) {
    const std::pair<size_t, std::string> key(source.log, record.thread);
    const auto found = current_.find(key);
    if (found != current_.end()) {
      const Session& last = sessions_[found->second];
      if (!last.finished() || moment_ms - last.last_ms < kSameRunGapSeconds * 1000) {
        return sessions_[found->second];
      }
    }
    current_[key] = sessions_.size();
    Session started;
    started.track = (source.logName.empty() ? "" : source.logName + " ") + "run " + record.thread;
    started.thread = record.thread;
    started.first_time = record.time;
    started.first_ms = moment_ms;
    sessions_.push_back(started);
    return sessions_.back();
  }

  std::vector<Session> sessions_;
  std::map<std::pair<size_t, std::string>, size_t> current_;
};

// The runs of the logs of a view. One log is read as the updater's and
// streamed; of several, only the one the preferences name LogFile is, and
// they are merged by time first.
bool ReadSessions(const std::vector<std::string>& logs, SessionSplitter& splitter,
                  std::string& error) {
  if (logs.size() == 1) {
    LogMoments moments;
    const auto add = [&](const LogRecord& record) {
      splitter.Add(record, moments.Next(record), RecordSource());
      return true;
    };
    return ForEachRecord(LogFilesOf(logs.front()), add, error);
  }
  std::vector<RecordSource> sources(logs.size());
  const std::string updater_log = UpdaterLogPath();
  for (size_t log = 0; log < logs.size(); ++log) {
    sources[log].log = log;
    sources[log].logName = logs[log] == updater_log ? "" : platform::BaseName(logs[log]);
  }
  std::vector<MergedRecord> merged;
  if (!MergeLogs(logs, merged, error)) {
    return false;
  }
  for (const MergedRecord& each : merged) {
    splitter.Add(each.record, each.epochMs, sources[each.log]);
  }
  return true;
}

// The time every run of a view is drawn against, so that runs that
// overlapped are seen overlapping.
struct Axis {
  int64_t start_ms = 0;
  int64_t total_ms = 1;
};

Axis AxisOf(const std::vector<Session>& sessions) {
  Axis axis;
  if (sessions.empty()) {
    return axis;
  }
  int64_t end = sessions.front().last_ms;
  axis.start_ms = sessions.front().first_ms;
  for (const Session& session : sessions) {
    axis.start_ms = std::min(axis.start_ms, session.first_ms);
    end = std::max(end, session.last_ms);
  }
  axis.total_ms = std::max<int64_t>(end - axis.start_ms, 1);
  return axis;
}

std::string Bar(int64_t from_ms, int64_t duration_ms, const Axis& axis) {
  int from = static_cast<int>((from_ms - axis.start_ms) * kBarWidth / axis.total_ms);
  int to = static_cast<int>((from_ms - axis.start_ms + duration_ms) * kBarWidth / axis.total_ms);
  from = std::min(from, kBarWidth - 1);
  to = std::max(to, from + 1); // a phase is always seen, however short
  std::string bar(kBarWidth, ' ');
  std::fill(bar.begin() + from, bar.begin() + std::min(to, kBarWidth), '#');
  return "[" + bar + "]";
}

std::string Timeline(const Session& session, const Axis& axis) {
  std::string out;
  for (const Phase& phase : PhasesOf(session)) {
    char row[160];
    std::snprintf(row, sizeof row, "  %-26s %s %8lld ms\n", phase.name,
                  Bar(session.first_ms + phase.start_ms, phase.duration_ms, axis).c_str(),
                  static_cast<long long>(phase.duration_ms));
    out += row;
  }
  return out;
}

// The launcher's runs are its own in the updater's log; another log's are
// its program's, named by the log.
std::string TrackName(const Session& session) {
  return session.track.rfind("run ", 0) == 0 ? "OruLauncher " + session.track : session.track;
}

// The runs as Chrome trace-event JSON, as oru-installer-sim writes a
// hand-over: one track a run, a span a phase, all on one axis, the
// microseconds since 1970 UTC of the moments the records name. (Never an
// axis from 0: trace viewers take a time stamp of 0 for one not given and
// leave it out of the trace's bounds.)
oru_tools::Json TraceOf(const std::vector<Session>& sessions) {
  oru_tools::Json events = oru_tools::Json::array();
  int track = 0;
  for (const Session& session : sessions) {
    ++track;
    events.push_back({{"name", "process_name"},
                      {"ph", "M"},
                      {"pid", track},
                      {"tid", track},
                      {"args", {{"name", TrackName(session)}}}});
    for (const Phase& phase : PhasesOf(session)) {
      events.push_back({{"name", phase.name},
                        {"cat", "handover"},
                        {"ph", "X"},
                        {"ts", (session.first_ms + phase.start_ms) * 1000},
                        {"dur", phase.duration_ms * 1000},
                        {"pid", track},
                        {"tid", track},
                        {"args", {{"thread", session.thread}, {"finished", session.finished()}}}});
    }
  }
  return {{"traceEvents", events}, {"displayTimeUnit", "ms"}};
}

oru_tools::Json SessionJson(const Session& session, bool timeline) {
  oru_tools::Json json = {{"thread", session.thread},
                          {"first", session.first_time},
                          {"last", session.last_time},
                          {"records", session.records},
                          {"finished", session.finished()},
                          {"last_message", session.last_message},
                          {"run", session.track}};
  if (timeline) {
    json["duration_ms"] = session.last_ms - session.first_ms;
    oru_tools::Json phases = oru_tools::Json::array();
    for (const Phase& phase : PhasesOf(session)) {
      phases.push_back(
          {{"name", phase.name}, {"start_ms", phase.start_ms}, {"duration_ms", phase.duration_ms}});
    }
    json["phases"] = phases;
  }
  return json;
}

std::string SessionText(const Session& session, bool timeline, const Axis& axis) {
  std::string out =
      session.track + ": " + session.first_time + " .. " + session.last_time + ", " +
      std::to_string(session.records) + " records, " +
      (session.finished() ? "finished" : "UNFINISHED (last: " + session.last_message + ")") + "\n";
  return timeline ? out + Timeline(session, axis) : out;
}

int RunLogSessions(const oru_tools::CommandLine& line) {
  int status = kOk;
  const std::vector<std::string> logs = LogsToRead(line, status);
  if (logs.empty()) {
    return status;
  }
  SessionSplitter splitter;
  std::string error;
  if (!ReadSessions(logs, splitter, error)) {
    return Fail(error);
  }
  const bool json = line.Has("json");
  const bool timeline = line.Has("timeline");
  if (line.Has("trace") &&
      !oru_tools::WriteTraceFile(line.Value("trace"), TraceOf(splitter.sessions()))) {
    return Fail("cannot write the trace " + line.Value("trace") + ": " + std::strerror(errno));
  }
  if (splitter.sessions().empty() && !json) {
    std::puts("no entries");
    return kOk;
  }
  int unfinished = 0;
  const Axis axis = AxisOf(splitter.sessions());
  oru_tools::Json listed = oru_tools::Json::array();
  for (const Session& session : splitter.sessions()) {
    unfinished += session.finished() ? 0 : 1;
    if (json) {
      listed.push_back(SessionJson(session, timeline));
    } else {
      std::fputs(SessionText(session, timeline, axis).c_str(), stdout);
    }
  }
  if (json) {
    oru_tools::PrintJson(listed);
  }
  return unfinished == 0 ? kOk : kNegative;
}

} // namespace

oru_tools::Command LogSessionsCommand() {
  oru_tools::Command command;
  command.name = "log sessions";
  command.summary = "splits the logs into runs, the launcher's with their phases";
  command.about = "Splits the updater log (the preference LogFile, or PATH, with its rotated\n"
                  "copies) into launcher runs by process, and flags a run whose last record\n"
                  "is not the log's end banner as unfinished. Only the updater's own records\n"
                  "(second field \"UPDATER\") make runs. With --all or several --file, the\n"
                  "logs are merged by time; in a log other than the updater's own (LogFile)\n"
                  "every record makes runs, named after the log (\"oruui.log run 4242\"),\n"
                  "so that the installer's runs are seen beside the launcher's.";
  command.options = {ManyFilesOption(),
                     AllLogsOption(),
                     {"timeline", '\0', "",
                      "draws each run's phases with their durations: start-up (to\n"
                      "the wait for the installer), waiting for the installer, and\n"
                      "the hand-over after it; every run on one axis, from the\n"
                      "first record to the last, so that runs that overlapped\n"
                      "are seen overlapping"},
                     {"trace", '\0', "FILE",
                      "also write the runs as Chrome trace-event JSON (Perfetto,\n"
                      "chrome://tracing), as oru-installer-sim --trace does: one\n"
                      "track a run, a span a phase, all on one time axis: the\n"
                      "microseconds since 1970 UTC of the moments the records name",
                      oru_tools::Completer::Files()},
                     JsonOption()};
  command.details = "Exit status: 0 every run finished; 1 some run is unfinished, or a log\n"
                    "named with --file is not there; 2 usage, an unreadable log, or a line\n"
                    "that is no log line.";
  command.run = &RunLogSessions;
  return command;
}

} // namespace oructl
