// File-system operations on the catalog level: folder trees that inherit
// their parent's permissions and owner, permission bits, modification dates,
// and deletion of files and whole trees that unlocks locked items on the way.
//
// Results that carry a reason use the macOS `OSErr` numbers on every system,
// so that callers and logs read the same everywhere.
#ifndef ORU_PLATFORM_FS_OPS_H
#define ORU_PLATFORM_FS_OPS_H

#include "platform/safe_fs.h"

#include <cstdint>
#include <string>
#include <sys/stat.h>

namespace platform {

using OSErr = int16_t;

constexpr OSErr kNoErr = 0;
constexpr OSErr kDirFullErr = -33;
constexpr OSErr kDiskFullErr = -34;
constexpr OSErr kIOErr = -36;
constexpr OSErr kBadNameErr = -37;
constexpr OSErr kFileNotFoundErr = -43;
constexpr OSErr kHardwareVolumeLockedErr = -44;
constexpr OSErr kFileLockedErr = -45;
constexpr OSErr kVolumeLockedErr = -46;
constexpr OSErr kFileBusyErr = -47;
constexpr OSErr kDuplicateNameErr = -48;
constexpr OSErr kParamErr = -50;
constexpr OSErr kPermErr = -54;
constexpr OSErr kMemFullErr = -108;
constexpr OSErr kDirNotFoundErr = -120;
constexpr OSErr kNoMoreItemsErr = -1417;
constexpr OSErr kAccessDeniedErr = -5000;

// Node flags of an item.
constexpr uint16_t kNodeLockedMask = 0x0001;
constexpr uint16_t kNodeIsDirectoryMask = 0x0010;

// A resolved, existing item: the folder holding it, kept open, and its name
// there, so that every later operation acts on what was resolved.
struct FileRef {
  EntryRef entry;
  // Where it was found, links on the way resolved.
  std::string path;
};

// Resolves a path (following a final symbolic link where the rules of
// safe_fs.h allow it) to an existing item.
bool PathToFSRef(const std::string& path, FileRef& ref);

// True if the path resolves, that is, the item exists.
bool IsPathFSRefable(const std::string& path);

// Creates the folder and its missing parents; each new folder takes its
// parent's mode, owner and group. An existing folder succeeds; "/" and a
// name without any "/" fail.
bool MakeDirectoryPath(const std::string& path);

// chmod to 0775 for a folder and 0664 for anything else (also a missing path).
bool SetDefaultPermissions(const std::string& path);

// ORs `bits` into the item's permission mode.
bool AddPermissionBits(const std::string& path, uint16_t bits);

// The item's 16-bit mode as the catalog reports it (type and permission bits).
bool GetPermissionBits(const std::string& path, uint16_t& mode);

// The content-modification date. The unit (nanoseconds since 1970 here) is
// only promised to grow with every later modification.
bool GetModificationDate(const std::string& path, uint64_t& date);

// The content-modification date carried by a status already taken (of an
// open file, say), in the unit of GetModificationDate.
uint64_t ModificationDateOf(const struct stat& info);

// Sets the content-modification date (same unit as GetModificationDate).
// Needs the right to set a file's times (its owner, or root).
bool SetModificationDate(const std::string& path, uint64_t date);

// Copies the bytes of file `from` into `to` (created, or truncated), the
// fastest way the system offers. True when every byte was copied.
bool CopyFileContents(const std::string& from, const std::string& to);

// Copies what is left to read of `from` to the position of `to`, in the
// kernel where the file systems allow it (which may also share the blocks).
bool CopyFileData(int from, int to);

// Deletes a file, or a folder with everything in it. A missing path succeeds.
bool DeletePath(const std::string& path);

// Deletes a folder and its contents, unlocking locked items.
OSErr DeleteFolderTree(const FileRef& ref);

// kNoErr, or why the item cannot be changed: kFileLockedErr for a locked
// item, kHardwareVolumeLockedErr / kVolumeLockedErr for a locked volume.
OSErr CheckWritable(const FileRef& ref);

} // namespace platform

#endif // ORU_PLATFORM_FS_OPS_H
