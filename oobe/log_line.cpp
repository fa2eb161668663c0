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
  char millis[8];
  std::snprintf(millis, sizeof millis, ":%.3d", milliseconds);
  line.append(cache.text, cache.length);
  line.append(millis);
}

void BuildLine(int64_t seconds, int milliseconds, const LineFields& fields,
               const std::string& separator, const std::string& message, std::string& line) {
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
    char id[24];
    const int length =
        std::snprintf(id, sizeof id, "%llu", static_cast<unsigned long long>(fields.thread_id));
    line.append(id, static_cast<size_t>(length));
  }
  line += separator;
  line += message;
}

} // namespace oobe
