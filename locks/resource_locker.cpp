#include "locks/resource_locker.h"

#include "locks/base64.h"
#include "locks/md5.h"

#include <fcntl.h>
#include <unistd.h>

namespace esd {

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
  for (int attempt = 0; attempt < ResourceLocker::kLockAttempts; ++attempt) {
    sem_t* created = sem_open(semaphoreName_.c_str(), O_CREAT | O_EXCL, 0700, 1);
    if (created != SEM_FAILED) {
      semaphore_ = created;
      return true;
    }
    usleep(ResourceLocker::kPauseMicroseconds);
  }
  return false;
}

bool ResourceLocker::ResourceLockerPlat::Unlock(bool force) {
  if (!IsLocked() && !force) {
    throw no_resource_lock("Resource unknown", "This object is not locking an item");
  }
  if (sem_unlink(semaphoreName_.c_str()) != 0) {
    return false;
  }
  if (IsLocked()) {
    sem_close(semaphore_);
    semaphore_ = SEM_FAILED;
  }
  return true;
}

} // namespace esd
