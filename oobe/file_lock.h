// The cross-process lock of one log file: a System V set of two semaphores
// keyed by ftok(log path, 11). Semaphore 0 counts the processes using the
// file; semaphore 1 is the lock itself. The kernel undoes both for a
// process that dies, so a killed writer neither keeps the lock nor keeps
// the set alive; the last process to detach removes the set.
#ifndef ORU_OOBE_FILE_LOCK_H
#define ORU_OOBE_FILE_LOCK_H

#include <string>

namespace oobe {

constexpr int kFileLockProjectId = 11;

struct FileLockHandle {
  int semaphoreSet = -1;
};

// Looks the set up (creating it if missing) and attaches to it. On failure
// the handle stays -1 and every later lock fails.
bool CreateFileLock(FileLockHandle& handle, const std::string& log_path);
// Blocks until the lock is free.
bool LockFile(FileLockHandle& handle);
bool UnlockFile(FileLockHandle& handle);

// How long a writer waits for a log file's lock. Any local user can take
// the lock (the set is open to all) and a holder can be stopped, so no
// writer waits longer: the record is then appended without the lock, with
// the one O_APPEND write that keeps it whole.
constexpr int kLockWaitMilliseconds = 2000;

enum class LockOutcome {
  kTaken,     // held now; give it back with UnlockFile
  kTimedOut,  // this call waited the whole bound and another process held it throughout
  kStillHeld, // not waited for: an earlier wait ran out and the lock was not taken since
  kFailed,    // no set to lock
};

// Takes the lock, waiting at most kLockWaitMilliseconds. After a wait on a
// set has run out, this process does not wait on that set again until it
// has taken the lock once more: a stuck holder delays a process once, not
// at every record.
LockOutcome LockFileBounded(FileLockHandle& handle);

// Holds a log file's lock (when given a handle) for its lifetime.
class ScopedFileLock {
public:
  explicit ScopedFileLock(FileLockHandle* handle)
      : handle_(handle), outcome_(handle ? LockFileBounded(*handle) : LockOutcome::kFailed) {}
  ~ScopedFileLock() {
    if (outcome_ == LockOutcome::kTaken) {
      UnlockFile(*handle_);
    }
  }
  ScopedFileLock(const ScopedFileLock&) = delete;
  ScopedFileLock& operator=(const ScopedFileLock&) = delete;

  LockOutcome outcome() const { return outcome_; }

private:
  FileLockHandle* handle_;
  LockOutcome outcome_;
};
// Detaches; the last process out removes the set. The handle becomes -1.
void DetachFileLock(FileLockHandle& handle);
// Detaches a handle that is still attached; a handle of 0 or -1 is left
// alone.
void DestroyFileLock(FileLockHandle& handle);

// The set's key for a log path, or -1 when the path does not exist.
int FileLockKey(const std::string& log_path);

} // namespace oobe

#endif // ORU_OOBE_FILE_LOCK_H
