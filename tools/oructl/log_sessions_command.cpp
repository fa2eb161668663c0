// oructl log sessions: the updater log split into launcher runs, each
// flagged finished or not, and with --timeline drawn as its phases.
#include "launcher/handover.h"
#include "launcher/updater_log.h"
#include "tools/common/handover_trace.h"
#include "tools/common/json_output.h"
#include "tools/oructl/ipc_state.h"
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
  std::string thread;
  std::string first_time;
  std::string last_time;
  int64_t first_ms = 0;
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

// Runs in the order they started. A run is the records the updater log of
// one process wrote (other programs write the same file); a process id seen
// again long after its run ended starts a new run.
class SessionSplitter {
public:
  void Add(const LogRecord& record) {
    if (record.fields[1] != kUpdaterLogName) {
      return;
    }
    const auto found = current_.find(record.thread);
    const bool continues =
        found != current_.end() &&
        !(sessions_[found->second].finished() &&
          record.seconds - sessions_[found->second].last_ms / 1000 >= kSameRunGapSeconds);
    if (!continues) {
      current_[record.thread] = sessions_.size();
      Session started;
      started.thread = record.thread;
      started.first_time = record.time;
      started.first_ms = record.TimeMs();
      sessions_.push_back(started);
    }
    Session& session = sessions_[current_[record.thread]];
    if (session.wait_ms >= 0 && session.after_wait_ms < 0) {
      session.after_wait_ms = record.TimeMs();
    }
    if (session.wait_ms < 0 && record.message == kLauncherWaitsLine) {
      session.wait_ms = record.TimeMs();
    }
    session.last_time = record.time;
    session.last_ms = record.TimeMs();
    session.last_message = record.message;
    ++session.records;
  }
  const std::vector<Session>& sessions() const { return sessions_; }

private:
  std::vector<Session> sessions_;
  std::map<std::string, size_t> current_;
};

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

// The runs as Chrome trace-event JSON, as oru-installer-sim writes a
// hand-over: one track a run, a span a phase, all on the view's one axis
// (microseconds from its first record).
oru_tools::Json TraceOf(const std::vector<Session>& sessions) {
  const Axis axis = AxisOf(sessions);
  oru_tools::Json events = oru_tools::Json::array();
  int track = 0;
  for (const Session& session : sessions) {
    ++track;
    events.push_back({{"name", "process_name"},
                      {"ph", "M"},
                      {"pid", track},
                      {"tid", track},
                      {"args", {{"name", "OruLauncher run " + session.thread}}}});
    for (const Phase& phase : PhasesOf(session)) {
      events.push_back(
          {{"name", phase.name},
           {"cat", "handover"},
           {"ph", "X"},
           {"ts", static_cast<double>(session.first_ms + phase.start_ms - axis.start_ms) * 1000.0},
           {"dur", static_cast<double>(phase.duration_ms) * 1000.0},
           {"pid", track},
           {"tid", track},
           {"args", {{"thread", session.thread}, {"finished", session.finished()}}}});
    }
  }
  return {{"traceEvents", events}, {"displayTimeUnit", "ms"}};
}

oru_tools::Json SessionJson(const Session& session, bool timeline) {
  oru_tools::Json json = {{"thread", session.thread},       {"first", session.first_time},
                          {"last", session.last_time},      {"records", session.records},
                          {"finished", session.finished()}, {"last_message", session.last_message}};
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
      "run " + session.thread + ": " + session.first_time + " .. " + session.last_time + ", " +
      std::to_string(session.records) + " records, " +
      (session.finished() ? "finished" : "UNFINISHED (last: " + session.last_message + ")") + "\n";
  return timeline ? out + Timeline(session, axis) : out;
}

int RunLogSessions(const oru_tools::CommandLine& line) {
  int status = kOk;
  const std::string file = LogToRead(line, status);
  if (file.empty()) {
    return status;
  }
  SessionSplitter splitter;
  std::string error;
  const auto add = [&](const LogRecord& record) {
    splitter.Add(record);
    return true;
  };
  if (!ForEachRecord(LogFilesOf(file), add, error)) {
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
  command.summary = "splits the log into launcher runs and their phases";
  command.about = "Splits the updater log (the preference LogFile, or PATH, with its rotated\n"
                  "copies) into launcher runs by process, and flags a run whose last record\n"
                  "is not the log's end banner as unfinished. Only the updater's own records\n"
                  "(second field \"UPDATER\") make runs.";
  command.options = {FileOption(),
                     {"timeline", '\0', "",
                      "draws each run's phases with their durations: start-up (to\n"
                      "the wait for the installer), waiting for the installer, and\n"
                      "the hand-over after it; every run on one axis, from the\n"
                      "first record to the last, so that runs that overlapped\n"
                      "are seen overlapping"},
                     {"trace", '\0', "FILE",
                      "also write the runs as Chrome trace-event JSON (Perfetto,\n"
                      "chrome://tracing), as oru-installer-sim --trace does: one\n"
                      "track a run, a span a phase, all on one time axis",
                      oru_tools::Completer::Files()},
                     JsonOption()};
  command.details = "Exit status: 0 every run finished; 1 some run is unfinished, or a log\n"
                    "named with --file is not there; 2 usage, an unreadable log, or a line\n"
                    "that is no log line.";
  command.run = &RunLogSessions;
  return command;
}

} // namespace oructl
