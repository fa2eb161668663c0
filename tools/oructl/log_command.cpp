// oructl log: the updater log as records, filtered, from the end, or as it
// grows. "log sessions" and "log write" live in files of their own.
#include "tools/common/json_output.h"
#include "tools/common/terminal.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/log_follow.h"
#include "tools/oructl/log_records.h"
#include "tools/oructl/oructl.h"

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

oru_tools::Json RecordJson(const LogRecord& record) {
  return {{"file", record.file},
          {"line", record.line > 0 ? oru_tools::Json(record.line) : oru_tools::Json(nullptr)},
          {"time", record.time},
          {"level", record.level},
          {"fields", record.fields},
          {"thread", record.thread},
          {"message", record.message}};
}

// Prints records as they come, in the chosen form.
class RecordPrinter {
public:
  RecordPrinter(bool json, bool json_lines, bool colour)
      : json_(json), json_lines_(json_lines), colour_(colour) {}

  void Print(const LogRecord& record) {
    ++printed_;
    if (json_) {
      const std::string text = oru_tools::JsonText(RecordJson(record));
      if (json_lines_) {
        std::printf("%s\n", text.c_str());
      } else {
        std::printf("%s%s", printed_ == 1 ? "[\n" : ",\n", text.c_str());
      }
    } else {
      const char* colour = colour_ ? oru_tools::LevelColour(record.level) : "";
      std::printf("%s%s%s\n", colour, record.text.c_str(), *colour ? oru_tools::kColourEnd : "");
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
  size_t printed_ = 0;
};

bool ReadTime(const oru_tools::CommandLine& line, const char* name, bool& has, int64_t& seconds) {
  if (!line.Has(name)) {
    return true;
  }
  has = ParseLogTime(line.Value(name), static_cast<int64_t>(time(nullptr)), seconds);
  if (!has) {
    Fail(std::string("--") + name + " takes a time such as \"2026-11-22T10:00\", \"today\" or " +
         "\"-2h\" (see --help), not '" + line.Value(name) + "'");
  }
  return has;
}

bool ReadFilters(const oru_tools::CommandLine& line, Filters& filters) {
  filters.field = line.Value("field");
  filters.thread = line.Has("pid") ? line.Value("pid") : line.Value("thread");
  if (line.Has("level") && (filters.level = LevelRank(line.Value("level"))) < 0) {
    Fail("unknown level '" + line.Value("level") + "'");
    return false;
  }
  return ReadTime(line, "since", filters.has_since, filters.since) &&
         ReadTime(line, "until", filters.has_until, filters.until);
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

int RunLog(const oru_tools::CommandLine& line) {
  int status = kOk;
  Filters filters;
  long count = -1;
  if (!ReadFilters(line, filters) || !ReadCount(line, count)) {
    return kError;
  }
  const std::string file = LogToRead(line, status);
  if (file.empty()) {
    return status;
  }
  const bool follow = line.Has("follow");
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
  return PrintRecords(file, filters, count, follow, printer, json);
}

} // namespace

oru_tools::Command LogCommand() {
  oru_tools::Command command;
  command.name = "log";
  command.summary = "reads the updater log as records, from the end or as it grows";
  command.about = "Reads the updater log (the preference LogFile, or PATH) together with its\n"
                  "rotated copies, oldest first, as records: time, level, six fields, thread\n"
                  "and message. The log is read as it streams, in the memory of a few records.";
  command.options = {
      FileOption(),
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
  command.details =
      "TIME is local time unless it names its zone: \"2026-11-22\",\n"
      "\"2026-11-22T10:00[:00]\" (or a blank for \"T\"), optionally with \"Z\" or\n"
      "\"+01:00\"; \"now\", \"today\", \"yesterday\", \"tomorrow\"; \"-2h\", \"+30m\", \"-1d\",\n"
      "\"-90s\", \"-1w\" from now; or \"MM/DD/YY HH:MM:SS\" as the log writes it.\n"
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
