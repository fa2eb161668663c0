// Where a target's log file lives, when it is set aside and emptied, and
// which older copies are removed.
#include "oobe/log_target.h"
#include "platform/console_user.h"
#include "platform/folders.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <errno.h>
#include <sys/stat.h>
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

} // namespace

uint64_t LogTargetDefault::SizeLimitForLevel(int32_t level) {
  if (level == kLevelTrace) {
    return kTraceLimit;
  }
  if (level == kLevelDebug) {
    return kDebugLimit;
  }
  return kDefaultLimit;
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

bool LogTargetDefault::CopyLiveFile(const platform::EntryRef& live) const {
  const NameParts parts = SplitName(live.name);
  const std::string time = LocalTime(::time(nullptr), "%Y-%m-%d %H-%M-%S");
  // The copy is made under a name of its own and gets the copy's name only
  // once it is complete, so a kill never leaves part of a log under a copy's
  // name. What an interrupted rotation left there goes first.
  const std::string partial = "." + live.name + ".rotating";
  (void)platform::RemoveRegularFile(live.folder, partial);
  platform::ScopedFd source;
  platform::ScopedFd copy;
  platform::OpenOptions fresh;
  fresh.access = platform::FileAccess::kWrite;
  fresh.create = true;
  fresh.exclusive = true;
  if (!platform::OpenFileIn(live.folder, live.name, platform::OpenOptions(), source) ||
      !platform::OpenFileIn(live.folder, partial, fresh, copy) ||
      !platform::CopyFileData(source.get(), copy.get())) {
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

bool LogTargetDefault::CheckSizeAndCleanUp() {
  // Everything below acts through the folder that holds the live file.
  platform::EntryRef live;
  if (!platform::ResolveEntry(filePath_, /*follow_final_link=*/false, live)) {
    return false;
  }
  const uint64_t limit = SizeLimitForLevel(level_);
  char content[1024];
  std::memset(content, 0, sizeof content);
  // The keep-logs marker, opened for reading and writing ("rw+" is read as
  // "r+"): it must be writable to count, as every program sharing these logs
  // reads it.
  platform::OpenOptions marker_access;
  marker_access.access = platform::FileAccess::kReadWrite;
  platform::ScopedFd marker;
  if (platform::OpenFileIn(live.folder, "asu.trace", marker_access, marker)) {
    (void)!read(marker.get(), content, 9);
  }
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
  // Then the live file is emptied through the descriptor this target holds;
  // a kill between the two can only leave its lines in both files.
  if (CopyLiveFile(live)) {
    if (file_.valid()) {
      (void)!ftruncate(file_.get(), 0); // a failure keeps the lines, twice
    } else {
      platform::OpenOptions empty;
      empty.access = platform::FileAccess::kWrite;
      empty.truncate = true;
      platform::ScopedFd truncated;
      (void)platform::OpenFileIn(live.folder, live.name, empty, truncated);
    }
  }
  const bool reopened = OpenStream(filePath_, file_);
  fileFailed_ = false;
  if (std::strcmp(content, "keeplogs") != 0) {
    RemoveOldCopies(kDaysOfCopies);
  }
  return reopened;
}

void LogTargetDefault::RemoveOldCopies(int days) {
  platform::EntryRef live;
  if (!platform::ResolveEntry(filePath_, /*follow_final_link=*/false, live)) {
    return;
  }
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
