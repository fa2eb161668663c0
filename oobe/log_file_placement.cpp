// Where a target's log file lives, when it is set aside and emptied, and
// which older copies are removed.
#include "oobe/log_target.h"
#include "platform/console_user.h"
#include "platform/folders.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fstream>
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

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// Every entry below `folder`, as paths relative to it, parents before their
// contents; links to folders are not followed.
std::vector<std::string> EntriesBelow(const std::string& folder) {
  std::vector<std::string> entries;
  std::vector<std::string> pending{""};
  while (!pending.empty()) {
    const std::string relative = pending.back();
    pending.pop_back();
    DIR* dir = opendir(relative.empty() ? folder.c_str() : (folder + "/" + relative).c_str());
    if (!dir) {
      continue;
    }
    while (const struct dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") {
        continue;
      }
      const std::string path = relative.empty() ? name : relative + "/" + name;
      entries.push_back(path);
      struct stat info;
      if (lstat((folder + "/" + path).c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
        pending.push_back(path);
      }
    }
    closedir(dir);
  }
  return entries;
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
          (void)!chown(made.c_str(), user.uid, user.gid);
          (void)!chmod(made.c_str(), 0777);
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
    enabled_ = OpenStream(filePath_, stream_);
  } else {
    std::fstream probe;
    enabled_ = OpenStream(filePath_, probe);
    probe.close();
  }
  return enabled_;
}

std::string LogTargetDefault::RotatedCopyPath() const {
  std::string ext;
  const bool has_ext = platform::GetPathExtension(filePath_, ext);
  std::string stem = filePath_;
  platform::DeletePathExtension(stem);
  const std::string time = LocalTime(::time(nullptr), "%Y-%m-%d %H-%M-%S");
  const auto name = [&](const std::string& suffix) {
    std::string path = stem + " " + time + suffix;
    if (has_ext) {
      platform::AppendPathExtension(path, ext);
    }
    return path;
  };
  // Two rotations within one second must not overwrite the earlier copy.
  // "_NN" sorts after the plain name, keeping copies in time order.
  std::string path = name("");
  for (int suffix = 1; platform::PathExists(path) && suffix <= kMaxCopySuffix; ++suffix) {
    char text[16];
    std::snprintf(text, sizeof text, "_%02d", suffix);
    path = name(text);
  }
  return path;
}

bool LogTargetDefault::CheckSizeAndCleanUp() {
  const std::string marker = FolderOf(filePath_) + "//" + "asu.trace";
  const uint64_t limit = SizeLimitForLevel(level_);
  char content[1024];
  std::memset(content, 0, sizeof content);
  // "rw+" is read as "r+" by the C library; the marker must be writable to
  // count, as every program sharing these logs reads it.
  if (FILE* file = std::fopen(marker.c_str(), "rw+")) {
    (void)!std::fread(content, 1, 9, file);
    std::fclose(file);
  }
  uint64_t size = 0;
  if (!platform::GetFileSize(filePath_, size)) {
    return false;
  }
  if (size < limit) {
    return true;
  }
  headerPending_ = true;
  if (stream_.good()) {
    stream_.close();
  }
  // The copy is made by the kernel where it can: a 50 MiB log is set aside
  // in about the time cp takes, while every other writer waits on the lock.
  if (platform::CopyFileContents(filePath_, RotatedCopyPath())) {
    stream_.open(filePath_, std::ios::out | std::ios::trunc);
    stream_.close();
  }
  const bool reopened = OpenStream(filePath_, stream_);
  if (std::strcmp(content, "keeplogs") != 0) {
    RemoveOldCopies(kDaysOfCopies);
  }
  return reopened;
}

void LogTargetDefault::RemoveOldCopies(int days) {
  std::string ext;
  const bool has_ext = platform::GetPathExtension(filePath_, ext);
  std::string without_ext = filePath_;
  platform::DeletePathExtension(without_ext);
  const std::string folder = FolderOf(without_ext);
  const std::string stem = platform::BaseName(without_ext);
  const std::string live_name = has_ext ? stem + "." + ext : stem;

  std::vector<std::string> kept_prefixes;
  const time_t now = ::time(nullptr);
  for (int offset = 0; offset > -days; --offset) {
    kept_prefixes.push_back(stem + " " + LocalTime(now + offset * 86400, "%Y-%m-%d"));
  }

  std::vector<std::string> candidates;
  for (const std::string& entry : EntriesBelow(folder)) {
    if (!StartsWith(entry, stem)) {
      continue;
    }
    const bool dated =
        std::any_of(kept_prefixes.begin(), kept_prefixes.end(),
                    [&](const std::string& prefix) { return StartsWith(entry, prefix); });
    if (dated || entry == live_name) {
      candidates.push_back(folder + "/" + entry);
    } else {
      (void)std::remove((folder + "/" + entry).c_str());
    }
  }
  std::sort(candidates.begin(), candidates.end());
  const size_t keep = static_cast<size_t>(days) + 1;
  for (size_t i = 0; candidates.size() > keep && i < candidates.size() - keep; ++i) {
    (void)std::remove(candidates[i].c_str());
  }
}

} // namespace oobe
