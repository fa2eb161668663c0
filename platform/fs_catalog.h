// The catalog primitives that the file-system operations are built from:
// item flags, permissions, dates, volume flags, folder creation, deletion
// and folder iteration, each answering with an OSErr. Every primitive acts
// on an item through the folder descriptor its FileRef holds, never by
// path. Internal to platform/.
#ifndef ORU_PLATFORM_FS_CATALOG_H
#define ORU_PLATFORM_FS_CATALOG_H

#include "platform/fs_ops.h"

#include <cstdint>
#include <memory>
#include <string>

namespace platform {
namespace catalog {

constexpr uint16_t kVolumeHardwareLockedMask = 0x0080;
constexpr uint16_t kVolumeSoftwareLockedMask = 0x8000;

struct Permissions {
  uint32_t owner = 0;
  uint32_t group = 0;
  uint16_t mode = 0;
};

OSErr OSErrFromErrno(int error);

// Resolves a path to an existing item. With `follow_final_link` a final
// symbolic link stands for its target; without it, for the link itself.
OSErr Resolve(const std::string& path, bool follow_final_link, FileRef& ref);

OSErr GetNodeFlags(const FileRef& ref, uint16_t& flags);
// Only the locked bit can be changed.
OSErr SetNodeFlags(const FileRef& ref, uint16_t flags);
OSErr GetPermissions(const FileRef& ref, Permissions& permissions);
OSErr SetMode(const FileRef& ref, uint16_t mode);
OSErr SetOwnership(const FileRef& ref, uint32_t owner, uint32_t group);
OSErr GetContentModificationDate(const FileRef& ref, uint64_t& date);
OSErr SetContentModificationDate(const FileRef& ref, uint64_t date);
OSErr GetVolumeFlags(const FileRef& ref, uint16_t& flags);
OSErr DeleteObject(const FileRef& ref);

// Hands out a folder's items one at a time; Next gives kNoMoreItemsErr at
// the end.
class FolderIterator {
public:
  virtual ~FolderIterator() = default;
  virtual OSErr Next(FileRef& item, uint16_t& flags) = 0;
};

OSErr OpenIterator(const FileRef& folder, std::unique_ptr<FolderIterator>& iterator);

// The immutable ("locked") attribute of a file or folder; a system or file
// system without one reports every item as unlocked.
OSErr ReadLocked(const FileRef& ref, bool& locked);
OSErr WriteLocked(const FileRef& ref, bool locked);

} // namespace catalog
} // namespace platform

#endif // ORU_PLATFORM_FS_CATALOG_H
