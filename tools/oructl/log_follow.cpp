#include "tools/oructl/log_follow.h"

#include "platform/folder_watch.h"
#include "platform/paths.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace oructl {

namespace {

constexpr int kLookAgainMs = 1000;

class Follower {
public:
  Follower(std::string live, const RecordAssembler::Sink& sink)
      : live_(std::move(live)), sink_(sink) {}

  bool Start(const ReadPosition& from, std::string& error) {
    newestCopy_ = from.newestCopy;
    if (!OpenLogFile(live_, fd_, error)) {
      return false;
    }
    struct stat info;
    if (fd_.valid() && fstat(fd_.get(), &info) == 0 && from.exists && info.st_dev == from.device &&
        info.st_ino == from.inode) {
      position_ = from;
    } else {
      position_ = ReadPosition(); // a file read for the first time: from its start
      position_.lines = 0;
    }
    return true;
  }

  // Reads what is new; false when the sink asked to stop or reading failed.
  bool CatchUp(std::string& error) {
    if (!fd_.valid()) {
      return Reopen(error);
    }
    struct stat info;
    if (fstat(fd_.get(), &info) != 0) {
      error = "cannot read the log " + live_ + ": " + std::strerror(errno);
      return false;
    }
    // A rotation copies the live file (writers wait meanwhile) and then
    // empties it. A new copy is what says so, whatever the live file's size
    // is by the time of this look: it may have grown past what was read.
    const std::string copy = NewestCopy();
    if (copy != newestCopy_) {
      newestCopy_ = copy;
      off_t copied = 0;
      if (!ReadRotatedRest(copy, copied, error)) {
        return false;
      }
      emptyingPending_ = true;
      copiedSize_ = copied;
    }
    if (emptyingPending_) {
      // Still the size of the copy: not emptied yet (no writer can write
      // before it is); look again at the next event.
      if (info.st_size == copiedSize_) {
        return true;
      }
      emptyingPending_ = false;
      position_.offset = 0;
      position_.lines = 0;
    } else if (info.st_size < position_.offset) {
      // Emptied with no copy made (the copy failed): start again.
      position_.offset = 0;
      position_.lines = 0;
    }
    if (!ReadFrom(fd_.get(), live_, position_, error)) {
      // No line starts where the last one read ended: the file was emptied
      // and written again between the look for copies above and the read (a
      // rotation came in between). The new copy tells; take it from there.
      if (!error.empty() && position_.offset > 0 && NewestCopy() != newestCopy_) {
        error.clear();
        return CatchUp(error);
      }
      return false;
    }
    return Reopen(error);
  }

private:
  // Reads complete lines from `position` on and moves it past them.
  bool ReadFrom(int fd, const std::string& file, ReadPosition& position, std::string& error) {
    bool go_on = true;
    RecordAssembler records(
        file, [&](const LogRecord& record) { return go_on = sink_(record); }, position.lines);
    LineReader lines(fd, position.offset);
    std::string line;
    off_t start = 0;
    while (lines.Next(line, start, /*take_unfinished=*/false)) {
      if (!records.Add(line, start)) {
        error = records.error();
        return false;
      }
    }
    if (lines.failed()) {
      error = "cannot read the log " + file + ": " + std::strerror(errno);
      return false;
    }
    records.Flush();
    position.offset = lines.offset();
    position.lines = records.lines();
    return go_on;
  }

  // The newest dated copy of the live log, or "" when there is none.
  std::string NewestCopy() const {
    const std::vector<std::string> files = LogFilesOf(live_);
    return files.size() < 2 ? std::string() : files[files.size() - 2];
  }

  // The records of `copy` after what was read of the live file; `size` is
  // the copy's size.
  bool ReadRotatedRest(const std::string& copy, off_t& size, std::string& error) {
    platform::ScopedFd file;
    struct stat info;
    if (copy.empty() || !OpenLogFile(copy, file, error)) {
      return error.empty();
    }
    if (!file.valid() || fstat(file.get(), &info) != 0) {
      return true;
    }
    size = info.st_size;
    if (info.st_size < position_.offset) {
      return true;
    }
    ReadPosition rest = position_;
    return ReadFrom(file.get(), copy, rest, error);
  }

  // Moves to the file that now has the live log's name, when that is
  // another file than the one read.
  bool Reopen(std::string& error) {
    platform::ScopedFd now;
    if (!OpenLogFile(live_, now, error)) {
      return false;
    }
    struct stat was;
    struct stat is;
    if (!now.valid() || fstat(now.get(), &is) != 0) {
      return true; // gone for now: keep what is open and wait
    }
    if (fd_.valid() && fstat(fd_.get(), &was) == 0 && was.st_dev == is.st_dev &&
        was.st_ino == is.st_ino) {
      return true;
    }
    fd_ = std::move(now);
    position_ = ReadPosition();
    position_.lines = 0;
    return ReadFrom(fd_.get(), live_, position_, error);
  }

  std::string live_;
  const RecordAssembler::Sink& sink_;
  platform::ScopedFd fd_;
  ReadPosition position_;
  std::string newestCopy_;
  bool emptyingPending_ = false; // a copy was read; the live file is not emptied yet
  off_t copiedSize_ = 0;
};

} // namespace

bool FollowLog(const std::string& live, ReadPosition from, const RecordAssembler::Sink& sink,
               std::string& error) {
  // The folder is watched rather than the file, so that a file made or
  // replaced there is seen too. A folder that cannot be watched (not there
  // yet) is looked at every second instead.
  platform::FolderWatch folder;
  if (!folder.Start(platform::DirName(live))) {
    error = std::string("cannot watch the log: ") + std::strerror(errno);
    return false;
  }
  Follower follower(live, sink);
  if (!follower.Start(from, error)) {
    return false;
  }
  while (follower.CatchUp(error)) {
    if (!folder.Wait(kLookAgainMs)) {
      error = std::string("cannot watch the log: ") + std::strerror(errno);
      return false;
    }
  }
  return error.empty();
}

} // namespace oructl
