#include "oobe/log_line.h"

#include <cstdio>
#include <time.h>

namespace oobe {

namespace {

constexpr size_t kTimeBufferBytes = 256;

struct TimestampCache {
  int64_t seconds = -1;
  char text[kTimeBufferBytes] = "";
  size_t length = 0;
};

thread_local TimestampCache timestamp_cache;

// Decimal digits of `value`, without the stdio machinery: this runs for
// every line.
void AppendDecimal(uint64_t value, std::string& line) {
  char digits[20];
  size_t count = 0;
  do {
    digits[count++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  while (count > 0) {
    line += digits[--count];
  }
}

} // namespace

void AppendTimestamp(int64_t seconds, int milliseconds, std::string& line) {
  TimestampCache& cache = timestamp_cache;
  if (cache.seconds != seconds) {
    const time_t when = static_cast<time_t>(seconds);
    struct tm local;
    if (localtime_r(&when, &local)) {
      cache.length = strftime(cache.text, sizeof cache.text, "%x %X", &local);
    } else {
      cache.length = 0;
    }
    cache.text[cache.length] = '\0';
    cache.seconds = seconds;
  }
  line.append(cache.text, cache.length);
  // ":%.3d" of the milliseconds.
  const unsigned millis = milliseconds < 0 ? 0u : static_cast<unsigned>(milliseconds) % 1000u;
  line += ':';
  line += static_cast<char>('0' + millis / 100);
  line += static_cast<char>('0' + millis / 10 % 10);
  line += static_cast<char>('0' + millis % 10);
}

void BuildLine(int64_t seconds, int milliseconds, const LineFields& fields,
               const std::string& separator, std::string_view message, std::string& line) {
  line.clear();
  AppendTimestamp(seconds, milliseconds, line);
  line += separator;
  line += '[';
  line += fields.level_name;
  line += ']';
  line += separator;
  for (const char* field : fields.fields) {
    if (field) {
      line += field;
    }
    line += separator;
  }
  if (fields.with_thread_id) {
    AppendDecimal(fields.thread_id, line);
  }
  line += separator;
  line += message;
}

bool ParseTimestamp(std::string_view text, int64_t& seconds, int& milliseconds) {
  // "...:mmm": the date and time, a colon and exactly three digits.
  if (text.size() < 5 || text[text.size() - 4] != ':') {
    return false;
  }
  int millis = 0;
  for (const char digit : text.substr(text.size() - 3)) {
    if (digit < '0' || digit > '9') {
      return false;
    }
    millis = millis * 10 + (digit - '0');
  }
  const std::string date_and_time(text.substr(0, text.size() - 4));
  struct tm local = {};
  const char* end = strptime(date_and_time.c_str(), "%x %X", &local);
  if (!end || *end != '\0') {
    return false;
  }
  local.tm_isdst = -1;
  const time_t when = mktime(&local);
  if (when == static_cast<time_t>(-1)) {
    return false;
  }
  seconds = static_cast<int64_t>(when);
  milliseconds = millis;
  return true;
}

bool ParseLine(std::string_view line, std::string_view separator, ParsedLine& out) {
  constexpr size_t kSeparators = 9; // after the time, the level, six fields and the thread
  if (separator.empty()) {
    return false;
  }
  size_t starts[kSeparators + 1];
  starts[0] = 0;
  size_t at = 0;
  for (size_t index = 0; index < kSeparators; ++index) {
    at = line.find(separator, at);
    if (at == std::string_view::npos) {
      return false;
    }
    at += separator.size();
    starts[index + 1] = at;
  }
  const auto piece = [&](size_t index) {
    return line.substr(starts[index], starts[index + 1] - separator.size() - starts[index]);
  };
  const std::string_view level = piece(1);
  if (level.size() < 3 || level.front() != '[' || level.back() != ']') {
    return false;
  }
  const std::string_view thread = piece(8);
  if (thread.find_first_not_of("0123456789") != std::string_view::npos) {
    return false;
  }
  ParsedLine parsed;
  parsed.timestamp = piece(0);
  if (!ParseTimestamp(parsed.timestamp, parsed.seconds, parsed.milliseconds)) {
    return false;
  }
  parsed.level_name = level.substr(1, level.size() - 2);
  for (size_t field = 0; field < 6; ++field) {
    parsed.fields[field] = piece(2 + field);
  }
  parsed.thread = thread;
  parsed.message = line.substr(starts[kSeparators]);
  out = std::move(parsed);
  return true;
}

} // namespace oobe
