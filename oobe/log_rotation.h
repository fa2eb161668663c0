// Setting a log file aside when it has grown too large, and removing its
// old copies. Everything acts through the folder that holds the live file,
// so a user who can change that folder cannot redirect any of it.
#ifndef ORU_OOBE_LOG_ROTATION_H
#define ORU_OOBE_LOG_ROTATION_H

#include "platform/safe_fs.h"

#include <cstdint>
#include <string>

namespace oobe {

// The size at which a log is set aside, by the target's level threshold:
// 50 MiB for TRACE, 20 MiB for DEBUG, 10 MiB otherwise.
uint64_t RotationSizeLimit(int32_t level);

// Whether the keep-logs marker "asu.trace" of the log folder holds exactly
// "keeplogs" (and may be written).
bool KeepLogsMarked(const platform::FolderHandle& folder);

// Sets the live log aside: copies the file its path names now to
// "<stem> <local time>[_NN].<ext>" in its folder, first under a temporary
// name that takes the copy's name only once the copy is complete, and then
// empties that very file. The file copied and the file emptied are always
// one file, even when the log was deleted and made again since a writer
// opened it. A failed copy leaves the live log as it was. True when the
// copy has its name; otherwise `error`, when given, gets the system's error.
bool RotateLiveLog(const platform::EntryRef& live, int* error = nullptr);

// The name of a rotated copy of the live log `live_name` ("oruu.log"):
// "<stem> <time>[_NN].<ext>", where `time` is the local time as
// "%Y-%m-%d %H-%M-%S" and `suffix` 1-99 tells copies made in one second apart
// (0: none). Without an extension, "<stem> <time>[_NN]".
std::string RotatedCopyName(const std::string& live_name, const std::string& time, int suffix);

// Whether `name` is a rotated copy of `live_name`, as RotatedCopyName makes
// them: the stem, a blank, a time of that shape, an optional "_NN" and the
// same extension.
bool IsRotatedCopyName(const std::string& live_name, const std::string& name);

// Keeps the copies of the last `days` days, at most days + 1 files with the
// live log, and deletes the older copies and the log's own level markers
// ("<stem>.trace", "<stem>.debug"). Only regular files in the log folder
// whose names say they are one of these go; everything else stays.
void RemoveOldLogCopies(const platform::EntryRef& live, int days);

} // namespace oobe

#endif // ORU_OOBE_LOG_ROTATION_H
