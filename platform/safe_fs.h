// File-system work that a user cannot redirect.
//
// Every path is walked one component at a time from "/", holding a
// descriptor of each folder reached, so that what was checked is what is
// used. The rules of the walk:
// - The last component of a path is never followed when it is a symbolic
//   link; a file that is not a regular file (a FIFO, a device, a folder) is
//   refused before anything waits on it.
// - A privileged process (effective uid 0) follows a link on the way only
//   when root owns the link and the folder holding it and nobody else may
//   write to that folder (as /tmp -> /private/tmp on macOS); a link a user
//   could have made is refused. It also never passes from a folder owned by
//   a user into an item owned by somebody else, so a user cannot lead it
//   into root's files by a hard link or a moved folder.
// - An unprivileged process follows links on the way as the kernel would:
//   it can reach nothing its user could not.
// - A privileged process changes anything inside a folder owned by another
//   user as that user (see ScopedActAsUser): created items belong to the
//   user, and nothing is done there that the user could not do.
//
// Failures return false with errno saying why (ELOOP for a refused link,
// EPERM for a refused change of owner, EINVAL for an item of the wrong type
// or a path that is not absolute).
#ifndef ORU_PLATFORM_SAFE_FS_H
#define ORU_PLATFORM_SAFE_FS_H

#include "platform/scoped_fd.h"

#include <cstddef>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace platform {

// An open folder, reached by the rules above. Copies share the descriptor.
class FolderHandle {
public:
  bool IsOpen() const { return fd_ != nullptr; }
  int fd() const { return fd_ ? fd_->get() : -1; }
  // The path it was reached by (links on the way resolved).
  const std::string& path() const { return path_; }
  const struct stat& info() const { return info_; }
  uid_t owner() const { return info_.st_uid; }

  // Internal to platform/: adopts a descriptor checked to be a folder, or
  // shares the descriptor of `held` with fresher status.
  static FolderHandle Adopt(ScopedFd fd, std::string path, const struct stat& info);
  static FolderHandle Adopt(const FolderHandle& held, const struct stat& info);

private:
  std::shared_ptr<ScopedFd> fd_;
  std::string path_;
  struct stat info_ = {};
};

// A path split into the folder that holds an item and the item's name.
// For "/" itself the folder is "/" and the name ".".
struct EntryRef {
  FolderHandle folder;
  std::string name;
  // The folder's path joined with the name.
  std::string Path() const;
};

// The folder at an absolute path.
bool OpenFolder(const std::string& path, FolderHandle& out);

// The folder that holds the last component of `path`, and that component.
// With `follow_final_link` a last component that is a link (one the rules
// allow following) stands for the item it names.
bool ResolveEntry(const std::string& path, bool follow_final_link, EntryRef& out);

// Mode of a new folder: its parent's permission bits instead of a fixed mode.
constexpr mode_t kParentFolderMode = static_cast<mode_t>(-1);

// The folder at `path`, each missing level created with `mode` (less the
// umask) or, with kParentFolderMode, exactly its parent's permission bits.
// Every level made takes the owner and group of the folder it was made in
// (where the process may give them); existing levels are left as they are.
bool MakeFolders(const std::string& path, mode_t mode, FolderHandle* out = nullptr);

// The folder `name` inside `folder`.
bool OpenSubfolder(const FolderHandle& folder, const std::string& name, FolderHandle& out);

// kReadAppend: reading anywhere, and every write at the end.
enum class FileAccess { kRead, kReadWrite, kWrite, kAppend, kReadAppend };

struct OpenOptions {
  FileAccess access = FileAccess::kRead;
  // Make the file when it is missing.
  bool create = false;
  // The file must be new: an existing item (a dangling link too) fails.
  bool exclusive = false;
  // Empty an existing file (checked to be a regular file first).
  bool truncate = false;
  // Mode of a new file (less the umask).
  mode_t mode = 0666;
  // Give a new file exactly `mode`, whatever the umask, on its descriptor.
  bool exact_mode = false;
};

// A regular file inside `folder`, opened by the rules above. `created`, when
// given, tells whether this call made the file.
bool OpenFileIn(const FolderHandle& folder, const std::string& name, const OpenOptions& options,
                ScopedFd& out, bool* created = nullptr);

// OpenFileIn on the folder and name of an absolute path.
bool OpenFileAt(const std::string& path, const OpenOptions& options, ScopedFd& out,
                bool* created = nullptr);

// The status of an item inside `folder`, the item itself if it is a link.
bool StatEntry(const FolderHandle& folder, const std::string& name, struct stat& info);

// The one exception to the rules above: the status of whatever `path` names
// now (a link at its end not followed), in one look that may pass through
// links a user made on the way. Only for asking whether an item found the
// careful way is still there unchanged (same device, inode, size, times),
// never for choosing what to open, read or change.
bool StatUncheckedPath(const std::string& path, struct stat& info);

// Removes a file or link (never what it points to), or with `is_folder` an
// empty folder, from `folder`.
bool RemoveEntry(const FolderHandle& folder, const std::string& name, bool is_folder);

// Removes `name` only if it is a regular file at the moment of removal.
bool RemoveRegularFile(const FolderHandle& folder, const std::string& name);

// Renames an item within one folder, replacing what is at `to`.
bool RenameEntry(const FolderHandle& folder, const std::string& from, const std::string& to);

// Gives the file `from` of `folder` the second name `to` in the same folder;
// fails (EEXIST) when `to` is taken, whatever is there.
bool LinkEntry(const FolderHandle& folder, const std::string& from, const std::string& to);

// Changes an item's mode / owner and group inside `folder`, never through a
// link. A uid or gid of -1 leaves that one as it is.
bool ChangeMode(const FolderHandle& folder, const std::string& name, mode_t mode);
bool ChangeOwner(const FolderHandle& folder, const std::string& name, uid_t uid, gid_t gid);

// Sets an item's modification time (nanoseconds since 1970), never through a
// link.
bool SetModificationTime(const FolderHandle& folder, const std::string& name, uint64_t nanoseconds);

// The names in `folder`, without "." and "..", in the order the system
// gives them.
bool ListFolder(const FolderHandle& folder, std::vector<std::string>& names);

// Replaces the file `name` of `folder` by a file holding `bytes`, so that a
// reader sees the old content or the new, whole, even if the process dies
// at any instruction: the bytes go to a temporary beside it (created new,
// made to carry the mode, owner and group of the file it replaces) and are
// flushed to disk; the temporary is renamed over the name (which replaces a
// link or FIFO there too, never what it points to) and the folder flushed.
// A new file gets `mode`, less the umask. Each call has a temporary of its
// own, ".<name>.saving-<pid>-<n>", so saves that nothing serialises never
// take each other's. With `dead_saves` kRemove, temporaries beside it whose
// process is gone (left by a save that died) are removed first, and those
// of live processes stay; that costs a look through the folder, which a
// caller saving the same file again and again needs only once.
enum class DeadSaves { kRemove, kLeave };
bool ReplaceFileContents(const FolderHandle& folder, const std::string& name,
                         const std::string& bytes, mode_t mode,
                         DeadSaves dead_saves = DeadSaves::kRemove);

// Reads the whole file, or fails when it holds more than `limit` bytes.
bool ReadAll(int fd, std::string& out, size_t limit);

// Writes all of `size` bytes, resuming after a partial write. `written`,
// when given, gets how many bytes went out, also when it fails part way.
bool WriteAll(int fd, const char* data, size_t size, size_t* written = nullptr);

// A name that stands for one item of a folder: not empty, not "." or "..",
// no "/" and no NUL.
bool IsSingleComponent(const std::string& name);

} // namespace platform

#endif // ORU_PLATFORM_SAFE_FS_H
