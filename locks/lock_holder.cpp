#include "locks/lock_holder.h"

#include "platform/open_file_lock.h"
#include "platform/safe_fs.h"

#include <cinttypes>
#include <cstdio>
#include <time.h>
#include <unistd.h>

namespace esd {

namespace {

constexpr size_t kMaxRecordBytes = 128;

uint64_t RealtimeNanoseconds() {
  struct timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

HolderRecord ReadRecord(int fd, ssize_t* bytes = nullptr) {
  char text[kMaxRecordBytes + 1] = {};
  const ssize_t got = pread(fd, text, kMaxRecordBytes, 0);
  if (bytes) {
    // A record longer than a read takes is of unknown length.
    *bytes = got >= 0 && static_cast<size_t>(got) < kMaxRecordBytes ? got : -1;
  }
  HolderRecord record;
  if (got <= 0) {
    return record;
  }
  text[got] = '\0';
  long pid = 0;
  unsigned long long taken = 0;
  if (std::sscanf(text, "pid=%ld taken=%llu", &pid, &taken) == 2 && pid > 0) {
    record.pid = static_cast<pid_t>(pid);
    record.takenNanoseconds = taken;
  }
  return record;
}

} // namespace

std::string HolderRecordPath(const std::string& resource) {
  if (resource.empty() || resource[0] != '/' || resource.back() == '/') {
    return std::string();
  }
  return resource + kHolderRecordSuffix;
}

bool HolderRecordFile::Open(const std::string& resource) {
  const std::string path = HolderRecordPath(resource);
  if (path.empty()) {
    return false;
  }
  platform::OpenOptions options;
  options.access = platform::FileAccess::kReadWrite;
  options.create = true;
  options.mode = 0666;
  return platform::OpenFileAt(path, options, file_);
}

bool HolderRecordFile::TryLock() {
  bytes_ = kUnknownBytes; // others may have written it since
  return platform::TryLockOpenFile(file_.get());
}

void HolderRecordFile::Unlock() {
  bytes_ = kUnknownBytes;
  (void)platform::UnlockOpenFile(file_.get()); // closing the file gives it back too
}

HolderRecord HolderRecordFile::Read() const {
  return ReadRecord(file_.get(), &bytes_);
}

bool HolderRecordFile::WriteThisProcess() {
  char text[kMaxRecordBytes];
  const int length = std::snprintf(text, sizeof text, "pid=%ld taken=%" PRIu64 "\n",
                                   static_cast<long>(getpid()), RealtimeNanoseconds());
  // The record is short and written at once, so a reader sees all of it or
  // the empty file it replaces; a longer earlier record is cut off after.
  const bool written =
      pwrite(file_.get(), text, static_cast<size_t>(length), 0) == length &&
      ((bytes_ != kUnknownBytes && bytes_ <= length) || ftruncate(file_.get(), length) == 0);
  bytes_ = written ? length : kUnknownBytes;
  return written;
}

bool HolderRecordFile::Clear() {
  const bool cleared = ftruncate(file_.get(), 0) == 0;
  bytes_ = cleared ? 0 : kUnknownBytes;
  return cleared;
}

HolderView LookAtHolder(const std::string& resource) {
  HolderView view;
  const std::string path = HolderRecordPath(resource);
  platform::ScopedFd file;
  if (path.empty() || !platform::OpenFileAt(path, platform::OpenOptions(), file)) {
    return view;
  }
  // The record before and after a look at its lock: only a record that was
  // there, the same, on both sides of a moment when its lock was free, was
  // left by a process that died. A live holder writes its record after it
  // takes the lock and clears it before it lets go, and each record it
  // writes carries a new time.
  const HolderRecord before = ReadRecord(file.get());
  bool locked = false;
  if (!platform::IsOpenFileLocked(file.get(), locked)) {
    return view;
  }
  const HolderRecord after = ReadRecord(file.get());
  if (locked) {
    view.record = HolderView::Record::kLive;
    view.holder = after.empty() ? before : after;
    return view;
  }
  if (!before.empty() && before == after) {
    view.record = HolderView::Record::kDead;
    view.holder = before;
  }
  return view;
}

} // namespace esd
