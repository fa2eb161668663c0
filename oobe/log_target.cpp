#include "oobe/log_target.h"

#include "oobe/log_line.h"
#include "oobe/log_rotation.h"
#include "oobe/redaction.h"
#include "platform/console_user.h"
#include "platform/folders.h"
#include "platform/os_info.h"
#include "platform/paths.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <errno.h>
#include <iterator>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace oobe {

namespace {

constexpr size_t kMessageBufferBytes = 4096;

// Reused by every line a thread writes.
thread_local std::string line_buffer;
thread_local std::string message_buffer;

// The calling thread's id, asked of the kernel once per thread. A forked
// child's thread has a new id, so a fork forgets the cached one.
thread_local uint64_t cached_thread_id = 0;

void ForgetThreadIdAfterFork() {
  cached_thread_id = 0;
}

uint64_t CurrentThreadId() {
  static const int registered = pthread_atfork(nullptr, nullptr, &ForgetThreadIdAfterFork);
  (void)registered;
  if (cached_thread_id == 0) {
    cached_thread_id = platform::GetCurrentThreadId();
  }
  return cached_thread_id;
}

bool IsRegularFile(const std::string& path) {
  return platform::IsFile(path);
}

// The marker of `file_name` with another extension ("OOBE.log" -> "OOBE.trace").
std::string MarkerFor(const std::string& folder, const std::string& file_name, const char* ext) {
  std::string name = file_name;
  if (!platform::ReplacePathExtension(name, ext)) {
    return std::string();
  }
  return platform::JoinPath(folder, name);
}

// The lock's outcome, said on standard error at each wait that ran out.
// That is once per stuck holder: the records after it do not wait until
// the lock has been taken again.
LockOutcome Reported(const ScopedFileLock& lock, const std::string& path) {
  if (lock.outcome() == LockOutcome::kTimedOut) {
    std::fprintf(stderr,
                 "oobe: the lock of the log %s was held by another process for more than %d ms; "
                 "writing without it\n",
                 path.c_str(), kLockWaitMilliseconds);
  }
  return lock.outcome();
}

// Whether the open log is empty or ends in a line feed (also when it
// cannot be read). A record cut short whose bytes could not be given back
// leaves a line without its end; the next record must not continue it.
bool EndsInLineFeed(const platform::ScopedFd& file) {
  struct stat info;
  char last = '\n';
  if (!file.valid() || fstat(file.get(), &info) != 0 || info.st_size == 0) {
    return true;
  }
  return pread(file.get(), &last, 1, info.st_size - 1) != 1 || last == '\n';
}

// Gives back what a failed append added: a descriptor opened for appending
// stands at the end of what it wrote, and under the file lock nobody else
// wrote after it.
bool GiveBack(int fd, size_t written) {
  const off_t end = lseek(fd, 0, SEEK_CUR);
  return end >= static_cast<off_t>(written) &&
         ftruncate(fd, end - static_cast<off_t>(written)) == 0;
}

// Says `what` about the log on standard error, once per process and kind:
// a full disk fails every record, and one line tells the cause.
void SayOnce(std::atomic<bool>& said, const char* what, const std::string& path, int error) {
  if (!said.exchange(true)) {
    std::fprintf(stderr, "oobe: %s the log %s: %s\n", what, path.c_str(), std::strerror(error));
  }
}

std::atomic<bool> unwritten_record_said{false};
std::atomic<bool> failed_rotation_said{false};

} // namespace

LogTargetBase::LogTargetBase() {
  pthread_mutex_init(&guard_, nullptr);
  SetLevel(kLevelInfo);
}

LogTargetBase::~LogTargetBase() {
  pthread_mutex_destroy(&guard_);
}

void LogTargetBase::SetName(const char* name) {
  if (name) {
    name_ = name;
  }
}

void LogTargetBase::SetLevel(int32_t level) {
  level_ = level;
  std::string folder;
  if (!platform::GetUserLogsFolder(folder)) {
    return;
  }
  const std::string trace = MarkerFor(folder, fileName_, "trace");
  if (!trace.empty() && IsRegularFile(trace)) {
    level_ = kLevelTrace;
    return;
  }
  const std::string debug = MarkerFor(folder, fileName_, "debug");
  if (!debug.empty() && IsRegularFile(debug)) {
    if (level > kLevelDebug) {
      level_ = kLevelDebug;
    }
    return;
  }
  if (IsRegularFile(platform::JoinPath(folder, "asu.trace"))) {
    level_ = kLevelTrace;
    return;
  }
  if (IsRegularFile(platform::JoinPath(folder, "asu.debug")) && level > kLevelDebug) {
    level_ = kLevelDebug;
  }
}

void LogTargetBase::AddRef() {
  pthread_mutex_lock(&guard_);
  ++refCount_;
  pthread_mutex_unlock(&guard_);
}

void LogTargetBase::Release() {
  pthread_mutex_lock(&guard_);
  --refCount_;
  pthread_mutex_unlock(&guard_);
}

LogTargetDefault::LogTargetDefault(const char* name) : credentialKeys_(DefaultCredentialKeys()) {
  SetName(name);
  withThreadId_ = platform::ThreadIdsShown();
  header_ = ComposeHeaderBlock();
  headerPending_ = false;
}

LogTargetDefault::~LogTargetDefault() {
  if (fileLock_) {
    DetachFileLock(*fileLock_);
    DestroyFileLock(*fileLock_);
  }
}

bool LogTargetDefault::OpenStream(const std::string& path, platform::ScopedFd& file) {
  file.reset();
  // Read as well as appended to, so that the end of the log can be looked
  // at; a log this process may only write to is appended to all the same.
  platform::OpenOptions append;
  append.access = platform::FileAccess::kReadAppend;
  append.create = true;
  append.mode = 0666;
  bool created = false;
  platform::ScopedFd opened;
  if (!platform::OpenFileAt(path, append, opened, &created)) {
    append.access = platform::FileAccess::kAppend;
    if (errno != EACCES || !platform::OpenFileAt(path, append, opened, &created)) {
      return false;
    }
  }
  // Only a file this call created gets the mode, on its own descriptor: an
  // existing file keeps whatever mode it has.
  if (created && fchmod(opened.get(), 0666) != 0) {
    std::fprintf(stderr, "\n Error Set File permissions. errno = %s", std::strerror(errno));
  }
  file = std::move(opened);
  return true;
}

bool LogTargetDefault::Open() {
  if (!enabled_) {
    return false;
  }
  if (filePath_.empty()) {
    std::string path;
    if (!platform::GetUserLogsFolder(path) || !platform::AppendPathComponentNS(path, fileName_)) {
      return false;
    }
    filePath_ = path;
  }
  if (!OpenStream(filePath_, file_)) {
    return false;
  }
  fileFailed_ = false;
  if (!fileLock_) {
    // A set that cannot be made leaves the handle at -1: every line that
    // asks for the lock is then dropped, never blocked.
    fileLock_ = std::make_unique<FileLockHandle>();
    (void)CreateFileLock(*fileLock_, filePath_);
  }
  struct timeval now;
  gettimeofday(&now, nullptr);
  lastCleanUpTime_ = lastLineTime_ = now.tv_sec;
  {
    const ScopedFileLock lock(fileLock_.get());
    if (Reported(lock, filePath_) == LockOutcome::kTaken) {
      (void)CheckSizeAndCleanUp(); // retried by the next size check if it failed
      startOnNewLine_ = !EndsInLineFeed(file_);
    }
  }
  opened_ = true;
  return true;
}

bool LogTargetDefault::Close() {
  file_.reset();
  if (fileLock_) {
    DetachFileLock(*fileLock_);
    DestroyFileLock(*fileLock_);
    fileLock_.reset();
  }
  opened_ = false;
  return true;
}

bool LogTargetDefault::Write(int32_t level, const char* f1, const char* f2, const char* f3,
                             const char* f4, const char* f5, const char* f6, const char* format,
                             va_list* arguments, int64_t time_ms, bool use_file_lock) {
  const LogRecord record{level, {f1, f2, f3, f4, f5, f6}, format, arguments, time_ms};
  if (level_ > level) {
    return true;
  }
  if (!use_file_lock) {
    WriteRecord(record, false);
    return true;
  }
  if (!fileLock_) {
    return true; // dropped on purpose: a writer never waits for a missing lock
  }
  const ScopedFileLock lock(fileLock_.get());
  const LockOutcome outcome = Reported(lock, filePath_);
  switch (outcome) {
  case LockOutcome::kFailed:
    return true; // as without a lock: dropped, never blocked
  case LockOutcome::kTimedOut:
  case LockOutcome::kStillHeld:
    // Another process holds the lock past the bound: the record goes out
    // whole all the same, and the size check waits for a record that holds
    // the lock.
    break;
  case LockOutcome::kTaken:
    // The time compared is the previous line's, so the check lags a line.
    if (lastLineTime_ - lastCleanUpTime_ >= kCleanUpIntervalSeconds && CheckSizeAndCleanUp()) {
      lastCleanUpTime_ = lastLineTime_;
    }
    break;
  }
  WriteRecord(record, outcome == LockOutcome::kTaken);
  return true;
}

void LogTargetDefault::WriteRecord(const LogRecord& record, bool locked) {
  thread_local std::string text;
  text.clear();
  if (headerPending_) {
    headerPending_ = false;
    AppendHeader(kLevelInfo, record.fields, text);
  }
  if (!rotationWarning_.empty()) {
    AppendRecord(LogRecord{kLevelWarn,
                           {record.fields[0], record.fields[1], record.fields[2], record.fields[3],
                            nullptr, nullptr},
                           rotationWarning_.c_str(),
                           nullptr,
                           0},
                 text);
    rotationWarning_.clear();
  }
  AppendRecord(record, text);
  WriteText(text, locked);
}

void LogTargetDefault::AppendRecord(const LogRecord& record, std::string& text) {
  if (level_ > record.level) {
    return;
  }
  const char* message = record.format ? record.format : "";
  char formatted[kMessageBufferBytes];
  if (record.arguments) {
    va_list copy;
    va_copy(copy, *record.arguments);
    std::vsnprintf(formatted, sizeof formatted, message, copy);
    va_end(copy);
    message = formatted;
  }

  LineFields fields{LevelName(record.level), {}, withThreadId_, 0};
  std::copy(std::begin(record.fields), std::end(record.fields), std::begin(fields.fields));
  if (withThreadId_) {
    fields.thread_id = CurrentThreadId();
  }
  std::string_view shown = message;
  if (ContainsWebToken(message)) {
    shown = kTokenReplacement;
    fields.level_name = LevelName(kLevelWarn);
  } else if (shown.find('<') != std::string_view::npos) {
    RedactCredentials(credentialKeys_, shown, message_buffer);
    shown = message_buffer;
  }

  int64_t seconds;
  int milliseconds;
  if (record.time_ms != 0) {
    seconds = record.time_ms / 1000;
    milliseconds = static_cast<int>(record.time_ms % 1000);
  } else {
    struct timeval now;
    gettimeofday(&now, nullptr);
    seconds = now.tv_sec;
    milliseconds = static_cast<int>(now.tv_usec / 1000);
  }
  lastLineTime_ = seconds;
  BuildLine(seconds, milliseconds, fields, separator_, shown, line_buffer);
  text += line_buffer;
  text += '\n';
}

void LogTargetDefault::AppendHeader(int32_t level, const char* const* fields, std::string& text) {
  const auto add = [&](const std::string& line) {
    AppendRecord(LogRecord{level,
                           {fields[0], fields[1], fields[2], fields[3], nullptr, nullptr},
                           line.c_str(),
                           nullptr,
                           0},
                 text);
  };
  add(header_.ruleBefore);
  for (const auto& [label, value] : header_.lines) {
    add(label + value);
  }
  add(header_.ruleAfter);
}

void LogTargetDefault::WriteHeader(int32_t level, const char* f1, const char* f2, const char* f3,
                                   const char* f4, const HeaderBlock* description,
                                   bool use_file_lock) {
  if (description) {
    header_ = *description;
  }
  headerPending_ = false;
  const char* const fields[4] = {f1, f2, f3, f4};
  std::string text;
  AppendHeader(level, fields, text);
  // The whole block in one write, under the lock when asked for (and
  // without it once the wait for it has run out, as every record).
  if (use_file_lock) {
    if (!fileLock_) {
      return;
    }
    const ScopedFileLock lock(fileLock_.get());
    const LockOutcome outcome = Reported(lock, filePath_);
    if (outcome == LockOutcome::kFailed) {
      return;
    }
    WriteText(text, outcome == LockOutcome::kTaken);
    return;
  }
  WriteText(text, false);
}

void LogTargetDefault::WriteLine(const char* text) {
  if (!text) {
    fileFailed_ = true;
    return;
  }
  thread_local std::string line;
  line.assign(text);
  line += '\n';
  WriteText(line, false);
}

void LogTargetDefault::WriteText(const std::string& text, bool locked) {
  if (text.empty()) {
    return;
  }
  if (!file_.valid() || fileFailed_) {
    NoteUnwritten(lastWriteError_ != 0 ? lastWriteError_ : EBADF);
    return;
  }
  // One write for everything a record brings (the header block after a
  // rotation, then the line, each ending in a newline): another process
  // appending to the same file never lands inside it, and a kill leaves it
  // whole or absent. After a line left without its end, the record starts
  // on a line of its own; its own bytes are as always.
  thread_local std::string fresh_line;
  const std::string* out = &text;
  if (startOnNewLine_) {
    fresh_line.assign(1, '\n');
    fresh_line += text;
    out = &fresh_line;
  }
  size_t written = 0;
  if (platform::WriteAll(file_.get(), out->data(), out->size(), &written)) {
    startOnNewLine_ = false;
    return;
  }
  const int error = errno;
  fileFailed_ = true;
  // Whole or absent: what went out of a record that could not be written
  // whole is given back, which is safe only while no one else appends.
  if (written > 0 && !(locked && GiveBack(file_.get(), written))) {
    startOnNewLine_ = (*out)[written - 1] != '\n';
  }
  NoteUnwritten(error);
}

void LogTargetDefault::NoteUnwritten(int error) {
  ++unwrittenRecords_;
  lastWriteError_ = error;
  if (saysUnwrittenRecords_) {
    SayOnce(unwritten_record_said, "a record could not be written to", filePath_, error);
  }
}

uint64_t LogTargetDefault::SizeLimitForLevel(int32_t level) {
  return RotationSizeLimit(level);
}

bool LogTargetDefault::SetLogFile(const char* file_name, const char* folder) {
  const bool named = file_name && *file_name;
  const std::string name = named ? std::string(file_name) : fileName_;
  if (named && !platform::IsBareName(name)) {
    enabled_ = false;
    return false;
  }
  std::string path;
  if (!folder || !*folder) {
    std::string logs;
    if (!platform::GetUserLogsFolder(logs)) {
      // Without a logs folder there is nowhere sensible to write.
      enabled_ = false;
      return false;
    }
    path = logs + "/Vornica/Dex";
    if (!platform::IsDirectory(path)) {
      // Shared by the processes of every user: owned by the console user
      // and open to all. Failures here show up when the file is opened.
      (void)platform::CreateDirectoryTree(path);
      platform::ConsoleUser user;
      if (platform::GetConsoleUser(user)) {
        for (const std::string& made : {logs + "/Vornica", path}) {
          platform::EntryRef entry;
          if (platform::ResolveEntry(made, /*follow_final_link=*/false, entry)) {
            (void)platform::ChangeOwner(entry.folder, entry.name, user.uid, user.gid);
            (void)platform::ChangeMode(entry.folder, entry.name, 0777);
          }
        }
      }
    }
  } else {
    path = folder;
  }
  if (!platform::AppendPathComponentNS(path, name)) {
    enabled_ = false;
    return false;
  }
  filePath_ = path;
  fileName_ = platform::BaseName(path);
  if (opened_) {
    enabled_ = OpenStream(filePath_, file_);
    fileFailed_ = false;
  } else {
    platform::ScopedFd probe;
    enabled_ = OpenStream(filePath_, probe);
  }
  return enabled_;
}

bool LogTargetDefault::CheckSizeAndCleanUp() {
  // Everything below acts through the folder that holds the live file.
  platform::EntryRef live;
  if (!platform::ResolveEntry(filePath_, /*follow_final_link=*/false, live)) {
    return false;
  }
  const uint64_t limit = SizeLimitForLevel(level_);
  const bool keep_logs = KeepLogsMarked(live.folder);
  struct stat info;
  if (!platform::StatEntry(live.folder, live.name, info) || !S_ISREG(info.st_mode)) {
    return false;
  }
  if (static_cast<uint64_t>(info.st_size) < limit) {
    return true;
  }
  headerPending_ = true;
  // The copy is made by the kernel where it can: a 50 MiB log is set aside
  // in about the time cp takes, while every other writer waits on the lock.
  RotateOrSayWhyNot(live);
  const bool reopened = OpenStream(filePath_, file_);
  fileFailed_ = false;
  if (!keep_logs) {
    RemoveOldLogCopies(live, kDaysOfCopies);
  }
  return reopened;
}

void LogTargetDefault::RotateOrSayWhyNot(const platform::EntryRef& live) {
  int error = 0;
  if (RotateLiveLog(live, &error)) {
    startOnNewLine_ = false; // the live log is empty now
    return;
  }
  // The live log is kept whole and the next size check tries again.
  SayOnce(failed_rotation_said, "could not set aside", filePath_, error);
  rotationWarning_ = "The log could not be set aside (" + std::string(std::strerror(error)) +
                     "); it is kept whole and set aside at a later check";
}

void LogTargetDefault::RemoveOldCopies(int days) {
  platform::EntryRef live;
  if (platform::ResolveEntry(filePath_, /*follow_final_link=*/false, live)) {
    RemoveOldLogCopies(live, days);
  }
}

} // namespace oobe
