#include "locks/resource_locker.h"

#include "locks/base64.h"
#include "locks/md5.h"

#include <chrono>
#include <errno.h>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <unistd.h>

namespace esd {

namespace {

ResourceLockerLogHook log_hook = nullptr;

void Log(int level, const std::string& message) {
  if (log_hook) {
    log_hook(level, message);
  }
}

// The semaphores whose last wait in this process ran out on a holder that
// keeps no record. One that never lets go (it died holding, say) would
// otherwise cost every later lock of the process the whole bound again; so
// the next lock of such a name tries once while that holder is there, and
// waits again once the lock has been taken since or a holder that keeps a
// record is at it.
class WaitedOutLocks {
public:
  bool Contains(const std::string& name) {
    std::lock_guard<std::mutex> guard(mutex_);
    return names_.count(name) != 0;
  }
  void Note(const std::string& name, bool waited_out) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (waited_out) {
      names_.insert(name);
    } else {
      names_.erase(name);
    }
  }

private:
  std::mutex mutex_;
  std::set<std::string> names_;
};

WaitedOutLocks& WaitedOut() {
  static WaitedOutLocks locks;
  return locks;
}

} // namespace

void SetResourceLockerLogHook(ResourceLockerLogHook hook) {
  log_hook = hook;
}

std::string ResourceLocker::SemaphoreName(const std::string& resource) {
  oru_locks::Md5Digest digest{};
  // A digest the crypto library cannot make leaves all zeros: every such
  // resource then shares one lock, which is safe, only coarser.
  (void)oru_locks::ComputeMd5(resource, digest);
  return Base64Encode(digest.data(), digest.size());
}

ResourceLocker::ResourceLocker(const std::string& resource, long tag)
    : plat_(std::make_unique<ResourceLockerPlat>(resource, tag)) {}

ResourceLocker::~ResourceLocker() = default;

bool ResourceLocker::Lock() {
  return plat_->Lock();
}

bool ResourceLocker::Unlock(bool force) {
  return plat_->Unlock(force);
}

bool ResourceLocker::IsLocked() {
  return plat_->IsLocked();
}

bool ResourceLocker::IsHeldByAnyone(const std::string& resource) {
  const std::string name = SystemSemaphoreName(SemaphoreName(resource));
  sem_t* semaphore = sem_open(name.c_str(), 0);
  if (semaphore == SEM_FAILED) {
    return errno == EACCES; // there, but another user's
  }
  sem_close(semaphore);
  return true;
}

LockView LookAtLock(const std::string& resource) {
  LockView view;
  view.holder = LookAtHolder(resource);
  // After the record: a semaphore seen after a dead holder's record was
  // seen is that holder's, since nothing that keeps records takes the lock
  // without first clearing a dead record.
  view.present = ResourceLocker::IsHeldByAnyone(resource);
  view.stale = view.present && view.holder.record == HolderView::Record::kDead;
  return view;
}

ResourceLocker::ResourceLockerPlat::ResourceLockerPlat(const std::string& resource, long tag)
    : resource_(resource), tag_(tag),
      semaphoreName_(SystemSemaphoreName(ResourceLocker::SemaphoreName(resource))) {}

ResourceLocker::ResourceLockerPlat::~ResourceLockerPlat() {
  if (IsLocked()) {
    (void)Unlock(false); // nothing to report to from a destructor
  }
}

bool ResourceLocker::ResourceLockerPlat::Lock() {
  if (IsLocked()) {
    throw resource_lock_fail(resource_, "A resource is already being locked");
  }
  if (!record_.IsOpen()) {
    (void)record_.Open(resource_); // without a record the lock works as it always has
  }
  // Other programs sharing the lock try 100 times, 10 ms apart. The wait
  // here has the same bound, about a second, but while another process
  // that keeps a record is at the lock, it looks again every millisecond:
  // the lock then passes on at once instead of lying idle for most of a
  // pause. A name whose last wait in this process ran out is tried once
  // (see WaitedOutLocks).
  const bool waited_out_before = WaitedOut().Contains(semaphoreName_);
  const auto deadline =
      std::chrono::steady_clock::now() +
      std::chrono::microseconds(ResourceLocker::kLockAttempts * ResourceLocker::kPauseMicroseconds);
  Attempt attempt = Attempt::kSemaphoreBusy;
  for (;;) {
    attempt = TryOnce();
    if (attempt == Attempt::kTaken) {
      WaitedOut().Note(semaphoreName_, false);
      return true;
    }
    // Still held by a holder that keeps no record: tried once.
    if ((waited_out_before && attempt == Attempt::kSemaphoreBusy) ||
        std::chrono::steady_clock::now() >= deadline) {
      break;
    }
    usleep(attempt == Attempt::kRecordBusy ? kRecordPauseMicroseconds
                                           : ResourceLocker::kPauseMicroseconds);
  }
  // A holder that keeps a record is alive and lets go in its time: only a
  // whole wait that ran out on one without a record counts.
  const bool waited_out = attempt == Attempt::kSemaphoreBusy;
  if (!waited_out_before || !waited_out) {
    WaitedOut().Note(semaphoreName_, waited_out);
    ReportGivingUp();
  }
  return false;
}

ResourceLocker::ResourceLockerPlat::Attempt ResourceLocker::ResourceLockerPlat::TryOnce() {
  if (record_.IsOpen()) {
    if (!record_.TryLock()) {
      return Attempt::kRecordBusy; // another process keeping a record is at the lock
    }
    recordLocked_ = true;
    if (!record_.Read().empty() && !RecoverFromDeadHolder()) {
      ReleaseRecord();
      return Attempt::kSemaphoreBusy;
    }
    // Written before the semaphore is made, so that a holder killed right
    // after making it has a record already.
    (void)record_.WriteThisProcess();
  }
  sem_t* created = sem_open(semaphoreName_.c_str(), O_CREAT | O_EXCL, 0700, 1);
  if (created != SEM_FAILED) {
    semaphore_ = created;
    return Attempt::kTaken;
  }
  // A program that keeps no record holds the semaphore.
  if (recordLocked_) {
    (void)record_.Clear();
    ReleaseRecord();
  }
  return Attempt::kSemaphoreBusy;
}

bool ResourceLocker::ResourceLockerPlat::RecoverFromDeadHolder() {
  const HolderRecord dead = record_.Read();
  // While the record's lock is held here, no process that keeps records can
  // be taking or holding the semaphore: one that is there was left by the
  // process the record names.
  if (sem_unlink(semaphoreName_.c_str()) != 0 && errno != ENOENT) {
    return false;
  }
  (void)record_.Clear();
  Log(2, "Resource lock of " + resource_ + " recovered from process " + std::to_string(dead.pid) +
             ", which died holding it");
  return true;
}

void ResourceLocker::ResourceLockerPlat::ReleaseRecord() {
  record_.Unlock();
  recordLocked_ = false;
}

void ResourceLocker::ResourceLockerPlat::ReportGivingUp() const {
  uid_t owner = 0;
  if (SystemSemaphoreOwner(semaphoreName_, owner) && owner != geteuid()) {
    Log(2, "Resource lock of " + resource_ + " is held by a process of uid " +
               std::to_string(owner) + "; gave up waiting for it");
  }
}

bool ResourceLocker::ResourceLockerPlat::Unlock(bool force) {
  if (!IsLocked() && !force) {
    throw no_resource_lock("Resource unknown", "This object is not locking an item");
  }
  if (force && !IsLocked() && !record_.IsOpen()) {
    (void)record_.Open(resource_);
  }
  // A forced unlock clears a dead holder's record with its semaphore, so
  // that the record cannot later be taken to stand for a semaphore made
  // since by another program.
  const bool clears_record = !recordLocked_ && !IsLocked() && record_.IsOpen() && record_.TryLock();
  if (clears_record) {
    recordLocked_ = true;
  }
  if (sem_unlink(semaphoreName_.c_str()) != 0) {
    if (clears_record) {
      ReleaseRecord();
    }
    return false;
  }
  if (IsLocked()) {
    sem_close(semaphore_);
    semaphore_ = SEM_FAILED;
  }
  if (recordLocked_) {
    (void)record_.Clear();
    ReleaseRecord();
  }
  return true;
}

} // namespace esd
