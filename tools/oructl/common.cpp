#include "platform/safe_fs.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/log_records.h"
#include "tools/oructl/oructl.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace oructl {

int Fail(const std::string& message) {
  std::fprintf(stderr, "oructl: %s\n", message.c_str());
  return kError;
}

oru_tools::Option JsonOption() {
  return {"json", '\0', "", "as JSON"};
}

oru_tools::Option FileOption() {
  return {"file", '\0', "PATH", "the log at PATH instead of the updater's",
          oru_tools::Completer::Files()};
}

oru_tools::Option ManyFilesOption() {
  return {"file", '\0', "PATH",
          "the log at PATH instead of the updater's; given more\n"
          "than once, those logs merged by time",
          oru_tools::Completer::Files()};
}

oru_tools::Option AllLogsOption() {
  return {"all", '\0', "",
          "every log of the updater's programs that the\n"
          "preferences name (LogFile, InstallerLogFile, ...),\n"
          "merged by time; each record is marked with its log"};
}

oru_tools::Option NoPagerOption() {
  return {"no-pager", '\0', "", "never page the output"};
}

oru_tools::Option LevelFilterOption() {
  return {
      "level", '\0', "NAME",
      "only records at NAME or above (TRACE DEBUG INFO WARN\nERROR FATAL NONE)",
      oru_tools::Completer::Words({"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "NONE"})};
}

oru_tools::Completer TimeCompleter() {
  return oru_tools::Completer::Words({"now", "today", "yesterday", "tomorrow", "-1h", "-1d"});
}

bool ReadTimeOption(const oru_tools::CommandLine& line, const char* name, bool& has,
                    int64_t& seconds) {
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

bool NamedLogIsThere(const std::string& file, int& status) {
  // Any other reason the log cannot be read is said by the reader (exit 2).
  platform::ScopedFd log;
  if (!platform::OpenFileAt(oru_tools::AbsolutePath(file), platform::OpenOptions(), log) &&
      errno == ENOENT) {
    std::fprintf(stderr, "oructl: cannot read the log %s: %s\n", file.c_str(),
                 std::strerror(errno));
    status = kNegative;
    return false;
  }
  return true;
}

std::string LogToRead(const oru_tools::CommandLine& line, int& status) {
  if (!line.Has("file")) {
    const std::string file = UpdaterLogPath();
    if (file.empty()) {
      status = Fail("no log file is configured");
    }
    return file;
  }
  const std::string file = line.Value("file");
  return NamedLogIsThere(file, status) ? file : std::string();
}

std::vector<std::string> LogsToRead(const oru_tools::CommandLine& line, int& status) {
  if (!line.Has("all") && line.Values("file").size() <= 1) {
    const std::string file = LogToRead(line, status);
    return file.empty() ? std::vector<std::string>() : std::vector<std::string>{file};
  }
  std::vector<std::string> logs;
  for (const std::string& named : line.Values("file")) {
    if (!NamedLogIsThere(named, status)) {
      return {};
    }
    logs.push_back(oru_tools::AbsolutePath(named));
  }
  if (line.Has("all")) {
    for (const std::string& configured : ProductLogPaths()) {
      if (std::find(logs.begin(), logs.end(), configured) == logs.end()) {
        logs.push_back(configured);
      }
    }
  }
  if (logs.empty()) {
    status = Fail("no log file is configured");
  }
  return logs;
}

} // namespace oructl
