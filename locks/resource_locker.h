// A system-wide lock on a named resource (a file path, say): the lock is the
// existence of a POSIX named semaphore derived from the name, created
// exclusively. A process that dies holding it leaves the name behind.
//
// Other programs sharing the lock leave such a name for ever, until a
// forced unlock. For a resource that is a file path, this one also keeps a
// holder record beside the file (see lock_holder.h) while it takes and
// holds the semaphore: the next process that wants the lock finds the
// record of a dead holder and removes its semaphore at once, and a look
// from outside can tell a live holder from a dead one.
#ifndef ORU_LOCKS_RESOURCE_LOCKER_H
#define ORU_LOCKS_RESOURCE_LOCKER_H

#include "locks/lock_holder.h"

#include <boost/noncopyable.hpp>
#include <memory>
#include <semaphore.h>
#include <stdexcept>
#include <string>

namespace esd {

class LockPolicyInterface : private boost::noncopyable {
public:
  virtual bool Lock() = 0;
  virtual bool Unlock(bool force) = 0;
  virtual bool IsLocked() = 0;
  virtual ~LockPolicyInterface() = default;
};

// Locking twice with one object.
class resource_lock_fail : public std::runtime_error {
public:
  resource_lock_fail(const std::string& resource, const char* message)
      : std::runtime_error(message), resource_(resource) {}
  const std::string& resource() const { return resource_; }

private:
  std::string resource_;
};

// Unlocking an object that locks nothing.
class no_resource_lock : public std::runtime_error {
public:
  no_resource_lock(const std::string& resource, const char* message)
      : std::runtime_error(message), resource_(resource) {}
  const std::string& resource() const { return resource_; }

private:
  std::string resource_;
};

class ResourceLocker : public LockPolicyInterface {
public:
  // Attempts a contended lock makes, and the pause after each failed one.
  static constexpr int kLockAttempts = 100;
  static constexpr unsigned kPauseMicroseconds = 10000;

  // `tag` is kept with the lock and not otherwise used.
  ResourceLocker(const std::string& resource, long tag);
  ~ResourceLocker() override;

  // True once held; false when another holder kept it through every attempt.
  // Throws resource_lock_fail when this object already holds it.
  bool Lock() override;
  // Removes the semaphore name. Without `force`, throws no_resource_lock when
  // this object holds nothing; with it, breaks a lock left by anyone.
  bool Unlock(bool force) override;
  bool IsLocked() override;

  // The semaphore name of a resource: base64 of the MD5 digest of its bytes,
  // always 24 characters.
  static std::string SemaphoreName(const std::string& resource);

  // Whether the resource's semaphore exists now; takes and changes nothing.
  static bool IsHeldByAnyone(const std::string& resource);

  class ResourceLockerPlat;

private:
  std::unique_ptr<ResourceLockerPlat> plat_;
};

class ResourceLocker::ResourceLockerPlat : private boost::noncopyable {
public:
  ResourceLockerPlat(const std::string& resource, long tag);
  ~ResourceLockerPlat();

  bool Lock();
  bool Unlock(bool force);
  bool IsLocked() const { return semaphore_ != SEM_FAILED; }
  long tag() const { return tag_; }
  const std::string& semaphore_name() const { return semaphoreName_; }

private:
  enum class Attempt { kTaken, kRecordBusy, kSemaphoreBusy };
  // The pause after an attempt that found another record keeper at work.
  static constexpr unsigned kRecordPauseMicroseconds = 1000;

  // One attempt: the holder record's lock (when there is a record), then
  // the semaphore.
  Attempt TryOnce();
  // Removes the semaphore of a holder whose record outlived it; false when
  // it cannot be removed (another user's), which leaves the record there.
  bool RecoverFromDeadHolder();
  // Gives back the record's lock, leaving no record.
  void ReleaseRecord();
  // Says once why the lock could not be had, when another user holds it.
  void ReportGivingUp() const;

  sem_t* semaphore_ = SEM_FAILED;
  std::string resource_;
  long tag_;
  std::string semaphoreName_;
  HolderRecordFile record_;
  bool recordLocked_ = false;
};

// A resource lock as seen from outside: whether its semaphore is there and
// who holds it. Stale only when the semaphore is there and the process
// recorded as its holder is dead.
struct LockView {
  bool present = false;
  HolderView holder;
  bool stale = false;
};
LockView LookAtLock(const std::string& resource);

// Where the locker sends its log lines (facade level, message); the program
// that owns a log installs it.
using ResourceLockerLogHook = void (*)(int level, const std::string& message);
void SetResourceLockerLogHook(ResourceLockerLogHook hook);

// The user that made a named semaphore; false when that cannot be told.
// See resource_locker_<system>.cpp.
bool SystemSemaphoreOwner(const std::string& system_name, uid_t& owner);

// The name a semaphore has on this system: names must start with "/" and
// may hold no other "/" on some systems. See resource_locker_<system>.cpp.
std::string SystemSemaphoreName(const std::string& semaphore_name);

} // namespace esd

#endif // ORU_LOCKS_RESOURCE_LOCKER_H
