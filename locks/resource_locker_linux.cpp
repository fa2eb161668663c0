// Linux semaphore names are "/name" with no further "/". Base64 uses "/",
// so it becomes "_", which base64 never uses: distinct names stay distinct.
#if !defined(__linux__)
#error "resource_locker_linux.cpp is the Linux backend; macOS uses the names as they are"
#endif

#include "locks/resource_locker.h"
#include "platform/safe_fs.h"

#include <algorithm>

namespace esd {

std::string SystemSemaphoreName(const std::string& semaphore_name) {
  std::string name = "/" + semaphore_name;
  std::replace(name.begin() + 1, name.end(), '/', '_');
  return name;
}

// glibc keeps the semaphore "/name" as the file "sem.name" in /dev/shm,
// owned by the user that made it.
bool SystemSemaphoreOwner(const std::string& system_name, uid_t& owner) {
  platform::FolderHandle shared_memory;
  struct stat info;
  if (system_name.size() < 2 || !platform::OpenFolder("/dev/shm", shared_memory) ||
      !platform::StatEntry(shared_memory, "sem." + system_name.substr(1), info)) {
    return false;
  }
  owner = info.st_uid;
  return true;
}

} // namespace esd
