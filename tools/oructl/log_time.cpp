#include "tools/oructl/log_time.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <optional>
#include <vector>

namespace oructl {

namespace {

bool SameWallTime(const struct tm& a, const struct tm& b) {
  return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
         a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

// The moment `wall` names when read with summer time off (0) or on (1),
// if that reading gives the wall time back.
std::optional<time_t> ReadAs(const struct tm& wall, int summer_time) {
  struct tm asked = wall;
  asked.tm_isdst = summer_time;
  const time_t when = mktime(&asked);
  struct tm back = {};
  if (when == static_cast<time_t>(-1) || !localtime_r(&when, &back) ||
      back.tm_isdst != summer_time || !SameWallTime(back, wall)) {
    return std::nullopt;
  }
  return when;
}

bool ParseWritten(const std::string& written, struct tm& wall, int& milliseconds) {
  if (written.size() < 5 || written[written.size() - 4] != ':') {
    return false;
  }
  milliseconds = 0;
  for (size_t index = written.size() - 3; index < written.size(); ++index) {
    if (written[index] < '0' || written[index] > '9') {
      return false;
    }
    milliseconds = milliseconds * 10 + (written[index] - '0');
  }
  const std::string date_and_time = written.substr(0, written.size() - 4);
  wall = {};
  const char* end = strptime(date_and_time.c_str(), "%x %X", &wall);
  return end && *end == '\0';
}

// The wall time's fields counted as if they were UTC: moments of one offset
// differ from it by that offset.
int64_t WallSeconds(const struct tm& wall) {
  struct tm copy = wall;
  return static_cast<int64_t>(timegm(&copy));
}

std::string WallRfc3339(const struct tm& wall, int milliseconds, long offset) {
  const long magnitude = offset < 0 ? -offset : offset;
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02ld:%02ld",
                wall.tm_year + 1900, wall.tm_mon + 1, wall.tm_mday, wall.tm_hour, wall.tm_min,
                wall.tm_sec, milliseconds, offset < 0 ? '-' : '+', magnitude / 3600,
                (magnitude % 3600) / 60);
  return text;
}

} // namespace

std::string Rfc3339(int64_t epoch_ms) {
  const time_t seconds =
      static_cast<time_t>(epoch_ms >= 0 ? epoch_ms / 1000 : (epoch_ms - 999) / 1000);
  const int millis = static_cast<int>(epoch_ms - static_cast<int64_t>(seconds) * 1000);
  struct tm local = {};
  localtime_r(&seconds, &local);
  const long offset = local.tm_gmtoff;
  const long magnitude = offset < 0 ? -offset : offset;
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02ld:%02ld",
                local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                local.tm_sec, millis, offset < 0 ? '-' : '+', magnitude / 3600,
                (magnitude % 3600) / 60);
  return text;
}

bool PlaceLogTime(const std::string& written, PlacedTime& out) {
  return LogTimePlacer().Place(written, out);
}

LogTimePlacer::MinuteReading LogTimePlacer::ReadMinute(const struct tm& wall) {
  struct tm start = wall;
  start.tm_sec = 0;
  const int64_t start_seconds = WallSeconds(start);
  std::vector<time_t> moments;
  for (const int summer_time : {0, 1}) {
    if (const std::optional<time_t> when = ReadAs(start, summer_time)) {
      moments.push_back(*when);
    }
  }
  LogTimePlacer::MinuteReading reading;
  if (moments.empty()) {
    struct tm asked = start;
    asked.tm_isdst = 0; // before the jump, the clock ran on standard time
    moments.push_back(mktime(&asked));
    reading.reading = PlacedTime::Reading::kSkipped;
  }
  std::sort(moments.begin(), moments.end());
  reading.offset = static_cast<long>(start_seconds - moments.front());
  if (moments.size() == 2 && moments[0] != moments[1]) {
    reading.reading = PlacedTime::Reading::kFold;
    reading.laterOffset = static_cast<long>(start_seconds - moments.back());
  }
  return reading;
}

bool LogTimePlacer::Place(const std::string& written, PlacedTime& out) {
  struct tm wall = {};
  int milliseconds = 0;
  if (!ParseWritten(written, wall, milliseconds)) {
    return false;
  }
  const int64_t wall_seconds = WallSeconds(wall);
  const int64_t minute = wall_seconds / 60 - (wall_seconds % 60 < 0 ? 1 : 0);
  if (minute != minute_) {
    minute_ = minute;
    reading_ = ReadMinute(wall);
  }
  out = PlacedTime();
  out.reading = reading_.reading;
  out.epochMs = (wall_seconds - reading_.offset) * 1000 + milliseconds;
  // A skipped wall time is written as the moment's own local time, which
  // the clock showed just after its jump.
  out.rfc3339 = out.reading == PlacedTime::Reading::kSkipped
                    ? Rfc3339(out.epochMs)
                    : WallRfc3339(wall, milliseconds, reading_.offset);
  if (out.reading == PlacedTime::Reading::kFold) {
    out.laterEpochMs = (wall_seconds - reading_.laterOffset) * 1000 + milliseconds;
    out.laterRfc3339 = WallRfc3339(wall, milliseconds, reading_.laterOffset);
  }
  return true;
}

} // namespace oructl
