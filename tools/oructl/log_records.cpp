#include "tools/oructl/log_records.h"

#include "oobe/levels.h"
#include "oobe/log_line.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"

#include <algorithm>
#include <fstream>

namespace oructl {

namespace {

// A record from a line as the logging library writes it.
bool Parse(const std::string& line, LogRecord& record) {
  oobe::ParsedLine parsed;
  if (!oobe::ParseLine(line, oobe::kLineSeparator, parsed)) {
    return false;
  }
  record.time = parsed.timestamp;
  record.seconds = static_cast<time_t>(parsed.seconds);
  record.level = parsed.level_name;
  for (size_t field = 0; field < 6; ++field) {
    record.fields[field] = parsed.fields[field];
  }
  record.thread = parsed.thread;
  record.message = parsed.message;
  record.text = line;
  return true;
}

} // namespace

std::vector<std::string> LogFilesOf(const std::string& live) {
  std::string ext;
  const bool has_ext = platform::GetPathExtension(live, ext);
  std::string without = live;
  platform::DeletePathExtension(without);
  const std::string folder = platform::DirName(without);
  const std::string prefix = platform::BaseName(without) + " ";
  std::vector<std::string> files;
  platform::FolderHandle handle;
  std::vector<std::string> names;
  if (platform::OpenFolder(folder, handle) && platform::ListFolder(handle, names)) {
    for (const std::string& name : names) {
      const bool same_ext = !has_ext || (name.size() > ext.size() + 1 &&
                                         name.compare(name.size() - ext.size() - 1,
                                                      std::string::npos, "." + ext) == 0);
      if (name.rfind(prefix, 0) == 0 && same_ext) {
        files.push_back(folder + "/" + name);
      }
    }
  }
  std::sort(files.begin(), files.end());
  files.push_back(live);
  return files;
}

bool ReadLogRecords(const std::vector<std::string>& files, std::vector<LogRecord>& records,
                    std::string& error) {
  for (const std::string& file : files) {
    std::ifstream in(file, std::ios::binary);
    if (!in.is_open() && !platform::PathExists(file)) {
      continue; // no log yet (or a copy rotated away meanwhile): no records
    }
    if (!in.is_open()) {
      error = "cannot read the log " + file;
      return false;
    }
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
      ++number;
      LogRecord record;
      if (Parse(line, record)) {
        record.file = file;
        record.line = number;
        records.push_back(record);
        continue;
      }
      // A line break inside a message continues the record before it.
      if (!records.empty() && records.back().file == file &&
          line.find(oobe::kLineSeparator) == std::string::npos) {
        records.back().message += "\n" + line;
        records.back().text += "\n" + line;
        continue;
      }
      error = file + ":" + std::to_string(number) + ": not a log line";
      return false;
    }
    if (in.bad()) {
      error = "cannot read the log " + file;
      return false;
    }
  }
  return true;
}

bool ParseLogTime(const std::string& text, time_t& seconds) {
  struct tm parts = {};
  const char* end = strptime(text.c_str(), "%m/%d/%y %H:%M:%S", &parts);
  if (!end || (*end != '\0' && *end != ':')) {
    return false;
  }
  parts.tm_isdst = -1;
  seconds = mktime(&parts);
  return true;
}

int LevelRank(const std::string& name) {
  return oobe::LevelOfName(name);
}

} // namespace oructl
