// Named system-wide locks and rendezvous points between the launcher, the
// update installer and Zelto, each a System V set of one semaphore keyed by
// ftok("/tmp", id), where the id comes from the name.
//
// UpdaterLock: a single-holder lock, taken without waiting; the kernel gives
// it back when the holder dies. Its set is never removed.
// UpdaterLock_Wait: a rendezvous semaphore that starts at 0 and serves once.
#ifndef ORU_LOCKS_UPDATER_LOCK_H
#define ORU_LOCKS_UPDATER_LOCK_H

#include <boost/noncopyable.hpp>
#include <functional>
#include <stdexcept>
#include <string>
#include <sys/types.h>

class updater_init_failed : public std::runtime_error {
public:
  updater_init_failed() : std::runtime_error("Already running!") {}
};

// The project id of a name: the name itself when it is all decimal digits
// (UpdaterLock only), else the standard CRC-32 of its bytes.
int UpdaterLockProjectId(const std::string& name);
int UpdaterLockWaitProjectId(const std::string& name);
// ftok("/tmp", id); -1 when it cannot be made.
key_t UpdaterLockKey(const std::string& name);
key_t UpdaterLockWaitKey(const std::string& name);

class UpdaterLock : private boost::noncopyable {
public:
  // Takes the lock or throws updater_init_failed ("Already running!"). A key
  // or set that cannot be made leaves the caller believing it holds the lock.
  explicit UpdaterLock(const std::string& name);
  ~UpdaterLock();

  key_t key() const { return key_; }
  int semaphoreSet() const { return semaphoreSet_; }

private:
  key_t key_ = -1;
  int semaphoreSet_ = -1;
};

class UpdaterLock_Wait : private boost::noncopyable {
public:
  enum Error {
    kNoError = 0,
    kNoKey = 1,
    kNoSet = 2,
    kAcquireFailed = 3,
    kRemoveFailed = 4,
    kReleaseFailed = 5,
    kInitFailed = 6,
  };

  explicit UpdaterLock_Wait(const std::string& name);

  // Blocks until another process releases the semaphore or removes the set.
  bool Acquire();
  // The same, but stops waiting (false, kAcquireFailed) as soon as
  // `keep_waiting` says so; it is asked every `check_interval_ms`.
  bool AcquireWhile(const std::function<bool()>& keep_waiting, int check_interval_ms);
  bool Release();
  // Removes the set, waking every process still blocked on it.
  bool Remove();

  int error() const { return error_; }
  key_t key() const { return key_; }
  int semaphoreSet() const { return semaphoreSet_; }

private:
  int error_ = kNoError;
  key_t key_ = -1;
  int semaphoreSet_ = -1;
};

// Where the one-shot calls below write their lines: `message`, " = " and
// `value` at a log level. The program that owns the log installs it; this
// layer knows no log of its own. Without one the lines go nowhere.
using LockLogHook = void (*)(int level, const std::string& message, const std::string& value);
void SetLockLogHook(LockLogHook hook);

// One-shot rendezvous calls: log the wait (facade level 3), wait or post,
// then remove the set. Both return true whatever happened.
bool NuvexUpdaterSyncWaitLockAcquire(const std::string& name);
bool NuvexUpdaterSyncWaitLockAcquire(const std::string& name,
                                     const std::function<bool()>& keep_waiting);
bool NuvexUpdaterSyncWaitLockRelease(const std::string& name);

// True when another process holds the UpdaterLock of that name.
bool IsRunning(const std::string& name);

#endif // ORU_LOCKS_UPDATER_LOCK_H
