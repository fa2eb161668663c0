// Setting a log aside and removing its old copies, all through the folder
// that holds the live file.
#include "oobe/log_rotation.h"

#include "oobe/levels.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <errno.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace oobe {

namespace {

constexpr uint64_t kTraceLimit = 52428800;
constexpr uint64_t kDebugLimit = 20971520;
constexpr uint64_t kDefaultLimit = 10485760;
constexpr int kMaxCopySuffix = 99;

std::string LocalTime(time_t when, const char* format) {
  struct tm local;
  char text[64] = "";
  if (localtime_r(&when, &local)) {
    strftime(text, sizeof text, format, &local);
  }
  return text;
}

// The name of a log file split at its extension, which is looked for in
// the name alone: a "." in a folder's name is no extension of the file.
struct NameParts {
  std::string stem;
  std::string ext;
  bool has_ext = false;
};

NameParts SplitName(const std::string& name) {
  NameParts parts;
  parts.has_ext = platform::GetPathExtension(name, parts.ext);
  parts.stem = name;
  platform::DeletePathExtension(parts.stem);
  return parts;
}

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// The time in a copy's name, "%Y-%m-%d %H-%M-%S", with 'd' for any digit.
constexpr char kCopyTimeShape[] = "dddd-dd-dd dd-dd-dd";

bool Matches(const std::string& text, const std::string& shape) {
  if (text.size() != shape.size()) {
    return false;
  }
  for (size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (shape[i] == 'd' ? !digit : text[i] != shape[i]) {
      return false;
    }
  }
  return true;
}

// What follows the time in a copy's name: the live name's extension put
// back as the path rules put one on, or nothing. False when the extension
// cannot be put on any name (no copy of this log can then be made).
bool CopyNameTail(const NameParts& parts, std::string& tail) {
  tail.clear();
  if (!parts.has_ext) {
    return true;
  }
  std::string probe = "x";
  if (!platform::AppendPathExtension(probe, parts.ext)) {
    return false;
  }
  tail = probe.substr(1);
  return true;
}

// Copies `source` (the live log, read from its start) under a copy's name,
// which `named_as` gets.
bool CopyLiveLog(const platform::EntryRef& live, int source, std::string& named_as) {
  const std::string time = LocalTime(::time(nullptr), "%Y-%m-%d %H-%M-%S");
  // The copy is made under a name of its own and gets the copy's name only
  // once it is complete, so a kill never leaves part of a log under a copy's
  // name. What an interrupted rotation left there goes first.
  const std::string partial = "." + live.name + ".rotating";
  (void)platform::RemoveRegularFile(live.folder, partial);
  platform::ScopedFd copy;
  platform::OpenOptions fresh;
  fresh.access = platform::FileAccess::kWrite;
  fresh.create = true;
  fresh.exclusive = true;
  if (!platform::OpenFileIn(live.folder, partial, fresh, copy) ||
      !platform::CopyFileData(source, copy.get())) {
    const int failure = errno;
    (void)platform::RemoveRegularFile(live.folder, partial);
    errno = failure;
    return false;
  }
  // A name already taken (two rotations in one second, or anything put
  // there) moves on to "_NN", which sorts after the plain name and keeps
  // copies in time order; a new link never replaces what has the name.
  bool named = false;
  int failure = EINVAL; // no name a copy could take
  for (int suffix = 0; suffix <= kMaxCopySuffix && !named; ++suffix) {
    const std::string name = RotatedCopyName(live.name, time, suffix);
    if (name.empty()) {
      break;
    }
    named = platform::LinkEntry(live.folder, partial, name);
    failure = errno;
    named_as = name;
    if (!named && failure != EEXIST) {
      break;
    }
  }
  (void)platform::RemoveRegularFile(live.folder, partial);
  errno = failure;
  return named;
}

} // namespace

uint64_t RotationSizeLimit(int32_t level) {
  if (level == kLevelTrace) {
    return kTraceLimit;
  }
  if (level == kLevelDebug) {
    return kDebugLimit;
  }
  return kDefaultLimit;
}

bool KeepLogsMarked(const platform::FolderHandle& folder) {
  char content[1024];
  std::memset(content, 0, sizeof content);
  // Opened for reading and writing ("rw+" is read as "r+"): the marker must
  // be writable to count, as every program sharing these logs reads it. Only
  // exactly "keeplogs" counts; "keeplogs" and a newline does not.
  platform::OpenOptions read_write;
  read_write.access = platform::FileAccess::kReadWrite;
  platform::ScopedFd marker;
  if (platform::OpenFileIn(folder, "asu.trace", read_write, marker)) {
    (void)!read(marker.get(), content, 9);
  }
  return std::strcmp(content, "keeplogs") == 0;
}

bool RotateLiveLog(const platform::EntryRef& live, int* error) {
  // The file is held from the copy to the emptying: both act on what the
  // path names at this moment, so lines are never emptied without a copy.
  platform::OpenOptions read_write;
  read_write.access = platform::FileAccess::kReadWrite;
  platform::ScopedFd current;
  std::string copy;
  if (platform::OpenFileIn(live.folder, live.name, read_write, current) &&
      CopyLiveLog(live, current.get(), copy)) {
    // A kill here can only leave the lines in both files; a live log that
    // cannot be emptied keeps them, and the copy goes again.
    if (ftruncate(current.get(), 0) == 0) {
      return true;
    }
    const int failure = errno;
    (void)platform::RemoveRegularFile(live.folder, copy);
    errno = failure;
  }
  if (error) {
    *error = errno;
  }
  return false;
}

std::string RotatedCopyName(const std::string& live_name, const std::string& time, int suffix) {
  const NameParts parts = SplitName(live_name);
  std::string tail;
  if (!CopyNameTail(parts, tail)) {
    return std::string();
  }
  char number[16] = "";
  if (suffix > 0) {
    std::snprintf(number, sizeof number, "_%02d", suffix);
  }
  return parts.stem + " " + time + number + tail;
}

bool IsRotatedCopyName(const std::string& live_name, const std::string& name) {
  const NameParts parts = SplitName(live_name);
  const std::string head = parts.stem + " ";
  std::string tail;
  if (!CopyNameTail(parts, tail) || name.size() < head.size() + tail.size() ||
      !StartsWith(name, head) || name.compare(name.size() - tail.size(), tail.size(), tail) != 0) {
    return false;
  }
  const std::string stamp = name.substr(head.size(), name.size() - head.size() - tail.size());
  return Matches(stamp, kCopyTimeShape) || Matches(stamp, std::string(kCopyTimeShape) + "_dd");
}

void RemoveOldLogCopies(const platform::EntryRef& live, int days) {
  const NameParts parts = SplitName(live.name);
  std::vector<std::string> kept_prefixes;
  const time_t now = ::time(nullptr);
  for (int offset = 0; offset > -days; --offset) {
    kept_prefixes.push_back(parts.stem + " " + LocalTime(now + offset * 86400, "%Y-%m-%d"));
  }
  std::vector<std::string> names;
  if (!platform::ListFolder(live.folder, names)) {
    return;
  }
  // Other programs delete every file whose name begins with the log's stem,
  // and so the live logs of their neighbours ("oruui.log" beside
  // "oruu.log"). Here only this log's old copies and its own level markers
  // go, and only regular files, each checked through the folder at the
  // moment of removal: another program's log is data.
  std::vector<std::string> candidates;
  for (const std::string& name : names) {
    if (name == live.name) {
      candidates.push_back(name);
    } else if (name == parts.stem + ".trace" || name == parts.stem + ".debug") {
      (void)platform::RemoveRegularFile(live.folder, name);
    } else if (IsRotatedCopyName(live.name, name)) {
      const bool dated =
          std::any_of(kept_prefixes.begin(), kept_prefixes.end(),
                      [&](const std::string& prefix) { return StartsWith(name, prefix); });
      if (dated) {
        candidates.push_back(name);
      } else {
        (void)platform::RemoveRegularFile(live.folder, name);
      }
    }
  }
  std::sort(candidates.begin(), candidates.end());
  const size_t keep = static_cast<size_t>(days) + 1;
  for (size_t i = 0; candidates.size() > keep && i < candidates.size() - keep; ++i) {
    (void)platform::RemoveRegularFile(live.folder, candidates[i]);
  }
}

} // namespace oobe
