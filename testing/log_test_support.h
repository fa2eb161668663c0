// Test support for the logging library: a fixed zone, fixed times, and the
// lines of a file. Test-only.
#ifndef ORU_TESTING_LOG_TEST_SUPPORT_H
#define ORU_TESTING_LOG_TEST_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

namespace oobe {
namespace testing {

// Milliseconds since the epoch of a UTC date and time.
int64_t UtcMs(int year, int month, int day, int hour, int minute, int second, int millisecond);

// The file's lines without their newlines.
std::vector<std::string> LinesOf(const std::string& path);

// The files of the log at `log`: its rotated copies, oldest first, then
// the live file itself (whether or not it is there).
std::vector<std::string> LogFilesOf(const std::string& log);

// The message part of a line (after the ninth separator).
std::string MessageOf(const std::string& line);

// Local date text as the rotation names it ("%Y-%m-%d") for now + offset days.
std::string LocalDate(int day_offset);

} // namespace testing
} // namespace oobe

#endif // ORU_TESTING_LOG_TEST_SUPPORT_H
