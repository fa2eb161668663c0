#include "esd/corrupt_file.h"

#include "platform/safe_fs.h"

#include <algorithm>
#include <errno.h>
#include <vector>

namespace esd {

namespace {

constexpr int kMaxNameTries = 100;

// A copy's place in time: its stamp, then its number within that second
// (1 for none, k for "-k").
std::pair<std::string, int> AgeOf(const std::string& copy, size_t stamp_start) {
  constexpr size_t kStampLength = 15; // YYYYmmdd-HHMMSS
  const std::string stamp = copy.substr(stamp_start, kStampLength);
  const std::string rest = copy.substr(std::min(copy.size(), stamp_start + kStampLength));
  int number = 1;
  if (rest.size() > 1 && rest.size() < 7 && rest[0] == '-' &&
      rest.find_first_not_of("0123456789", 1) == std::string::npos) {
    number = std::stoi(rest.substr(1));
  }
  return {stamp, number};
}

void RemoveOldCopies(const platform::FolderHandle& folder, const std::string& name) {
  std::vector<std::string> names;
  if (!platform::ListFolder(folder, names)) {
    return; // the copies stay; nothing is lost
  }
  const std::string prefix = name + kCorruptInfix;
  std::vector<std::string> copies;
  for (const std::string& entry : names) {
    if (entry.compare(0, prefix.size(), prefix) == 0) {
      copies.push_back(entry);
    }
  }
  std::sort(copies.begin(), copies.end(), [&](const std::string& a, const std::string& b) {
    return AgeOf(a, prefix.size()) > AgeOf(b, prefix.size());
  });
  for (size_t old = kCorruptCopiesKept; old < copies.size(); ++old) {
    (void)platform::RemoveRegularFile(folder, copies[old]); // only a file we made goes
  }
}

// 1 for `base` itself, k for "base-k", 0 when no copy of that second is
// there.
int HighestCopyNumber(const platform::FolderHandle& folder, const std::string& base) {
  std::vector<std::string> names;
  (void)platform::ListFolder(folder, names); // unlisted: the links below still never replace
  int highest = 0;
  for (const std::string& name : names) {
    if (name == base) {
      highest = std::max(highest, 1);
    } else if (name.compare(0, base.size() + 1, base + "-") == 0) {
      const std::string number = name.substr(base.size() + 1);
      if (!number.empty() && number.size() < 6 &&
          number.find_first_not_of("0123456789") == std::string::npos) {
        highest = std::max(highest, std::stoi(number));
      }
    }
  }
  return highest;
}

} // namespace

std::string CorruptCopyName(const std::string& name, std::time_t when) {
  struct tm local = {};
  localtime_r(&when, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
  return name + kCorruptInfix + stamp;
}

bool MoveCorruptFileAside(const std::string& path, std::string& moved_to) {
  platform::EntryRef file;
  if (!platform::ResolveEntry(path, /*follow_final_link=*/false, file)) {
    return false;
  }
  const std::string base = CorruptCopyName(file.name, std::time(nullptr));
  // A second name first, then the old one goes: an existing copy is never
  // replaced, and the bytes always have a name. The number after a name of
  // the same second is higher than any in use, so the newest sorts last.
  const int first = HighestCopyNumber(file.folder, base) + 1;
  for (int attempt = first; attempt < first + kMaxNameTries; ++attempt) {
    const std::string aside = attempt == 1 ? base : base + "-" + std::to_string(attempt);
    if (platform::LinkEntry(file.folder, file.name, aside)) {
      if (!platform::RemoveEntry(file.folder, file.name, /*is_folder=*/false)) {
        return false;
      }
      moved_to = platform::EntryRef{file.folder, aside}.Path();
      RemoveOldCopies(file.folder, file.name);
      return true;
    }
    if (errno == EEXIST) {
      continue;
    }
    // No second name to be had (a file system without hard links): a
    // rename does it, to a name seen free just before, under the lock.
    struct stat taken;
    if (platform::StatEntry(file.folder, aside, taken) || errno != ENOENT ||
        !platform::RenameEntry(file.folder, file.name, aside)) {
      return false;
    }
    moved_to = platform::EntryRef{file.folder, aside}.Path();
    RemoveOldCopies(file.folder, file.name);
    return true;
  }
  return false;
}

} // namespace esd
