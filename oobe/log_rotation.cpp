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

// One item found below the log folder: the folder that holds it (kept open),
// its name there, and its path relative to the log folder.
struct FoundEntry {
  platform::FolderHandle holder;
  std::string name;
  std::string relative;
};

// Every item below `folder`, parents before their contents, walked through
// folder descriptors: a folder swapped for a link while this runs is not
// followed, and neither is a link that was there before.
std::vector<FoundEntry> EntriesBelow(const platform::FolderHandle& folder) {
  std::vector<FoundEntry> entries;
  std::vector<std::pair<platform::FolderHandle, std::string>> pending{{folder, ""}};
  while (!pending.empty()) {
    const auto [holder, relative] = pending.back();
    pending.pop_back();
    std::vector<std::string> names;
    if (!platform::ListFolder(holder, names)) {
      continue;
    }
    for (const std::string& name : names) {
      const std::string path = relative.empty() ? name : relative + "/" + name;
      entries.push_back({holder, name, path});
      platform::FolderHandle below;
      if (platform::OpenSubfolder(holder, name, below)) {
        pending.emplace_back(below, path);
      }
    }
  }
  return entries;
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

// Copies `source` (the live log, read from its start) under a copy's name.
bool CopyLiveLog(const platform::EntryRef& live, int source) {
  const NameParts parts = SplitName(live.name);
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
    (void)platform::RemoveRegularFile(live.folder, partial);
    return false;
  }
  // A name already taken (two rotations in one second, or anything put
  // there) moves on to "_NN", which sorts after the plain name and keeps
  // copies in time order; a new link never replaces what has the name.
  bool named = false;
  for (int suffix = 0; suffix <= kMaxCopySuffix && !named; ++suffix) {
    char text[16] = "";
    if (suffix > 0) {
      std::snprintf(text, sizeof text, "_%02d", suffix);
    }
    std::string name = parts.stem + " " + time + text;
    if (parts.has_ext && !platform::AppendPathExtension(name, parts.ext)) {
      break;
    }
    named = platform::LinkEntry(live.folder, partial, name);
    if (!named && errno != EEXIST) {
      break;
    }
  }
  (void)platform::RemoveRegularFile(live.folder, partial);
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

bool RotateLiveLog(const platform::EntryRef& live) {
  // The file is held from the copy to the emptying: both act on what the
  // path names at this moment, so lines are never emptied without a copy.
  platform::OpenOptions read_write;
  read_write.access = platform::FileAccess::kReadWrite;
  platform::ScopedFd current;
  if (!platform::OpenFileIn(live.folder, live.name, read_write, current) ||
      !CopyLiveLog(live, current.get())) {
    return false;
  }
  // A kill or a failure here can only leave the lines in both files.
  (void)!ftruncate(current.get(), 0);
  return true;
}

void RemoveOldLogCopies(const platform::EntryRef& live, int days) {
  const NameParts parts = SplitName(live.name);
  const std::string live_name = parts.has_ext ? parts.stem + "." + parts.ext : parts.stem;

  std::vector<std::string> kept_prefixes;
  const time_t now = ::time(nullptr);
  for (int offset = 0; offset > -days; --offset) {
    kept_prefixes.push_back(parts.stem + " " + LocalTime(now + offset * 86400, "%Y-%m-%d"));
  }

  // Only regular files are removed, each checked through the folder that
  // holds it at the moment of removal; links and folders are left alone.
  std::vector<FoundEntry> candidates;
  for (FoundEntry& entry : EntriesBelow(live.folder)) {
    if (!StartsWith(entry.relative, parts.stem)) {
      continue;
    }
    const bool dated =
        std::any_of(kept_prefixes.begin(), kept_prefixes.end(),
                    [&](const std::string& prefix) { return StartsWith(entry.relative, prefix); });
    if (dated || entry.relative == live_name) {
      candidates.push_back(std::move(entry));
    } else {
      (void)platform::RemoveRegularFile(entry.holder, entry.name);
    }
  }
  std::sort(candidates.begin(), candidates.end(),
            [](const FoundEntry& a, const FoundEntry& b) { return a.relative < b.relative; });
  const size_t keep = static_cast<size_t>(days) + 1;
  for (size_t i = 0; candidates.size() > keep && i < candidates.size() - keep; ++i) {
    (void)platform::RemoveRegularFile(candidates[i].holder, candidates[i].name);
  }
}

} // namespace oobe
