// The shared log read back as records: one per line written, a message's own
// line breaks folded back into it.
#ifndef ORU_TOOLS_ORUCTL_LOG_RECORDS_H
#define ORU_TOOLS_ORUCTL_LOG_RECORDS_H

#include <string>
#include <time.h>
#include <vector>

namespace oructl {

struct LogRecord {
  std::string file;
  int line = 0;
  std::string time;   // as written: "MM/DD/YY HH:MM:SS:mmm" in the C locale
  time_t seconds = 0; // that time read back
  std::string level;
  std::string fields[6];
  std::string thread;
  std::string message;
  std::string text; // the record as written
};

// The live log's rotated copies, oldest first, then the live log itself.
std::vector<std::string> LogFilesOf(const std::string& live);

// Parses the files in order; a file that is not there holds no records.
// False, with `error` naming the file and line, for a file that cannot be
// read or a line that is no log line.
bool ReadLogRecords(const std::vector<std::string>& files, std::vector<LogRecord>& records,
                    std::string& error);

// A time given on the command line, "MM/DD/YY HH:MM:SS" (local time).
bool ParseLogTime(const std::string& text, time_t& seconds);

// Rank of a level name for "at least" filters: the logging library's level
// (TRACE 10 ... NONE 70, ALL 0); -1 for an unknown name.
int LevelRank(const std::string& name);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_LOG_RECORDS_H
