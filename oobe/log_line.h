// The text of one log line, built without allocating once a thread's buffer
// has grown to the longest line.
#ifndef ORU_OOBE_LOG_LINE_H
#define ORU_OOBE_LOG_LINE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace oobe {

// "%x %X" of the local time of `seconds`, ":" and three digits of
// milliseconds ("11/16/26 04:31:07:042" under the C locale). The date and
// time text is formatted once per second and thread.
void AppendTimestamp(int64_t seconds, int milliseconds, std::string& line);

struct LineFields {
  const char* level_name;
  const char* fields[6]; // null prints as empty text
  bool with_thread_id;
  uint64_t thread_id;
};

// Builds the whole line into `line` (cleared first).
void BuildLine(int64_t seconds, int milliseconds, const LineFields& fields,
               const std::string& separator, std::string_view message, std::string& line);

} // namespace oobe

#endif // ORU_OOBE_LOG_LINE_H
