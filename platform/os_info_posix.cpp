#include "platform/os_info.h"

#include <sys/utsname.h>

namespace platform {

bool GetMachineBitness(uint32_t& bits) {
  struct utsname name;
  if (uname(&name) != 0) {
    return false;
  }
  bits = BitnessForMachine(name.machine);
  return true;
}

} // namespace platform
