#include "oobe/file_lock.h"

#include "platform/semaphore_wait.h"

#include <algorithm>
#include <errno.h>
#include <mutex>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/types.h>
#include <time.h>
#include <vector>

namespace oobe {

namespace {

constexpr unsigned short kUsersSemaphore = 0;
constexpr unsigned short kLockSemaphore = 1;

union SemaphoreArgument {
  int val;
  struct semid_ds* buf;
  unsigned short* array;
};

bool Operate(int set, unsigned short semaphore, short change, short flags) {
  struct sembuf operation = {semaphore, change, flags};
  while (semop(set, &operation, 1) != 0) {
    if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

int LookUpOrCreate(key_t key) {
  const int existing = semget(key, 0, 0);
  if (existing >= 0) {
    return existing;
  }
  // Exclusive, so that only the creator sets the lock free: a process that
  // lost the race to create it uses the set as the winner made it.
  const int created = semget(key, 2, IPC_CREAT | IPC_EXCL | 0666);
  if (created < 0) {
    return errno == EEXIST ? semget(key, 0, 0) : -1;
  }
  SemaphoreArgument one;
  one.val = 1;
  if (semctl(created, kLockSemaphore, SETVAL, one) != 0) {
    return -1;
  }
  return created;
}

// Sets whose last wait ran out in this process.
std::mutex stuck_mutex;
std::vector<int> stuck_sets;

bool IsStuck(int set) {
  const std::lock_guard<std::mutex> guard(stuck_mutex);
  return std::find(stuck_sets.begin(), stuck_sets.end(), set) != stuck_sets.end();
}

void MarkStuck(int set, bool stuck) {
  const std::lock_guard<std::mutex> guard(stuck_mutex);
  const auto found = std::find(stuck_sets.begin(), stuck_sets.end(), set);
  if (stuck && found == stuck_sets.end()) {
    stuck_sets.push_back(set);
  } else if (!stuck && found != stuck_sets.end()) {
    stuck_sets.erase(found);
  }
}

} // namespace

LockOutcome LockFileBounded(FileLockHandle& handle) {
  const int set = handle.semaphoreSet;
  if (set == -1) {
    return LockOutcome::kFailed;
  }
  const bool stuck = IsStuck(set);
  struct sembuf take = {kLockSemaphore, -1, SEM_UNDO};
  struct timespec bound = {kLockWaitMilliseconds / 1000, (kLockWaitMilliseconds % 1000) * 1000000L};
  if (stuck) {
    take.sem_flg |= IPC_NOWAIT;
  }
  // A signal may cut the wait short; the bound then starts again, which at
  // worst doubles it.
  while (platform::SemaphoreOperationWithin(set, take, stuck ? nullptr : &bound) != 0) {
    if (errno == EAGAIN) {
      MarkStuck(set, true);
      return stuck ? LockOutcome::kStillHeld : LockOutcome::kTimedOut;
    }
    if (errno != EINTR) {
      return LockOutcome::kFailed;
    }
  }
  if (stuck) {
    MarkStuck(set, false);
  }
  return LockOutcome::kTaken;
}

int FileLockKey(const std::string& log_path) {
  return static_cast<int>(ftok(log_path.c_str(), kFileLockProjectId));
}

bool CreateFileLock(FileLockHandle& handle, const std::string& log_path) {
  if (handle.semaphoreSet == -1) {
    const key_t key = ftok(log_path.c_str(), kFileLockProjectId);
    handle.semaphoreSet = key == -1 ? -1 : LookUpOrCreate(key);
    if (handle.semaphoreSet == -1) {
      return false;
    }
  }
  // SEM_UNDO: a process killed while attached no longer counts.
  if (!Operate(handle.semaphoreSet, kUsersSemaphore, +1, IPC_NOWAIT | SEM_UNDO)) {
    handle.semaphoreSet = -1;
    return false;
  }
  return true;
}

bool LockFile(FileLockHandle& handle) {
  return handle.semaphoreSet != -1 && Operate(handle.semaphoreSet, kLockSemaphore, -1, SEM_UNDO);
}

bool UnlockFile(FileLockHandle& handle) {
  return handle.semaphoreSet != -1 && Operate(handle.semaphoreSet, kLockSemaphore, +1, SEM_UNDO);
}

void DetachFileLock(FileLockHandle& handle) {
  const int set = handle.semaphoreSet;
  handle.semaphoreSet = -1;
  if (set == -1 || !Operate(set, kUsersSemaphore, -1, IPC_NOWAIT | SEM_UNDO)) {
    return;
  }
  if (semctl(set, kUsersSemaphore, GETVAL) == 0) {
    semctl(set, 0, IPC_RMID);
  }
}

void DestroyFileLock(FileLockHandle& handle) {
  if (handle.semaphoreSet == -1 || handle.semaphoreSet == 0) {
    return;
  }
  DetachFileLock(handle);
}

} // namespace oobe
