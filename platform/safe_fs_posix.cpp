// The safe walk and the file operations on top of it, over the POSIX *at
// calls.
#include "platform/identity.h"
#include "platform/safe_fs.h"
#include "platform/safe_fs_internal.h"

#include <atomic>
#include <deque>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <mutex>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace platform {

namespace {

// As many links as the kernel follows in one path.
constexpr int kMaxLinksFollowed = 40;
// Rounds of "missing, then made by someone else, then gone again" before an
// open of a file to create gives up.
constexpr int kMaxCreateRounds = 8;
// Folders one walk may make, counting those that vanished again at once; a
// path has far fewer levels, so more means somebody plays with the folder.
constexpr int kMaxLevelsMade = 4096;

bool Fail(int error) {
  errno = error;
  return false;
}

std::string ChildPath(const std::string& folder, const std::string& name) {
  return folder == "/" ? "/" + name : folder + "/" + name;
}

void AppendComponents(const std::string& path, std::deque<std::string>& out) {
  size_t start = 0;
  while (start < path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) {
      end = path.size();
    }
    if (end > start) {
      out.push_back(path.substr(start, end - start));
    }
    start = end + 1;
  }
}

// A link is followed by a privileged process only when neither it nor the
// folder holding it can have been made or changed by anyone but root.
bool MayFollowLink(const FolderHandle& folder, const struct stat& link) {
  if (!IsPrivileged()) {
    return true;
  }
  return link.st_uid == 0 && folder.owner() == 0 &&
         (folder.info().st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// A privileged process never passes from a user's folder into an item of
// somebody else. `privileged` is the process's own standing, taken before
// it starts acting as anyone else.
bool MayEnter(const FolderHandle& from, const struct stat& item, bool privileged) {
  return !privileged || from.owner() == 0 || item.st_uid == from.owner();
}

// Acts as the owner of `folder` while it lives (see ScopedActAsUser).
class ActAsOwnerOf {
public:
  explicit ActAsOwnerOf(const FolderHandle& folder)
      : as_user_(folder.owner(), folder.info().st_gid) {}
  bool ok() const { return as_user_.ok(); }

private:
  ScopedActAsUser as_user_;
};

bool OpenRoot(FolderHandle& out) {
  ScopedFd fd(internal::OpenFolderDescriptor(AT_FDCWD, "/"));
  struct stat info;
  if (!fd.valid() || fstat(fd.get(), &info) != 0) {
    return false;
  }
  out = FolderHandle::Adopt(std::move(fd), "/", info);
  return true;
}

bool ReadLinkAt(const FolderHandle& folder, const std::string& name, std::string& target) {
  std::string buffer(4096, '\0');
  const ssize_t length = readlinkat(folder.fd(), name.c_str(), &buffer[0], buffer.size());
  if (length < 0) {
    return false;
  }
  if (static_cast<size_t>(length) >= buffer.size()) {
    return Fail(ENAMETOOLONG);
  }
  target.assign(buffer, 0, static_cast<size_t>(length));
  return true;
}

// Opens the folder `name` of `parent`, which a status read just before found
// as `seen`: a different item by now means someone swapped it.
bool EnterFolder(const FolderHandle& parent, const std::string& name, const struct stat& seen,
                 FolderHandle& out) {
  ScopedFd fd(internal::OpenFolderDescriptor(parent.fd(), name.c_str()));
  struct stat info;
  if (!fd.valid() || fstat(fd.get(), &info) != 0) {
    return false;
  }
  if (!S_ISDIR(info.st_mode) || info.st_dev != seen.st_dev || info.st_ino != seen.st_ino) {
    return Fail(EAGAIN);
  }
  if (!MayEnter(parent, info, IsPrivileged())) {
    return Fail(EPERM);
  }
  out = FolderHandle::Adopt(std::move(fd), ChildPath(parent.path(), name), info);
  return true;
}

// Makes the folder `name` in `parent` as the parent's owner. Someone else
// making it first is no failure: the walk then looks at what is there.
bool MakeLevel(const FolderHandle& parent, const std::string& name, mode_t mode) {
  const ActAsOwnerOf as_owner(parent);
  if (!as_owner.ok()) {
    return false;
  }
  const bool inherit = mode == kParentFolderMode;
  const mode_t parent_mode = parent.info().st_mode & 07777;
  if (mkdirat(parent.fd(), name.c_str(), inherit ? parent_mode : mode) != 0) {
    return errno == EEXIST;
  }
  // The owner and group of the parent, where this process may give them;
  // then the mode again, since a change of owner can clear set-id bits.
  // Neither is a failure: the folder exists and serves either way.
  if (fchownat(parent.fd(), name.c_str(), parent.info().st_uid, parent.info().st_gid,
               AT_SYMLINK_NOFOLLOW) != 0) {
    // Not this process's to give; the folder keeps its maker as owner.
  }
  if (inherit && fchmodat(parent.fd(), name.c_str(), parent_mode, AT_SYMLINK_NOFOLLOW) != 0) {
    // The mode asked for at mkdirat, less the umask, stands.
  }
  return true;
}

// Folders resolved by a full walk, kept open for the next walks of the same
// path: the preferences and log folders are walked on every operation.
// An entry is used only while the path still names the very folder held (a
// kernel look-up of the path finds the same device and inode), and only by
// a process of the same standing that resolved it; the descriptor used is
// always the one the full walk checked, so a link or swap made since can
// only make the entry miss.
class ResolvedFolders {
public:
  bool Find(const std::string& path, FolderHandle& out) {
    FolderHandle held;
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      const bool privileged = IsPrivileged();
      for (auto it = entries_.begin(); it != entries_.end(); ++it) {
        if (it->path == path && it->privileged == privileged) {
          held = it->handle;
          break;
        }
      }
    }
    struct stat named;
    struct stat info;
    if (!held.IsOpen() || stat(path.c_str(), &named) != 0 || fstat(held.fd(), &info) != 0 ||
        named.st_dev != info.st_dev || named.st_ino != info.st_ino) {
      return false;
    }
    // Owner and mode as they are now: they decide whose identity acts here.
    out = FolderHandle::Adopt(held, info);
    return true;
  }

  void Remember(const std::string& path, const FolderHandle& handle) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const bool privileged = IsPrivileged();
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
      if (it->path == path && it->privileged == privileged) {
        entries_.erase(it);
        break;
      }
    }
    if (entries_.size() >= kMaxEntries) {
      entries_.erase(entries_.begin());
    }
    entries_.push_back({path, privileged, handle});
  }

private:
  static constexpr size_t kMaxEntries = 8;
  struct Entry {
    std::string path;
    bool privileged;
    FolderHandle handle;
  };
  std::mutex mutex_;
  std::vector<Entry> entries_;
};

ResolvedFolders& Resolved() {
  static ResolvedFolders* folders = new ResolvedFolders; // used until the very end
  return *folders;
}

enum class WalkEnd {
  kFolder,     // the whole path is a folder
  kEntry,      // stop before the last component, whatever it is
  kEntryFollow // as kEntry, but a last component that is a link is followed
};

// The folder above `folder`, found by the kernel: after links on the way
// have been resolved, ".." means the real parent. Only one folder is held
// at a time, so a walk needs two descriptors however deep the path.
bool OpenParentFolder(const FolderHandle& folder, FolderHandle& out) {
  if (folder.path() == "/") {
    out = folder;
    return true;
  }
  ScopedFd fd(internal::OpenFolderDescriptor(folder.fd(), ".."));
  struct stat info;
  if (!fd.valid() || fstat(fd.get(), &info) != 0) {
    return false;
  }
  std::string path = folder.path().substr(0, folder.path().rfind('/'));
  out = FolderHandle::Adopt(std::move(fd), path.empty() ? "/" : path, info);
  return true;
}

std::string LastComponent(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// Walks `path` from "/". On success `folder` is the folder reached
// (kFolder) or the folder holding `leaf` (the entry modes). `create_mode`,
// when given, makes missing folders on the way.
bool FullWalk(const std::string& path, WalkEnd end, const mode_t* create_mode, FolderHandle& folder,
              std::string& leaf) {
  if (path.empty() || path.front() != '/') {
    return Fail(EINVAL);
  }
  FolderHandle current;
  if (!OpenRoot(current)) {
    return false;
  }
  std::deque<std::string> pending;
  AppendComponents(path, pending);
  int links = 0;
  int levels_made = 0;
  while (!pending.empty()) {
    const std::string name = pending.front();
    pending.pop_front();
    if (name == ".") {
      continue;
    }
    if (name == "..") {
      FolderHandle parent;
      if (!OpenParentFolder(current, parent)) {
        return false;
      }
      current = parent;
      continue;
    }
    const bool last = pending.empty();
    if (last && end == WalkEnd::kEntry) {
      folder = current;
      leaf = name;
      return true;
    }
    struct stat info;
    if (fstatat(current.fd(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT && last && end == WalkEnd::kEntryFollow) {
        folder = current;
        leaf = name; // missing: the caller finds out for itself
        return true;
      }
      if (errno == ENOENT && create_mode) {
        if (++levels_made > kMaxLevelsMade) {
          return Fail(EAGAIN);
        }
        if (!MakeLevel(current, name, *create_mode)) {
          return false;
        }
        pending.push_front(name);
        continue;
      }
      return false;
    }
    if (S_ISLNK(info.st_mode)) {
      std::string target;
      if (!MayFollowLink(current, info) || ++links > kMaxLinksFollowed) {
        return Fail(ELOOP);
      }
      if (!ReadLinkAt(current, name, target)) {
        return false;
      }
      if (!target.empty() && target.front() == '/' && !OpenRoot(current)) {
        return false;
      }
      std::deque<std::string> expanded;
      AppendComponents(target, expanded);
      pending.insert(pending.begin(), expanded.begin(), expanded.end());
      continue;
    }
    if (last && end == WalkEnd::kEntryFollow) {
      folder = current;
      leaf = name;
      return true;
    }
    FolderHandle next;
    if (!EnterFolder(current, name, info, next)) {
      return false;
    }
    current = next;
  }
  if (end == WalkEnd::kFolder) {
    folder = current;
    return true;
  }
  // The path named a folder by "/", "." or "..": the entry is that folder.
  if (current.path() == "/") {
    folder = current;
    leaf = ".";
    return true;
  }
  leaf = LastComponent(current.path());
  return OpenParentFolder(current, folder);
}

// The folder part of `path` and its last component, when the last
// component is an ordinary name.
bool SplitLast(const std::string& path, std::string& folder, std::string& name) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash + 1 >= path.size()) {
    return false;
  }
  name = path.substr(slash + 1);
  folder = slash == 0 ? "/" : path.substr(0, slash);
  return IsSingleComponent(name);
}

// FullWalk, taking the folder from ResolvedFolders where it may.
bool Walk(const std::string& path, WalkEnd end, const mode_t* create_mode, FolderHandle& folder,
          std::string& leaf) {
  if (path.empty() || path.front() != '/') {
    return Fail(EINVAL);
  }
  const bool entry = end != WalkEnd::kFolder;
  std::string folder_path = path;
  std::string name;
  if (entry && !SplitLast(path, folder_path, name)) {
    return FullWalk(path, end, create_mode, folder, leaf);
  }
  FolderHandle found;
  if (!Resolved().Find(folder_path, found)) {
    std::string unused;
    if (!FullWalk(folder_path, WalkEnd::kFolder, create_mode, found, unused)) {
      return false;
    }
    Resolved().Remember(folder_path, found);
  }
  // A last component that is a link to follow needs the full rules.
  struct stat info;
  if (end == WalkEnd::kEntryFollow &&
      fstatat(found.fd(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode)) {
    return FullWalk(path, end, create_mode, folder, leaf);
  }
  folder = found;
  leaf = name;
  return true;
}

int AccessFlags(FileAccess access) {
  switch (access) {
  case FileAccess::kRead:
    return O_RDONLY;
  case FileAccess::kReadWrite:
    return O_RDWR;
  case FileAccess::kWrite:
    return O_WRONLY;
  case FileAccess::kAppend:
    return O_WRONLY | O_APPEND;
  case FileAccess::kReadAppend:
    return O_RDWR | O_APPEND;
  }
  return O_RDONLY;
}

// Opens (and, as the options say, creates) `name`; `made` tells whether this
// call created it.
int OpenOrCreate(const FolderHandle& folder, const std::string& name, const OpenOptions& options,
                 bool& made) {
  // Non-blocking, so that a FIFO put where a file belongs returns at once
  // and is refused below instead of waiting for a writer.
  const int flags = AccessFlags(options.access) | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  made = false;
  if (options.create && options.exclusive) {
    made = true;
    return openat(folder.fd(), name.c_str(), flags | O_CREAT | O_EXCL, options.mode);
  }
  for (int round = 0; round < kMaxCreateRounds; ++round) {
    const int fd = openat(folder.fd(), name.c_str(), flags);
    if (fd >= 0 || errno != ENOENT || !options.create) {
      return fd;
    }
    const int created = openat(folder.fd(), name.c_str(), flags | O_CREAT | O_EXCL, options.mode);
    if (created >= 0 || errno != EEXIST) {
      made = created >= 0;
      return created;
    }
  }
  return -1;
}

} // namespace

FolderHandle FolderHandle::Adopt(ScopedFd fd, std::string path, const struct stat& info) {
  FolderHandle handle;
  handle.fd_ = std::make_shared<ScopedFd>(std::move(fd));
  handle.path_ = std::move(path);
  handle.info_ = info;
  return handle;
}

FolderHandle FolderHandle::Adopt(const FolderHandle& held, const struct stat& info) {
  FolderHandle handle = held;
  handle.info_ = info;
  return handle;
}

std::string EntryRef::Path() const {
  return name == "." ? folder.path() : ChildPath(folder.path(), name);
}

bool IsSingleComponent(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

bool OpenFolder(const std::string& path, FolderHandle& out) {
  std::string leaf;
  return Walk(path, WalkEnd::kFolder, nullptr, out, leaf);
}

bool ResolveEntry(const std::string& path, bool follow_final_link, EntryRef& out) {
  EntryRef entry;
  const WalkEnd end = follow_final_link ? WalkEnd::kEntryFollow : WalkEnd::kEntry;
  if (!Walk(path, end, nullptr, entry.folder, entry.name)) {
    return false;
  }
  out = entry;
  return true;
}

bool MakeFolders(const std::string& path, mode_t mode, FolderHandle* out) {
  FolderHandle folder;
  std::string leaf;
  if (!Walk(path, WalkEnd::kFolder, &mode, folder, leaf)) {
    return false;
  }
  if (out) {
    *out = folder;
  }
  return true;
}

bool OpenSubfolder(const FolderHandle& folder, const std::string& name, FolderHandle& out) {
  struct stat info;
  if (!IsSingleComponent(name)) {
    return Fail(EINVAL);
  }
  if (fstatat(folder.fd(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return false;
  }
  if (!S_ISDIR(info.st_mode)) {
    return Fail(S_ISLNK(info.st_mode) ? ELOOP : ENOTDIR);
  }
  return EnterFolder(folder, name, info, out);
}

bool OpenFileIn(const FolderHandle& folder, const std::string& name, const OpenOptions& options,
                ScopedFd& out, bool* created) {
  if (!IsSingleComponent(name)) {
    return Fail(EINVAL);
  }
  const bool privileged = IsPrivileged();
  const ActAsOwnerOf as_owner(folder);
  if (!as_owner.ok()) {
    return false;
  }
  bool made = false;
  ScopedFd fd(OpenOrCreate(folder, name, options, made));
  struct stat info;
  if (!fd.valid() || fstat(fd.get(), &info) != 0) {
    return false;
  }
  if (!S_ISREG(info.st_mode)) {
    return Fail(S_ISDIR(info.st_mode) ? EISDIR : EINVAL);
  }
  if (!made && !MayEnter(folder, info, privileged)) {
    return Fail(EPERM);
  }
  if (options.truncate && !made && ftruncate(fd.get(), 0) != 0) {
    return false;
  }
  const int flags = fcntl(fd.get(), F_GETFL);
  if (flags < 0 || fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
    return false;
  }
  if (created) {
    *created = made;
  }
  out = std::move(fd);
  return true;
}

bool OpenFileAt(const std::string& path, const OpenOptions& options, ScopedFd& out, bool* created) {
  EntryRef entry;
  return ResolveEntry(path, /*follow_final_link=*/false, entry) &&
         OpenFileIn(entry.folder, entry.name, options, out, created);
}

bool StatEntry(const FolderHandle& folder, const std::string& name, struct stat& info) {
  return fstatat(folder.fd(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

bool StatUncheckedPath(const std::string& path, struct stat& info) {
  return fstatat(AT_FDCWD, path.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

bool RemoveEntry(const FolderHandle& folder, const std::string& name, bool is_folder) {
  if (!IsSingleComponent(name)) {
    return Fail(EINVAL);
  }
  const ActAsOwnerOf as_owner(folder);
  return as_owner.ok() && unlinkat(folder.fd(), name.c_str(), is_folder ? AT_REMOVEDIR : 0) == 0;
}

bool RemoveRegularFile(const FolderHandle& folder, const std::string& name) {
  struct stat info;
  if (!StatEntry(folder, name, info)) {
    return false;
  }
  // Swapped for anything else between this look and the removal, the name is
  // at worst a link or a folder: unlinking removes the link itself, and
  // refuses a folder.
  if (!S_ISREG(info.st_mode)) {
    return Fail(EINVAL);
  }
  return RemoveEntry(folder, name, /*is_folder=*/false);
}

bool RenameEntry(const FolderHandle& folder, const std::string& from, const std::string& to) {
  if (!IsSingleComponent(from) || !IsSingleComponent(to)) {
    return Fail(EINVAL);
  }
  const ActAsOwnerOf as_owner(folder);
  return as_owner.ok() && renameat(folder.fd(), from.c_str(), folder.fd(), to.c_str()) == 0;
}

bool LinkEntry(const FolderHandle& folder, const std::string& from, const std::string& to) {
  if (!IsSingleComponent(from) || !IsSingleComponent(to)) {
    return Fail(EINVAL);
  }
  const ActAsOwnerOf as_owner(folder);
  return as_owner.ok() && linkat(folder.fd(), from.c_str(), folder.fd(), to.c_str(), 0) == 0;
}

bool ChangeMode(const FolderHandle& folder, const std::string& name, mode_t mode) {
  const ActAsOwnerOf as_owner(folder);
  return as_owner.ok() &&
         fchmodat(folder.fd(), name.c_str(), mode & 07777, AT_SYMLINK_NOFOLLOW) == 0;
}

bool ChangeOwner(const FolderHandle& folder, const std::string& name, uid_t uid, gid_t gid) {
  const ActAsOwnerOf as_owner(folder);
  return as_owner.ok() && fchownat(folder.fd(), name.c_str(), uid, gid, AT_SYMLINK_NOFOLLOW) == 0;
}

bool SetModificationTime(const FolderHandle& folder, const std::string& name,
                         uint64_t nanoseconds) {
  const struct timespec times[2] = {{0, UTIME_OMIT},
                                    {static_cast<time_t>(nanoseconds / 1000000000u),
                                     static_cast<long>(nanoseconds % 1000000000u)}};
  const ActAsOwnerOf as_owner(folder);
  return as_owner.ok() && utimensat(folder.fd(), name.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

bool ListFolder(const FolderHandle& folder, std::vector<std::string>& names) {
  const ActAsOwnerOf as_owner(folder);
  if (!as_owner.ok()) {
    return false;
  }
  const int fd = openat(folder.fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  DIR* dir = fdopendir(fd);
  if (!dir) {
    const int error = errno;
    close(fd);
    return Fail(error);
  }
  std::vector<std::string> found;
  errno = 0;
  while (const struct dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      found.push_back(name);
    }
  }
  const int error = errno;
  closedir(dir);
  if (error != 0) {
    return Fail(error);
  }
  names.swap(found);
  return true;
}

namespace {

// The start of every save temporary of `name`; the rest is "<pid>-<n>".
std::string SaveTemporaryPrefix(const std::string& name) {
  return "." + name + ".saving-";
}

// A temporary of this call's own: no other save, in this process or
// another, makes the same name.
std::string NewSaveTemporary(const std::string& name) {
  static std::atomic<unsigned long> saves{0};
  return SaveTemporaryPrefix(name) + std::to_string(getpid()) + "-" + std::to_string(saves++);
}

// The process that made a save temporary, or 0 when the name says none.
pid_t OwnerOfSaveTemporary(const std::string& entry, const std::string& prefix) {
  if (entry.compare(0, prefix.size(), prefix) != 0) {
    return 0;
  }
  const size_t dash = entry.find('-', prefix.size());
  const std::string digits = entry.substr(prefix.size(), dash - prefix.size());
  if (digits.empty() || digits.size() > 9 || dash == std::string::npos ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return 0;
  }
  return static_cast<pid_t>(std::stol(digits));
}

// Removes the temporaries of saves whose process is gone. A process of
// another user still counts as alive (kill answers EPERM).
void RemoveTemporariesOfDeadSaves(const FolderHandle& folder, const std::string& name) {
  std::vector<std::string> entries;
  if (!ListFolder(folder, entries)) {
    return;
  }
  const std::string prefix = SaveTemporaryPrefix(name);
  for (const std::string& entry : entries) {
    const pid_t owner = OwnerOfSaveTemporary(entry, prefix);
    if (owner > 0 && kill(owner, 0) != 0 && errno == ESRCH) {
      (void)RemoveRegularFile(folder, entry);
    }
  }
}

} // namespace

bool ReplaceFileContents(const FolderHandle& folder, const std::string& name,
                         const std::string& bytes, mode_t mode, DeadSaves dead_saves) {
  if (!IsSingleComponent(name)) {
    return Fail(EINVAL);
  }
  const std::string temporary = NewSaveTemporary(name);
  struct stat replaced;
  const bool replaces = StatEntry(folder, name, replaced) && S_ISREG(replaced.st_mode);
  if (dead_saves == DeadSaves::kRemove) {
    RemoveTemporariesOfDeadSaves(folder, name);
  }
  OpenOptions fresh;
  fresh.access = FileAccess::kWrite;
  fresh.create = true;
  fresh.exclusive = true;
  fresh.mode = mode;
  ScopedFd file;
  if (!OpenFileIn(folder, temporary, fresh, file)) {
    return false;
  }
  bool written = WriteAll(file.get(), bytes.data(), bytes.size());
  if (written && replaces) {
    // As the folder's owner: what the user could not give, the file does
    // not get. A group the owner is not in stays the owner's.
    const ActAsOwnerOf as_owner(folder);
    written = as_owner.ok();
    if (written) {
      if (fchown(file.get(), replaced.st_uid, replaced.st_gid) != 0) {
        // The group is one the owner is not in: the owner's own stays.
      }
      written = fchmod(file.get(), replaced.st_mode & 07777) == 0;
    }
  }
  written = written && fsync(file.get()) == 0;
  file.reset();
  if (!written || !RenameEntry(folder, temporary, name)) {
    const int error = errno;
    (void)RemoveRegularFile(folder, temporary);
    return Fail(error);
  }
  // The rename is only durable once the folder is; where the file system
  // cannot flush a folder, the new content stands all the same.
  const ScopedFd listing(openat(folder.fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (listing.valid()) {
    (void)fsync(listing.get());
  }
  return true;
}

bool ReadAll(int fd, std::string& out, size_t limit) {
  std::string content;
  char chunk[16384];
  while (true) {
    const ssize_t got = read(fd, chunk, sizeof chunk);
    if (got == 0) {
      break;
    }
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    if (content.size() + static_cast<size_t>(got) > limit) {
      return Fail(EFBIG);
    }
    content.append(chunk, static_cast<size_t>(got));
  }
  out.swap(content);
  return true;
}

bool WriteAll(int fd, const char* data, size_t size, size_t* written) {
  size_t done = 0;
  bool whole = true;
  while (done < size) {
    const ssize_t wrote = write(fd, data + done, size - done);
    if (wrote < 0) {
      if (errno == EINTR) {
        continue;
      }
      whole = false;
      break;
    }
    done += static_cast<size_t>(wrote);
  }
  if (written) {
    *written = done;
  }
  return whole;
}

} // namespace platform
