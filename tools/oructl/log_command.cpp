// oructl log: the updater log as records, filtered, from the end, or as it
// grows. "log sessions" and "log write" live in files of their own.
#include "platform/paths.h"
#include "tools/common/json_output.h"
#include "tools/common/terminal.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/log_follow.h"
#include "tools/oructl/log_merge.h"
#include "tools/oructl/log_records.h"
#include "tools/oructl/log_time.h"
#include "tools/oructl/oructl.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <time.h>
#include <vector>

namespace oructl {

namespace {

constexpr long kFollowStartRecords = 10;

struct Filters {
  int level = -1;
  std::string field;
  std::string thread;
  bool has_since = false;
  bool has_until = false;
  int64_t since = 0;
  int64_t until = 0;
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
  return (!filters.has_since || record.seconds >= filters.since) &&
         (!filters.has_until || record.seconds <= filters.until);
}

// The shape of a record in --json; raised when a field changes meaning or
// goes, not when one is added.
constexpr int kRecordSchema = 1;

const char* ReadingName(PlacedTime::Reading reading) {
  switch (reading) {
  case PlacedTime::Reading::kOne:
    return "one";
  case PlacedTime::Reading::kFold:
    return "fold";
  case PlacedTime::Reading::kSkipped:
    return "skipped";
  }
  return "one";
}

oru_tools::Json RecordJson(const LogRecord& record, LogTimePlacer& placer) {
  oru_tools::Json fields = oru_tools::Json::object();
  for (size_t index = 0; index < 6; ++index) {
    fields["f" + std::to_string(index + 1)] = record.fields[index];
  }
  oru_tools::Json json = {
      {"schema", kRecordSchema},
      {"file", record.file},
      {"line", record.line > 0 ? oru_tools::Json(record.line) : oru_tools::Json(nullptr)}};
  PlacedTime placed;
  if (placer.Place(record.time, placed)) {
    json["time"] = placed.rfc3339;
    json["epoch_ms"] = placed.epochMs;
    json["time_reading"] = ReadingName(placed.reading);
    if (placed.reading == PlacedTime::Reading::kFold) {
      json["later_time"] = placed.laterRfc3339;
      json["later_epoch_ms"] = placed.laterEpochMs;
    }
  }
  json["time_written"] = record.time;
  json["level"] = record.level;
  json["fields"] = std::move(fields);
  json["thread"] = record.thread;
  json["message"] = record.message;
  return json;
}

// Prints records as they come, in the chosen form.
class RecordPrinter {
public:
  RecordPrinter(bool json, bool json_lines, bool colour)
      : json_(json), json_lines_(json_lines), colour_(colour) {}
  // Starts each line of text with the name of the record's log, as a view
  // of several logs does (JSON names the file in every record).
  void MarkFiles() { mark_files_ = true; }

  void Print(const LogRecord& record) {
    ++printed_;
    if (json_) {
      const std::string text = oru_tools::JsonText(RecordJson(record, placer_));
      if (json_lines_) {
        std::printf("%s\n", text.c_str());
      } else {
        std::printf("%s%s", printed_ == 1 ? "[\n" : ",\n", text.c_str());
      }
    } else {
      const char* colour = colour_ ? oru_tools::LevelColour(record.level) : "";
      const std::string mark = mark_files_ ? platform::BaseName(record.file) + ": " : "";
      std::printf("%s%s%s%s\n", mark.c_str(), colour, record.text.c_str(),
                  *colour ? oru_tools::kColourEnd : "");
    }
    if (json_lines_ || following_) {
      std::fflush(stdout);
    }
  }

  // Ends what was printed so far: the array, or "no entries" for a log
  // that holds no records (filters that match none print nothing, as grep).
  void Finish(bool log_has_records) {
    if (json_ && !json_lines_) {
      std::fputs(printed_ == 0 ? "[]\n" : "\n]\n", stdout);
    } else if (!json_ && !log_has_records) {
      std::puts("no entries");
    }
    std::fflush(stdout);
  }
  void StartFollowing() { following_ = true; }

private:
  bool json_;
  bool json_lines_;
  bool colour_;
  bool following_ = false;
  bool mark_files_ = false;
  size_t printed_ = 0;
  LogTimePlacer placer_;
};

bool ReadFilters(const oru_tools::CommandLine& line, Filters& filters) {
  filters.field = line.Value("field");
  filters.thread = line.Has("pid") ? line.Value("pid") : line.Value("thread");
  if (line.Has("level") && (filters.level = LevelRank(line.Value("level"))) < 0) {
    Fail("unknown level '" + line.Value("level") + "'");
    return false;
  }
  return ReadTimeOption(line, "since", filters.has_since, filters.since) &&
         ReadTimeOption(line, "until", filters.has_until, filters.until);
}

bool ReadCount(const oru_tools::CommandLine& line, long& count) {
  count = -1;
  if (!line.Has("lines")) {
    return true;
  }
  char* end = nullptr;
  errno = 0;
  const std::string text = line.Value("lines");
  count = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || text.empty() || *end != '\0' || count < 0) {
    Fail("-n takes a count of records, 0 or more, not '" + text + "'");
    return false;
  }
  return true;
}

// The records, printed; then, with `follow`, every new one.
int PrintRecords(const std::string& file, const Filters& filters, long count, bool follow,
                 RecordPrinter& printer, bool json) {
  const std::vector<std::string> files = LogFilesOf(file);
  std::string error;
  ReadPosition end;
  const auto wanted = [&](const LogRecord& record) { return Matches(record, filters); };
  bool log_has_records = false;
  if (count >= 0) {
    std::vector<LogRecord> last;
    if (!LastRecords(files, static_cast<size_t>(count), wanted, json, last, error, &end)) {
      return Fail(error);
    }
    for (const LogRecord& record : last) {
      printer.Print(record);
    }
    const auto any = [](const LogRecord&) { return true; };
    std::vector<LogRecord> one;
    log_has_records =
        !last.empty() || (LastRecords(files, 1, any, false, one, error) && !one.empty());
  } else {
    const auto print = [&](const LogRecord& record) {
      log_has_records = true;
      if (wanted(record)) {
        printer.Print(record);
      }
      return true;
    };
    if (!ForEachRecord(files, print, error, &end)) {
      return Fail(error);
    }
  }
  if (!follow) {
    printer.Finish(log_has_records);
    return kOk;
  }
  end.newestCopy = files.size() < 2 ? std::string() : files[files.size() - 2];
  std::fflush(stdout);
  printer.StartFollowing();
  const auto print_new = [&](const LogRecord& record) {
    if (wanted(record)) {
      printer.Print(record);
    }
    return true;
  };
  if (!FollowLog(file, end, print_new, error)) {
    return Fail(error);
  }
  return kOk;
}

// Several logs as one view, in time order; the last `count` records that
// pass the filters when `count` is not negative.
int PrintMerged(const std::vector<std::string>& logs, const Filters& filters, long count,
                RecordPrinter& printer) {
  std::vector<MergedRecord> merged;
  std::string error;
  if (!MergeLogs(logs, merged, error)) {
    return Fail(error);
  }
  std::vector<const LogRecord*> shown;
  for (const MergedRecord& each : merged) {
    if (Matches(each.record, filters)) {
      shown.push_back(&each.record);
    }
  }
  const size_t skipped =
      count >= 0 && shown.size() > static_cast<size_t>(count) ? shown.size() - count : 0;
  printer.MarkFiles();
  for (size_t index = skipped; index < shown.size(); ++index) {
    printer.Print(*shown[index]);
  }
  printer.Finish(!merged.empty());
  return kOk;
}

int RunLog(const oru_tools::CommandLine& line) {
  int status = kOk;
  Filters filters;
  long count = -1;
  if (!ReadFilters(line, filters) || !ReadCount(line, count)) {
    return kError;
  }
  const bool follow = line.Has("follow");
  if (follow && (line.Has("all") || line.Values("file").size() > 1)) {
    return Fail("--follow follows one log: give one --file, or none for the updater's");
  }
  const std::vector<std::string> logs = LogsToRead(line, status);
  if (logs.empty()) {
    return status;
  }
  // As journalctl -f and tail -f do: following starts from the last ten
  // records, unless -n says how many.
  if (follow && count < 0) {
    count = kFollowStartRecords;
  }
  const bool json = line.Has("json");
  // Colour is decided before the pager takes standard output over.
  RecordPrinter printer(json, json && follow, !json && oru_tools::ColourWanted());
  oru_tools::Pager pager;
  if (!follow && !line.Has("no-pager")) {
    pager.Start();
  }
  if (logs.size() > 1) {
    return PrintMerged(logs, filters, count, printer);
  }
  return PrintRecords(logs.front(), filters, count, follow, printer, json);
}

std::vector<oru_tools::Option> LogOptions() {
  return {ManyFilesOption(),
          AllLogsOption(),
          {"lines", 'n', "N",
           "only the last N records (that pass the filters), read\nfrom the end of the log"},
          {"follow", 'f', "",
           "print the last 10 records (or the last N of -n), then\n"
           "each new one as it is written, across rotations, until\n"
           "interrupted"},
          LevelFilterOption(),
          {"field", '\0', "TEXT", "only records with a field equal to TEXT"},
          {"thread", '\0', "ID", "only records of that thread"},
          {"pid", '\0', "PID",
           "only records of that process: the log names the writing\n"
           "thread, which for a process's main thread (the only one\n"
           "the launcher has) is the process id"},
          {"since", '\0', "TIME", "only records at or after TIME", TimeCompleter()},
          {"until", '\0', "TIME", "only records at or before TIME", TimeCompleter()},
          NoPagerOption(),
          {"json", '\0', "",
           "records as JSON: one array, one record a line; with\n"
           "--follow, one object a line (JSON Lines), as the stream\n"
           "has no end"}};
}

} // namespace

oru_tools::Command LogCommand() {
  oru_tools::Command command;
  command.name = "log";
  command.summary = "reads the updater log as records, from the end or as it grows";
  command.about = "Reads the updater log (the preference LogFile, or PATH) together with its\n"
                  "rotated copies, oldest first, as records: time, level, six fields, thread\n"
                  "and message. The log is read as it streams, in the memory of a few records.";
  command.options = LogOptions();
  command.details =
      "TIME is local time unless it names its zone: \"2026-11-22\",\n"
      "\"2026-11-22T10:00[:00]\" (or a blank for \"T\"), optionally with \"Z\" or\n"
      "\"+01:00\"; \"now\", \"today\", \"yesterday\", \"tomorrow\"; \"-2h\", \"+30m\", \"-1d\",\n"
      "\"-90s\", \"-1w\" from now; or \"MM/DD/YY HH:MM:SS\" as the log writes it.\n"
      "\n"
      "A record in JSON (schema 1): \"schema\"; \"file\" and \"line\"; \"time\", the\n"
      "line's local time in the zone in force (TZ) as RFC 3339 with milliseconds\n"
      "and the offset, and \"epoch_ms\", the same moment in milliseconds since\n"
      "1970 UTC; \"time_reading\": \"one\", or \"fold\" when the wall time names two\n"
      "moments (the hour the end of summer time repeats; \"later_time\" and\n"
      "\"later_epoch_ms\" give the second), or \"skipped\" when it names none (read\n"
      "as before the clock's jump); \"time_written\", the time as the line has it;\n"
      "\"level\"; \"fields\", the six fields as \"f1\" to \"f6\"; \"thread\"; \"message\".\n"
      "A view of several logs is in the order of \"epoch_ms\"; there, a wall time\n"
      "that names two moments is read as the later once its log has passed the\n"
      "earlier.\n"
      "\n"
      "On a terminal, records are coloured by level (unless NO_COLOR is set) and\n"
      "the output goes through $PAGER (less, with LESS=FRX when unset).\n"
      "\n"
      "Exit status: 0 done; 1 a log named with --file that is not there; 2 usage,\n"
      "an unreadable log, or a line that is no log line.";
  command.run = &RunLog;
  return command;
}

} // namespace oructl
