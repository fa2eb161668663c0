// File-system operations built on the catalog primitives, the same on every
// system.
#include "platform/fs_ops.h"

#include "platform/fs_catalog.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"
#include "platform/utf8.h"

#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace platform {

namespace {

constexpr uint16_t kDefaultFolderMode = 0775;
constexpr uint16_t kDefaultFileMode = 0664;

bool IsFolder(const FileRef& ref) {
  uint16_t flags = 0;
  return catalog::GetNodeFlags(ref, flags) == kNoErr && (flags & kNodeIsDirectoryMask) != 0;
}

OSErr Unlock(const FileRef& ref, uint16_t flags) {
  if ((flags & kNodeLockedMask) == 0) {
    return kNoErr;
  }
  return catalog::SetNodeFlags(ref, static_cast<uint16_t>(flags & ~kNodeLockedMask));
}

// Deletes everything inside `folder`, depth first, without recursion so that
// no tree is too deep for the stack. A locked item is unlocked before it is
// deleted; a locked folder before its contents are, since a locked folder's
// entries cannot be removed.
OSErr DeleteFolderContents(const FileRef& folder) {
  struct Level {
    FileRef folder;
    std::unique_ptr<catalog::FolderIterator> items;
  };
  std::vector<Level> levels;
  levels.push_back({folder, nullptr});
  OSErr err = catalog::OpenIterator(folder, levels.back().items);
  while (err == kNoErr && !levels.empty()) {
    FileRef item;
    uint16_t flags = 0;
    err = levels.back().items->Next(item, flags);
    if (err == kNoMoreItemsErr) {
      // This folder is empty now; delete it unless it is the top one, which
      // the caller deletes.
      const FileRef emptied = levels.back().folder;
      levels.pop_back();
      err = levels.empty() ? kNoMoreItemsErr : catalog::DeleteObject(emptied);
      continue;
    }
    if (err != kNoErr) {
      break;
    }
    err = Unlock(item, flags);
    if (err != kNoErr) {
      break;
    }
    if (flags & kNodeIsDirectoryMask) {
      levels.push_back({item, nullptr});
      err = catalog::OpenIterator(item, levels.back().items);
    } else {
      err = catalog::DeleteObject(item);
    }
  }
  return err == kNoMoreItemsErr ? kNoErr : err;
}

// A file the caller owns (or shares a group with) must carry the matching
// write bit before the caller may delete it; root may always. This looks at
// the file's own mode, not its folder's.
bool CallerMayDelete(const FileRef& ref) {
  const uid_t uid = geteuid();
  catalog::Permissions permissions;
  if (uid == 0 || catalog::GetPermissions(ref, permissions) != kNoErr) {
    return true;
  }
  if (uid == permissions.owner) {
    return (permissions.mode & S_IWUSR) != 0;
  }
  if (getegid() == permissions.group) {
    return (permissions.mode & S_IWGRP) != 0;
  }
  return true;
}

} // namespace

bool PathToFSRef(const std::string& path, FileRef& ref) {
  return catalog::Resolve(path, /*follow_final_link=*/true, ref) == kNoErr;
}

bool IsPathFSRefable(const std::string& path) {
  FileRef ref;
  return PathToFSRef(path, ref);
}

bool MakeDirectoryPath(const std::string& path) {
  // The root has no parent to make it in; a trailing "/" leaves no name.
  if (DirName(path) == path || BaseName(path).empty() || !IsValidUtf8(path)) {
    return false;
  }
  // Each folder made takes its parent's mode, owner and group; one that
  // already existed keeps its own. A file in the way fails.
  return MakeFolders(path, kParentFolderMode);
}

bool SetDefaultPermissions(const std::string& path) {
  FileRef ref;
  if (!PathToFSRef(path, ref)) {
    return false; // nothing to give a mode to
  }
  const uint16_t mode = IsFolder(ref) ? kDefaultFolderMode : kDefaultFileMode;
  return catalog::SetMode(ref, mode) == kNoErr;
}

bool AddPermissionBits(const std::string& path, uint16_t bits) {
  FileRef ref;
  catalog::Permissions permissions;
  if (!PathToFSRef(path, ref) || catalog::GetPermissions(ref, permissions) != kNoErr) {
    return false;
  }
  return catalog::SetMode(ref, static_cast<uint16_t>(permissions.mode | bits)) == kNoErr;
}

bool GetPermissionBits(const std::string& path, uint16_t& mode) {
  FileRef ref;
  catalog::Permissions permissions;
  if (!PathToFSRef(path, ref) || catalog::GetPermissions(ref, permissions) != kNoErr) {
    return false;
  }
  mode = permissions.mode;
  return true;
}

bool GetModificationDate(const std::string& path, uint64_t& date) {
  // One look at the item through the folder that holds it; only a link at
  // the end of the path takes the longer way that follows it. (Callers ask
  // this at every preferences read, to know whether the file changed.)
  EntryRef entry;
  struct stat info;
  if (!ResolveEntry(path, /*follow_final_link=*/false, entry) ||
      !StatEntry(entry.folder, entry.name, info)) {
    return false;
  }
  if (!S_ISLNK(info.st_mode)) {
    date = ModificationDateOf(info);
    return true;
  }
  FileRef ref;
  uint64_t modified = 0;
  if (!PathToFSRef(path, ref) || catalog::GetContentModificationDate(ref, modified) != kNoErr) {
    return false;
  }
  date = modified;
  return true;
}

bool SetModificationDate(const std::string& path, uint64_t date) {
  FileRef ref;
  return PathToFSRef(path, ref) && catalog::SetContentModificationDate(ref, date) == kNoErr;
}

bool DeletePath(const std::string& path) {
  // A final symbolic link is deleted itself, never the tree it points to.
  // Only an item that is not there counts as deleted; one that cannot be
  // looked at (a folder on the way not searchable) is a failure.
  FileRef ref;
  const OSErr resolved = catalog::Resolve(path, /*follow_final_link=*/false, ref);
  if (resolved == kFileNotFoundErr || resolved == kDirNotFoundErr) {
    return true;
  }
  if (resolved != kNoErr) {
    return false;
  }
  if (IsFolder(ref)) {
    return DeleteFolderTree(ref) == kNoErr;
  }
  if (CheckWritable(ref) != kNoErr || !CallerMayDelete(ref)) {
    return false;
  }
  return catalog::DeleteObject(ref) == kNoErr;
}

OSErr DeleteFolderTree(const FileRef& ref) {
  uint16_t flags = 0;
  OSErr err = catalog::GetNodeFlags(ref, flags);
  if (err != kNoErr) {
    return err;
  }
  if ((flags & kNodeIsDirectoryMask) == 0) {
    return kDirNotFoundErr;
  }
  // Unlocked before its contents are walked, not after as the catalog walk
  // on macOS may: an immutable folder's entries cannot be removed on Linux,
  // so unlocking last would leave every locked, non-empty folder in place.
  // The cost: a delete that fails part-way leaves that folder unlocked.
  err = Unlock(ref, flags);
  if (err == kNoErr) {
    err = DeleteFolderContents(ref);
  }
  if (err != kNoErr) {
    return err;
  }
  return catalog::DeleteObject(ref);
}

OSErr CheckWritable(const FileRef& ref) {
  uint16_t flags = 0;
  OSErr err = catalog::GetNodeFlags(ref, flags);
  if (err != kNoErr) {
    return err;
  }
  if (flags & kNodeLockedMask) {
    return kFileLockedErr;
  }
  uint16_t volume_flags = 0;
  err = catalog::GetVolumeFlags(ref, volume_flags);
  if (err != kNoErr) {
    return err;
  }
  if (volume_flags & catalog::kVolumeHardwareLockedMask) {
    return kHardwareVolumeLockedErr;
  }
  if (volume_flags & catalog::kVolumeSoftwareLockedMask) {
    return kVolumeLockedErr;
  }
  return kNoErr;
}

} // namespace platform
