#include "locks/updater_lock.h"

#include "platform/semaphore_wait.h"

#include <algorithm>
#include <boost/crc.hpp>
#include <cstdlib>
#include <errno.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <time.h>

namespace {

constexpr int kPermissions = 0666;
constexpr int kLogLevelLockLines = 3;

union SemaphoreArgument {
  int val;
  struct semid_ds* buf;
  unsigned short* array;
};

int Crc32(const std::string& name) {
  boost::crc_32_type crc;
  crc.process_bytes(name.data(), name.size());
  return static_cast<int>(crc.checksum());
}

bool AllDigits(const std::string& name) {
  return std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

key_t KeyFor(int project_id) {
  return ftok("/tmp", project_id);
}

// Opens the set of `key`, or creates it with `initial` as its value.
// Returns the set id, -1 when it cannot be had; `init_failed` tells a set
// that was made but could not be given its value.
int OpenOrCreate(key_t key, int initial, bool& init_failed) {
  init_failed = false;
  const int existing = semget(key, 1, kPermissions);
  if (existing >= 0) {
    return existing;
  }
  const int created = semget(key, 1, IPC_CREAT | kPermissions);
  if (created < 0) {
    return -1;
  }
  SemaphoreArgument value;
  value.val = initial;
  if (semctl(created, 0, SETVAL, value) != 0) {
    init_failed = true;
    return -1;
  }
  return created;
}

bool Operate(int set, short change, short flags, const struct timespec* timeout = nullptr) {
  struct sembuf operation = {0, change, flags};
  while (true) {
    if (platform::SemaphoreOperationWithin(set, operation, timeout) == 0) {
      return true;
    }
    if (errno != EINTR) {
      return false;
    }
  }
}

} // namespace

int UpdaterLockProjectId(const std::string& name) {
  return AllDigits(name) ? std::atoi(name.c_str()) : Crc32(name);
}

int UpdaterLockWaitProjectId(const std::string& name) {
  return Crc32(name);
}

key_t UpdaterLockKey(const std::string& name) {
  return KeyFor(UpdaterLockProjectId(name));
}

key_t UpdaterLockWaitKey(const std::string& name) {
  return KeyFor(UpdaterLockWaitProjectId(name));
}

UpdaterLock::UpdaterLock(const std::string& name) : key_(UpdaterLockKey(name)) {
  if (key_ == -1) {
    return;
  }
  bool init_failed = false;
  semaphoreSet_ = OpenOrCreate(key_, 1, init_failed);
  if (semaphoreSet_ == -1) {
    return;
  }
  if (!Operate(semaphoreSet_, -1, IPC_NOWAIT | SEM_UNDO)) {
    semaphoreSet_ = -1; // not ours to give back
    throw updater_init_failed();
  }
}

UpdaterLock::~UpdaterLock() {
  if (semaphoreSet_ != -1) {
    (void)Operate(semaphoreSet_, +1, SEM_UNDO); // the kernel's undo covers a failure
  }
}

UpdaterLock_Wait::UpdaterLock_Wait(const std::string& name) : key_(UpdaterLockWaitKey(name)) {
  if (key_ == -1) {
    error_ = kNoKey;
    return;
  }
  bool init_failed = false;
  semaphoreSet_ = OpenOrCreate(key_, 0, init_failed);
  if (semaphoreSet_ == -1) {
    error_ = init_failed ? kInitFailed : kNoSet;
  }
}

bool UpdaterLock_Wait::Acquire() {
  if (semaphoreSet_ == -1) {
    return true;
  }
  if (!Operate(semaphoreSet_, -1, SEM_UNDO)) {
    error_ = kAcquireFailed;
    return false;
  }
  return true;
}

bool UpdaterLock_Wait::AcquireWhile(const std::function<bool()>& keep_waiting,
                                    int check_interval_ms) {
  if (semaphoreSet_ == -1) {
    return true;
  }
  const struct timespec slice = {check_interval_ms / 1000,
                                 static_cast<long>(check_interval_ms % 1000) * 1000000L};
  while (true) {
    if (Operate(semaphoreSet_, -1, SEM_UNDO, &slice)) {
      return true;
    }
    if (errno != EAGAIN || !keep_waiting()) {
      error_ = kAcquireFailed;
      return false;
    }
  }
}

bool UpdaterLock_Wait::Release() {
  if (semaphoreSet_ == -1) {
    return true;
  }
  if (!Operate(semaphoreSet_, +1, SEM_UNDO)) {
    error_ = kReleaseFailed;
    return false;
  }
  return true;
}

bool UpdaterLock_Wait::Remove() {
  if (semaphoreSet_ == -1) {
    return true;
  }
  if (semctl(semaphoreSet_, 0, IPC_RMID) != 0) {
    semaphoreSet_ = -1;
    error_ = kRemoveFailed;
    return false;
  }
  semaphoreSet_ = -1;
  return true;
}

namespace {

LockLogHook lock_log_hook = nullptr;

// message + " = " + value, through whatever log the program installed.
void LogLine(int level, const std::string& message, const std::string& value) {
  if (lock_log_hook) {
    lock_log_hook(level, message, value);
  }
}

} // namespace

void SetLockLogHook(LockLogHook hook) {
  lock_log_hook = hook;
}

bool NuvexUpdaterSyncWaitLockAcquire(const std::string& name) {
  UpdaterLock_Wait wait(name);
  LogLine(kLogLevelLockLines, "NuvexUpdaterSyncWaitLockAcquire : Acquiring Lock ", name);
  wait.Acquire();
  wait.Remove();
  return true;
}

bool NuvexUpdaterSyncWaitLockAcquire(const std::string& name,
                                     const std::function<bool()>& keep_waiting) {
  constexpr int kCheckIntervalMs = 500;
  UpdaterLock_Wait wait(name);
  LogLine(kLogLevelLockLines, "NuvexUpdaterSyncWaitLockAcquire : Acquiring Lock ", name);
  wait.AcquireWhile(keep_waiting, kCheckIntervalMs);
  wait.Remove();
  return true;
}

bool NuvexUpdaterSyncWaitLockRelease(const std::string& name) {
  UpdaterLock_Wait wait(name);
  LogLine(kLogLevelLockLines, "NuvexUpdaterSyncWaitLockRelease : Releasing Lock ", name);
  wait.Release();
  wait.Remove();
  return true;
}

bool IsRunning(const std::string& name) {
  try {
    UpdaterLock probe(name);
  } catch (const updater_init_failed&) {
    return true;
  }
  return false;
}
