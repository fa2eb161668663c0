// An exclusive lock on an open file that belongs to that open file: the
// kernel gives it back when the last descriptor of it closes, so a process
// that dies never leaves it behind, and looking at it takes nothing.
#ifndef ORU_PLATFORM_OPEN_FILE_LOCK_H
#define ORU_PLATFORM_OPEN_FILE_LOCK_H

namespace platform {

// Takes the lock of the whole file without waiting; false (EAGAIN) while
// another open file holds it.
bool TryLockOpenFile(int fd);
bool UnlockOpenFile(int fd);

// Whether another open file holds the lock now; `fd` may be read-only, and
// nothing is taken.
bool IsOpenFileLocked(int fd, bool& locked);

} // namespace platform

#endif // ORU_PLATFORM_OPEN_FILE_LOCK_H
