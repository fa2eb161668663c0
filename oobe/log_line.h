// The text of one log line, built without allocating once a thread's buffer
// has grown to the longest line.
#ifndef ORU_OOBE_LOG_LINE_H
#define ORU_OOBE_LOG_LINE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace oobe {

// What stands between the parts of a line.
inline constexpr char kLineSeparator[] = " | ";

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

// A line read back into what BuildLine was given.
struct ParsedLine {
  std::string timestamp; // as written
  int64_t seconds = 0;   // the timestamp read back (local time)
  int milliseconds = 0;
  std::string level_name;
  std::string fields[6];
  std::string thread; // the decimal thread id, empty when written without
  std::string message;
};

// The parts of a line BuildLine wrote with `separator` (the line break
// after it not included). The message is everything after the ninth
// separator, separators in it included. A field that forms a separator
// with its neighbours (one holding " | " or ending in " |") reads back as
// the leftmost split. False for text BuildLine cannot have written.
bool ParseLine(std::string_view line, std::string_view separator, ParsedLine& out);

// The text AppendTimestamp wrote back to seconds and milliseconds, in the
// same locale and time zone; false for other text.
bool ParseTimestamp(std::string_view text, int64_t& seconds, int& milliseconds);

} // namespace oobe

#endif // ORU_OOBE_LOG_LINE_H
