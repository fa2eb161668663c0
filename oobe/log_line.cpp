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

} // namespace oobe
