// A system-wide lock on a named resource (a file path, say): the lock is the
// existence of a POSIX named semaphore derived from the name, created
// exclusively. A process that dies holding it leaves the name behind; only a
// forced unlock removes it.
#ifndef ORU_LOCKS_RESOURCE_LOCKER_H
#define ORU_LOCKS_RESOURCE_LOCKER_H

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
  sem_t* semaphore_ = SEM_FAILED;
  std::string resource_;
  long tag_;
  std::string semaphoreName_;
};

// The name a semaphore has on this system: names must start with "/" and
// may hold no other "/" on some systems. See resource_locker_<system>.cpp.
std::string SystemSemaphoreName(const std::string& semaphore_name);

} // namespace esd

#endif // ORU_LOCKS_RESOURCE_LOCKER_H
