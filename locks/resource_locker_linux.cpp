// Linux semaphore names are "/name" with no further "/". Base64 uses "/",
// so it becomes "_", which base64 never uses: distinct names stay distinct.
#if !defined(__linux__)
#error "resource_locker_linux.cpp is the Linux backend; macOS uses the names as they are"
#endif

#include "locks/resource_locker.h"

#include <algorithm>

namespace esd {

std::string SystemSemaphoreName(const std::string& semaphore_name) {
  std::string name = "/" + semaphore_name;
  std::replace(name.begin() + 1, name.end(), '/', '_');
  return name;
}

} // namespace esd
