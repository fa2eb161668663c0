// The shared log read back as records: one per line written, a message's own
// line breaks folded back into it. Records are read one at a time, forward
// from the oldest copy or backward from the end, so a log of any size is read
// in the memory of a few records.
#ifndef ORU_TOOLS_ORUCTL_LOG_RECORDS_H
#define ORU_TOOLS_ORUCTL_LOG_RECORDS_H

#include "platform/scoped_fd.h"

#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace oructl {

struct LogRecord {
  std::string file;
  int line = 0;         // 1-based; 0 when it was not counted
  off_t offset = 0;     // where the record starts in its file
  std::string time;     // as written: "MM/DD/YY HH:MM:SS:mmm" in the C locale
  int64_t seconds = 0;  // that time read back
  int milliseconds = 0; // and its milliseconds
  std::string level;
  std::string fields[6];
  std::string thread;
  std::string message;
  std::string text; // the record as written, without its last line break

  int64_t TimeMs() const { return seconds * 1000 + milliseconds; }
};

// The live log's rotated copies, oldest first, then the live log itself.
std::vector<std::string> LogFilesOf(const std::string& live);

// Opens a log file for reading without following a link at its end and
// without waiting on anything that is not a regular file. True with `fd`
// invalid when there is no such file (no log yet, or a copy rotated away).
bool OpenLogFile(const std::string& path, platform::ScopedFd& fd, std::string& error);

// Gathers lines into records: a line that parses as a log line starts a
// record, a line without the separator continues the one before it (a line
// break in a message), anything else is an error.
class RecordAssembler {
public:
  using Sink = std::function<bool(const LogRecord&)>;
  // `lines_before`: how many lines of the file come before the first line
  // given (records then know their line numbers); -1 when not known.
  RecordAssembler(std::string file, Sink sink, int lines_before = 0)
      : file_(std::move(file)), sink_(std::move(sink)), line_(lines_before) {}

  // Takes the next line of the file (no line break), which starts at
  // `offset`. False on a line that is no log line (error() says where) or
  // when the sink asked to stop.
  bool Add(const std::string& line, off_t offset);
  // Hands on the record still gathering; false when the sink asked to stop.
  bool Flush();
  bool HasPending() const { return pending_; }
  const std::string& error() const { return error_; }
  bool stopped() const { return stopped_; }
  // Lines taken so far, those before the first included; -1 when not known.
  int lines() const { return line_; }

private:
  std::string file_;
  Sink sink_;
  LogRecord record_;
  bool pending_ = false;
  int line_ = 0;
  bool stopped_ = false;
  std::string error_;
};

// Reads complete lines of an open file forward from an offset, in blocks.
class LineReader {
public:
  LineReader(int fd, off_t offset) : fd_(fd), offset_(offset) {}
  // The next complete line (its line break left off) and where it starts.
  // False at the end of what is there, or on a read error (failed()). With
  // `take_unfinished`, a last line without a line break counts as a line.
  bool Next(std::string& line, off_t& start, bool take_unfinished);
  // Where the first line not yet returned starts.
  off_t offset() const { return offset_; }
  bool failed() const { return failed_; }

private:
  int fd_;
  off_t offset_;
  off_t buffered_from_ = 0; // file offset of buffer_[0]
  std::string buffer_;
  bool failed_ = false;
};

// Where reading the last file stopped: the file, how far, and how many
// lines came before that point (-1 when they were not counted).
struct ReadPosition {
  dev_t device = 0;
  ino_t inode = 0;
  off_t offset = 0;
  int lines = -1;
  bool exists = false;
  // The newest dated copy of the log when the reading began ("" for none):
  // a newer one is a rotation that came after.
  std::string newestCopy;
};

// Every record of the files, in order, to `sink` until it returns false. A
// file that is not there holds no records. False, with `error` naming the
// file and line, for a file that cannot be read or a line that is no log
// line. `end`, when given, is where the last file was read to.
bool ForEachRecord(const std::vector<std::string>& files, const RecordAssembler::Sink& sink,
                   std::string& error, ReadPosition* end = nullptr);

// The last `count` records for which `wanted` holds, oldest first, read
// backward from the end of the newest file. Line numbers are counted only
// when `count_lines`. False as ForEachRecord.
bool LastRecords(const std::vector<std::string>& files, size_t count,
                 const std::function<bool(const LogRecord&)>& wanted, bool count_lines,
                 std::vector<LogRecord>& records, std::string& error, ReadPosition* end = nullptr);

// A time given on the command line, as local time unless it names its zone:
//   "MM/DD/YY HH:MM:SS" (as the log writes it),
//   ISO 8601 "YYYY-MM-DD", "YYYY-MM-DDTHH:MM[:SS]" or with a blank for "T",
//     optionally followed by "Z" or "+HH:MM"/"-HH:MM",
//   "now", "today", "yesterday", "tomorrow" (the last three at midnight),
//   relative to `now`: "-2h", "+30m", "-1d", "-90s", "-1w".
bool ParseLogTime(const std::string& text, int64_t now, int64_t& seconds);

// Rank of a level name for "at least" filters: the logging library's level
// (TRACE 10 ... NONE 70, ALL 0); -1 for an unknown name.
int LevelRank(const std::string& name);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_LOG_RECORDS_H
