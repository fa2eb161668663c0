#include "tools/oructl/log_records.h"

#include "oobe/levels.h"
#include "oobe/log_line.h"
#include "oobe/log_rotation.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"
#include "tools/oructl/oructl.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <sys/stat.h>
#include <time.h>

namespace oructl {

namespace {

constexpr size_t kBlockBytes = 64 * 1024;

// A record from a line as the logging library writes it.
bool Parse(const std::string& line, LogRecord& record) {
  oobe::ParsedLine parsed;
  if (!oobe::ParseLine(line, oobe::kLineSeparator, parsed)) {
    return false;
  }
  record.time = std::move(parsed.timestamp);
  record.seconds = parsed.seconds;
  record.milliseconds = parsed.milliseconds;
  record.level = std::move(parsed.level_name);
  for (size_t field = 0; field < 6; ++field) {
    record.fields[field] = std::move(parsed.fields[field]);
  }
  record.thread = std::move(parsed.thread);
  record.message = std::move(parsed.message);
  record.text = line;
  return true;
}

bool ContinuesARecord(const std::string& line) {
  return line.find(oobe::kLineSeparator) == std::string::npos;
}

void Continue(LogRecord& record, const std::string& line) {
  record.message += "\n" + line;
  record.text += "\n" + line;
}

// Lines of a file from its end backward, in blocks.
class BackwardLineReader {
public:
  // Reads the file up to `size`; a last line without a line break counts.
  BackwardLineReader(int fd, off_t size) : fd_(fd), start_(size), end_(size) {
    char last = '\0';
    if (size > 0 && pread(fd_, &last, 1, size - 1) == 1 && last == '\n') {
      end_ = size - 1;
    }
    start_ = end_;
    done_ = size == 0;
  }

  // The line before the last one returned (no line break), and where it
  // starts.
  bool Previous(std::string& line, off_t& start) {
    while (!done_) {
      // buffer_ holds the file's bytes from start_ up to at least end_.
      const size_t end = static_cast<size_t>(end_ - start_);
      const size_t newline = end == 0 ? std::string::npos : buffer_.rfind('\n', end - 1);
      if (newline != std::string::npos || start_ == 0) {
        const size_t from = newline == std::string::npos ? 0 : newline + 1;
        line.assign(buffer_, from, end - from);
        start = start_ + static_cast<off_t>(from);
        done_ = newline == std::string::npos;
        end_ = done_ ? 0 : start_ + static_cast<off_t>(newline);
        buffer_.resize(done_ ? 0 : newline);
        return true;
      }
      const size_t want = static_cast<size_t>(std::min<off_t>(start_, kBlockBytes));
      std::string block(want, '\0');
      const off_t at = start_ - static_cast<off_t>(want);
      if (pread(fd_, block.data(), want, at) != static_cast<ssize_t>(want)) {
        failed_ = true;
        return false;
      }
      buffer_.resize(end);
      buffer_.insert(0, block);
      start_ = at;
    }
    return false;
  }
  bool failed() const { return failed_; }

private:
  int fd_;
  off_t start_; // file offset of buffer_[0]
  off_t end_;   // the next line to return ends here (its line break, or the file's end)
  std::string buffer_;
  bool done_ = false;
  bool failed_ = false;
};

// Counts the line breaks in [from, to).
bool LinesBetween(int fd, off_t from, off_t to, int& lines) {
  char block[kBlockBytes];
  for (off_t at = from; at < to;) {
    const size_t want = static_cast<size_t>(std::min<off_t>(to - at, sizeof block));
    const ssize_t got = pread(fd, block, want, at);
    if (got <= 0) {
      return false;
    }
    lines += static_cast<int>(std::count(block, block + got, '\n'));
    at += got;
  }
  return true;
}

} // namespace

std::vector<std::string> LogFilesOf(const std::string& given) {
  const std::string live = oru_tools::AbsolutePath(given);
  const std::string folder = platform::DirName(live);
  const std::string live_name = platform::BaseName(live);
  std::vector<std::string> files;
  platform::FolderHandle handle;
  std::vector<std::string> names;
  if (platform::OpenFolder(folder, handle) && platform::ListFolder(handle, names)) {
    for (const std::string& name : names) {
      if (oobe::IsRotatedCopyName(live_name, name)) {
        files.push_back(platform::JoinPath(folder, name));
      }
    }
  }
  std::sort(files.begin(), files.end());
  files.push_back(live);
  return files;
}

bool OpenLogFile(const std::string& path, platform::ScopedFd& fd, std::string& error) {
  fd.reset();
  if (platform::OpenFileAt(oru_tools::AbsolutePath(path), platform::OpenOptions(), fd)) {
    return true;
  }
  if (errno == ENOENT) {
    return true;
  }
  error = "cannot read the log " + path + ": " + std::strerror(errno);
  return false;
}

bool RecordAssembler::Add(const std::string& line, off_t offset) {
  line_ += line_ >= 0 ? 1 : 0;
  LogRecord next;
  if (Parse(line, next)) {
    if (!Flush()) {
      return false;
    }
    next.file = file_;
    next.line = std::max(line_, 0);
    next.offset = offset;
    record_ = std::move(next);
    pending_ = true;
    return true;
  }
  if (pending_ && ContinuesARecord(line)) {
    Continue(record_, line);
    return true;
  }
  error_ = file_ +
           (line_ > 0 ? ":" + std::to_string(line_) : " at byte " + std::to_string(offset)) +
           ": not a log line";
  return false;
}

bool RecordAssembler::Flush() {
  if (!pending_) {
    return true;
  }
  pending_ = false;
  stopped_ = !sink_(record_);
  return !stopped_;
}

bool LineReader::Next(std::string& line, off_t& start, bool take_unfinished) {
  while (true) {
    const size_t from = static_cast<size_t>(offset_ - buffered_from_);
    const size_t newline = buffer_.find('\n', from);
    if (newline != std::string::npos) {
      line.assign(buffer_, from, newline - from);
      start = offset_;
      offset_ = buffered_from_ + static_cast<off_t>(newline + 1);
      return true;
    }
    buffer_.erase(0, from);
    buffered_from_ = offset_;
    char block[kBlockBytes];
    const ssize_t got = pread(fd_, block, sizeof block, buffered_from_ + buffer_.size());
    if (got < 0) {
      failed_ = true;
      return false;
    }
    if (got == 0) {
      if (!take_unfinished || buffer_.empty()) {
        return false;
      }
      line = buffer_;
      start = offset_;
      offset_ += static_cast<off_t>(buffer_.size());
      buffer_.clear();
      buffered_from_ = offset_;
      return true;
    }
    buffer_.append(block, static_cast<size_t>(got));
  }
}

bool ForEachRecord(const std::vector<std::string>& files, const RecordAssembler::Sink& sink,
                   std::string& error, ReadPosition* end) {
  for (const std::string& file : files) {
    platform::ScopedFd fd;
    if (!OpenLogFile(file, fd, error)) {
      return false;
    }
    if (end) {
      *end = ReadPosition();
    }
    if (!fd.valid()) {
      continue;
    }
    RecordAssembler records(file, sink);
    LineReader lines(fd.get(), 0);
    std::string line;
    off_t start = 0;
    while (lines.Next(line, start, /*take_unfinished=*/true)) {
      if (!records.Add(line, start)) {
        error = records.error();
        return records.stopped();
      }
    }
    if (lines.failed()) {
      error = "cannot read the log " + file + ": " + std::strerror(errno);
      return false;
    }
    if (!records.Flush()) {
      return true;
    }
    if (end) {
      struct stat info;
      end->exists = fstat(fd.get(), &info) == 0;
      end->device = info.st_dev;
      end->inode = info.st_ino;
      end->offset = lines.offset();
      end->lines = records.lines();
    }
  }
  return true;
}

bool LastRecords(const std::vector<std::string>& files, size_t count,
                 const std::function<bool(const LogRecord&)>& wanted, bool count_lines,
                 std::vector<LogRecord>& records, std::string& error, ReadPosition* end) {
  std::deque<LogRecord> found; // newest first
  if (end) {
    *end = ReadPosition();
  }
  for (auto file = files.rbegin(); file != files.rend() && found.size() < count; ++file) {
    platform::ScopedFd fd;
    struct stat info;
    if (!OpenLogFile(*file, fd, error)) {
      return false;
    }
    if (!fd.valid() || fstat(fd.get(), &info) != 0) {
      continue;
    }
    if (end && file == files.rbegin()) {
      end->exists = true;
      end->device = info.st_dev;
      end->inode = info.st_ino;
      end->offset = info.st_size;
    }
    BackwardLineReader lines(fd.get(), info.st_size);
    std::vector<std::string> continuation; // below the record being looked for, nearest last
    std::string line;
    off_t start = 0;
    const size_t found_before = found.size();
    while (found.size() < count && lines.Previous(line, start)) {
      LogRecord record;
      if (!Parse(line, record)) {
        if (!ContinuesARecord(line)) {
          error = *file + ": not a log line at byte " + std::to_string(start);
          return false;
        }
        continuation.push_back(line);
        continue;
      }
      for (auto below = continuation.rbegin(); below != continuation.rend(); ++below) {
        Continue(record, *below);
      }
      continuation.clear();
      record.file = *file;
      record.offset = start;
      if (wanted(record)) {
        found.push_back(std::move(record));
      }
    }
    if (lines.failed()) {
      error = "cannot read the log " + *file + ": " + std::strerror(errno);
      return false;
    }
    // A file's first line always starts a record.
    if (found.size() < count && !continuation.empty()) {
      error = *file + ":1: not a log line";
      return false;
    }
    // Line numbers: count up to the oldest record found in this file, then
    // on from record to record.
    int line_number = 1;
    off_t counted_to = 0;
    for (size_t index = found.size(); count_lines && index > found_before; --index) {
      LogRecord& record = found[index - 1];
      if (!LinesBetween(fd.get(), counted_to, record.offset, line_number)) {
        error = "cannot read the log " + *file;
        return false;
      }
      counted_to = record.offset;
      record.line = line_number;
    }
  }
  records.assign(found.rbegin(), found.rend());
  return true;
}

namespace {

// Midnight, local time, `days_from_today` days from the day of `now`.
int64_t LocalMidnight(int64_t now, int days_from_today) {
  const time_t when = static_cast<time_t>(now);
  struct tm local = {};
  localtime_r(&when, &local);
  local.tm_hour = 0;
  local.tm_min = 0;
  local.tm_sec = 0;
  local.tm_mday += days_from_today;
  local.tm_isdst = -1;
  return static_cast<int64_t>(mktime(&local));
}

// "-2h", "+30m", "-1d", "-90s", "-1w".
bool ParseRelativeTime(const std::string& text, int64_t now, int64_t& seconds) {
  if (text.size() < 3 || (text[0] != '-' && text[0] != '+')) {
    return false;
  }
  int64_t amount = 0;
  size_t index = 1;
  for (; index < text.size() && text[index] >= '0' && text[index] <= '9'; ++index) {
    amount = amount * 10 + (text[index] - '0');
    if (amount > 100LL * 366 * 86400) {
      return false;
    }
  }
  if (index == 1 || index + 1 != text.size()) {
    return false;
  }
  static const std::pair<char, int64_t> kUnits[] = {
      {'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 7 * 86400}};
  for (const auto& [unit, unit_seconds] : kUnits) {
    if (text[index] == unit) {
      seconds = now + (text[0] == '-' ? -1 : 1) * amount * unit_seconds;
      return true;
    }
  }
  return false;
}

// What follows an ISO 8601 time: nothing (local time), "Z" or "+HH:MM",
// "-HH:MM", "+HHMM", "-HHMM".
bool ParseZone(const char* text, bool& given, int64_t& offset_seconds) {
  given = *text != '\0';
  offset_seconds = 0;
  if (!given || std::strcmp(text, "Z") == 0) {
    return true;
  }
  const std::string zone(text);
  const bool colon = zone.size() == 6 && zone[3] == ':';
  const std::string digits = colon ? zone.substr(1, 2) + zone.substr(4) : zone.substr(1);
  if ((zone[0] != '+' && zone[0] != '-') || digits.size() != 4 ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  const int hours = std::stoi(digits.substr(0, 2));
  const int minutes = std::stoi(digits.substr(2));
  offset_seconds = (zone[0] == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
  return hours < 24 && minutes < 60;
}

bool ParseIsoTime(const std::string& text, int64_t& seconds) {
  static const char* const kForms[] = {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M",
                                       "%Y-%m-%d %H:%M", "%Y-%m-%d"};
  for (const char* form : kForms) {
    struct tm parts = {};
    const char* end = strptime(text.c_str(), form, &parts);
    bool zoned = false;
    int64_t offset = 0;
    if (!end || !ParseZone(end, zoned, offset)) {
      continue;
    }
    parts.tm_isdst = -1;
    const time_t when = zoned ? timegm(&parts) : mktime(&parts);
    if (when == static_cast<time_t>(-1)) {
      return false;
    }
    seconds = static_cast<int64_t>(when) - offset;
    return true;
  }
  return false;
}

bool ParseLogWriterTime(const std::string& text, int64_t& seconds) {
  struct tm parts = {};
  const char* end = strptime(text.c_str(), "%m/%d/%y %H:%M:%S", &parts);
  if (!end || (*end != '\0' && *end != ':')) {
    return false;
  }
  parts.tm_isdst = -1;
  seconds = static_cast<int64_t>(mktime(&parts));
  return true;
}

} // namespace

bool ParseLogTime(const std::string& text, int64_t now, int64_t& seconds) {
  static const std::pair<const char*, int> kDays[] = {
      {"today", 0}, {"yesterday", -1}, {"tomorrow", 1}};
  if (text == "now") {
    seconds = now;
    return true;
  }
  for (const auto& [name, days] : kDays) {
    if (text == name) {
      seconds = LocalMidnight(now, days);
      return true;
    }
  }
  return ParseRelativeTime(text, now, seconds) || ParseIsoTime(text, seconds) ||
         ParseLogWriterTime(text, seconds);
}

int LevelRank(const std::string& name) {
  return oobe::LevelOfName(name);
}

} // namespace oructl
