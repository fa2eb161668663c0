#include "tools/oructl/log_records.h"

#include "platform/paths.h"
#include "platform/safe_fs.h"

#include <algorithm>
#include <fstream>

namespace oructl {

namespace {

const char kSeparator[] = " | ";

bool Parse(const std::string& line, LogRecord& record) {
  std::vector<size_t> separators;
  for (size_t at = line.find(kSeparator); at != std::string::npos && separators.size() < 9;
       at = line.find(kSeparator, at + 3)) {
    separators.push_back(at);
  }
  if (separators.size() < 9) {
    return false;
  }
  const auto piece = [&](size_t index) {
    const size_t begin = index == 0 ? 0 : separators[index - 1] + 3;
    return line.substr(begin, separators[index] - begin);
  };
  record.time = piece(0);
  const std::string level = piece(1);
  time_t seconds = 0;
  if (level.size() < 3 || level.front() != '[' || level.back() != ']' ||
      !ParseLogTime(record.time, seconds)) {
    return false;
  }
  record.level = level.substr(1, level.size() - 2);
  for (size_t field = 0; field < 6; ++field) {
    record.fields[field] = piece(2 + field);
  }
  record.thread = piece(8);
  record.message = line.substr(separators[8] + 3);
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
          line.find(kSeparator) == std::string::npos) {
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

bool RecordTime(const LogRecord& record, time_t& seconds) {
  return ParseLogTime(record.time, seconds);
}

int LevelRank(const std::string& name) {
  static const char* const kNames[] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "NONE"};
  for (int i = 0; i < 7; ++i) {
    if (name == kNames[i]) {
      return (i + 1) * 10;
    }
  }
  return name == "ALL" ? 0 : -1;
}

} // namespace oructl
