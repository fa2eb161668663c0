#include "tools/oructl/log_time.h"

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
  struct tm wall = {};
  int milliseconds = 0;
  if (!ParseWritten(written, wall, milliseconds)) {
    return false;
  }
  std::vector<time_t> moments;
  for (const int summer_time : {0, 1}) {
    if (const std::optional<time_t> when = ReadAs(wall, summer_time)) {
      moments.push_back(*when);
    }
  }
  out = PlacedTime();
  if (moments.empty()) {
    struct tm asked = wall;
    asked.tm_isdst = 0; // before the jump, the clock ran on standard time
    moments.push_back(mktime(&asked));
    out.reading = PlacedTime::Reading::kSkipped;
  }
  if (moments.size() == 2 && moments[0] != moments[1]) {
    const bool swapped = moments[1] < moments[0];
    out.reading = PlacedTime::Reading::kFold;
    out.laterEpochMs = static_cast<int64_t>(moments[swapped ? 0 : 1]) * 1000 + milliseconds;
    out.laterRfc3339 = Rfc3339(out.laterEpochMs);
    moments[0] = moments[swapped ? 1 : 0];
  }
  out.epochMs = static_cast<int64_t>(moments[0]) * 1000 + milliseconds;
  out.rfc3339 = Rfc3339(out.epochMs);
  return true;
}

} // namespace oructl
