#include "testing/log_test_support.h"

#include "oobe/log_rotation.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

namespace oobe {
namespace testing {

namespace {

// Every logging test runs in UTC and the C locale, so lines read the same
// on every machine.
class UtcEnvironment : public ::testing::Environment {
public:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }
};

::testing::Environment* const utc_environment =
    ::testing::AddGlobalTestEnvironment(new UtcEnvironment);

} // namespace

int64_t UtcMs(int year, int month, int day, int hour, int minute, int second, int millisecond) {
  struct tm date = {};
  date.tm_year = year - 1900;
  date.tm_mon = month - 1;
  date.tm_mday = day;
  date.tm_hour = hour;
  date.tm_min = minute;
  date.tm_sec = second;
  return static_cast<int64_t>(timegm(&date)) * 1000 + millisecond;
}

std::vector<std::string> LinesOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) {
    lines.push_back(line);
  }
  return lines;
}

std::string MessageOf(const std::string& line) {
  size_t position = 0;
  for (int separator = 0; separator < 9; ++separator) {
    position = line.find(" | ", position);
    if (position == std::string::npos) {
      return std::string();
    }
    position += 3;
  }
  return line.substr(position);
}

std::string LocalDate(int day_offset) {
  const time_t when = time(nullptr) + day_offset * 86400;
  struct tm local;
  localtime_r(&when, &local);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%d", &local);
  return text;
}

std::vector<std::string> LogFilesOf(const std::string& log) {
  const std::string folder = platform::DirName(log);
  const std::string live = platform::BaseName(log);
  std::vector<std::string> names;
  platform::FolderHandle handle;
  if (platform::OpenFolder(folder, handle)) {
    (void)platform::ListFolder(handle, names);
  }
  std::vector<std::string> files;
  for (const std::string& name : names) {
    if (IsRotatedCopyName(live, name)) {
      files.push_back(folder + "/" + name);
    }
  }
  std::sort(files.begin(), files.end());
  files.push_back(log);
  return files;
}

} // namespace testing
} // namespace oobe
