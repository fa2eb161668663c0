// Log targets: one destination file each, with a level threshold, shared by
// every process of the product that writes the same file.
//
// A line reads: time | [LEVEL] | f1 | f2 | f3 | f4 | f5 | f6 | thread | message
// and is appended and flushed at once, under the file's cross-process lock
// when the caller asks for it.
#ifndef ORU_OOBE_LOG_TARGET_H
#define ORU_OOBE_LOG_TARGET_H

#include "oobe/file_lock.h"
#include "oobe/header_block.h"
#include "oobe/levels.h"
#include "oobe/log_line.h"
#include "platform/safe_fs.h"
#include "platform/scoped_fd.h"

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <pthread.h>
#include <string>
#include <vector>

namespace oobe {

class LogTargetBase {
public:
  LogTargetBase();
  LogTargetBase(const LogTargetBase&) = delete;
  LogTargetBase& operator=(const LogTargetBase&) = delete;

  // Opens `file` on `path` for appending (closing what it held); a file made
  // here is given mode 0666 so that every user's processes can append to it.
  virtual bool OpenStream(const std::string& path, platform::ScopedFd& file) = 0;
  virtual ~LogTargetBase();
  virtual bool Open() = 0;
  virtual bool Close() = 0;
  // Filters, formats and appends one line. `arguments` null: `format` is the
  // message itself. `time_ms` 0: now. Always true, also for a line that was
  // filtered out or dropped for want of the file lock.
  virtual bool Write(int32_t level, const char* f1, const char* f2, const char* f3, const char* f4,
                     const char* f5, const char* f6, const char* format, va_list* arguments,
                     int64_t time_ms, bool use_file_lock) = 0;
  // Writes the header block (the given one, or the stored one when null)
  // line by line through Write, and clears the pending flag.
  virtual void WriteHeader(int32_t level, const char* f1, const char* f2, const char* f3,
                           const char* f4, const HeaderBlock* description, bool use_file_lock) = 0;
  // Appends a finished line and a newline in one write.
  virtual void WriteLine(const char* text) = 0;

  void SetName(const char* name);
  const std::string& GetName() const { return name_; }
  int32_t GetLevel() const { return level_; }
  // The threshold; marker files in the console user's logs folder may lower
  // it ("OOBE.trace", "OOBE.debug", "asu.trace", "asu.debug").
  void SetLevel(int32_t level);
  void AddRef();
  void Release();
  int32_t RefCount() const { return refCount_; }

  const std::string& GetFileName() const { return fileName_; }
  const std::string& GetFilePath() const { return filePath_; }
  bool IsEnabled() const { return enabled_; }
  bool IsOpened() const { return opened_; }

protected:
  std::string name_;
  const std::string separator_ = kLineSeparator;
  std::string fileName_ = "OOBE.log";
  std::string filePath_;
  int32_t level_ = kLevelInfo;
  // The open log file, appended to with one write per line.
  platform::ScopedFd file_;
  // Set by a failed write, as a stream's bad bit would be: nothing more is
  // written until the file is opened again.
  bool fileFailed_ = false;
  bool enabled_ = true;
  bool opened_ = false;
  int32_t refCount_ = 0;
  pthread_mutex_t guard_;
};

// One record as a target receives it: level, the six identity fields (null
// prints as empty text), the format and its arguments (null: the format is
// the message), and the time in milliseconds (0: now).
struct LogRecord {
  int32_t level;
  const char* fields[6];
  const char* format;
  va_list* arguments;
  int64_t time_ms;
};

class LogTargetDefault : public LogTargetBase {
public:
  // Seconds between two size checks while writing.
  static constexpr int64_t kCleanUpIntervalSeconds = 900;
  // Days of rotated copies considered, and how many files (the live log
  // included) are kept among them.
  static constexpr int kDaysOfCopies = 2;

  // Opens nothing: decides whether lines show thread ids, loads the
  // credential keys and composes the header block.
  explicit LogTargetDefault(const char* name);
  ~LogTargetDefault() override;

  bool OpenStream(const std::string& path, platform::ScopedFd& file) override;
  bool Open() override;
  bool Close() override;
  bool Write(int32_t level, const char* f1, const char* f2, const char* f3, const char* f4,
             const char* f5, const char* f6, const char* format, va_list* arguments,
             int64_t time_ms, bool use_file_lock) override;
  void WriteHeader(int32_t level, const char* f1, const char* f2, const char* f3, const char* f4,
                   const HeaderBlock* description, bool use_file_lock) override;
  void WriteLine(const char* text) override;

  // Places the log: `file_name` must be a bare name (else the target is
  // disabled); `folder` empty means the console user's logs folder +
  // "/Vornica/Dex". Creates the file (mode 0666) to test it.
  bool SetLogFile(const char* file_name, const char* folder);
  // Run with the file lock held: sets the live file aside and empties it
  // when it has reached the size limit of the threshold, then removes old
  // copies unless "asu.trace" in the log folder holds exactly "keeplogs".
  bool CheckSizeAndCleanUp();
  // Keeps copies of the last `days` days, at most days + 1 files with the
  // live log; deletes older copies and any other file named after the log.
  void RemoveOldCopies(int days);

  static uint64_t SizeLimitForLevel(int32_t level);

  // Records this target could not write whole, and the system's error of
  // the last one. Each left the file as it was before it (or, when even
  // giving back what it wrote failed, the next record starts on a line of
  // its own); after one, the file is written again only once reopened.
  uint64_t UnwrittenRecords() const { return unwrittenRecords_; }
  int LastWriteError() const { return lastWriteError_; }
  // Whether this target says the first record it could not write on
  // standard error (the default); a caller that says it itself turns it off.
  void SetSaysUnwrittenRecords(bool says) { saysUnwrittenRecords_ = says; }

  // Overrides the system's answer (ThreadIdsShown) for this target.
  void ShowThreadIds(bool show) { withThreadId_ = show; }
  bool HeaderPending() const { return headerPending_; }
  const HeaderBlock& Header() const { return header_; }

private:
  // Writes the header block if a rotation left it pending, then the record,
  // in one write.
  void WriteRecord(const LogRecord& record, bool locked);
  // The record's line, with its newline, added to `text` (nothing when the
  // threshold filters it out).
  void AppendRecord(const LogRecord& record, std::string& text);
  // The stored header block's lines, each a record at `level` with the
  // first four identity fields.
  void AppendHeader(int32_t level, const char* const* fields, std::string& text);
  // Appends `text` to the file in one write. `locked`: this process holds
  // the file lock, so what a failed write added can be given back.
  void WriteText(const std::string& text, bool locked);
  // Counts, and says once per process, a record that was not written.
  void NoteUnwritten(int error);
  // Sets the live log aside (the size check's rotation); a failure is said
  // once per process and leaves a WARN record for the next write.
  void RotateOrSayWhyNot(const platform::EntryRef& live);

  std::unique_ptr<FileLockHandle> fileLock_;
  HeaderBlock header_;
  std::vector<std::string> credentialKeys_;
  bool headerPending_ = false;
  // The WARN record of a rotation that could not be made, written before
  // the next record.
  std::string rotationWarning_;
  // The file's last line has no end (a record cut short that could not be
  // given back): the next record starts on a line of its own.
  bool startOnNewLine_ = false;
  uint64_t unwrittenRecords_ = 0;
  bool saysUnwrittenRecords_ = true;
  int lastWriteError_ = 0;
  bool withThreadId_ = true;
  int64_t lastCleanUpTime_ = 0;
  int64_t lastLineTime_ = 0;
};

} // namespace oobe

#endif // ORU_OOBE_LOG_TARGET_H
