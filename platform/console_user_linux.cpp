// The console user of a Linux machine: the user of the active session on
// seat0, as systemd-logind reports it.
#if !defined(__linux__)
#error "console_user_linux.cpp is the Linux backend; macOS uses mac/console_user_mac.mm"
#endif

#include "platform/console_user.h"

#include <pwd.h>
#include <systemd/sd-login.h>
#include <vector>

namespace platform {

bool GetConsoleUser(ConsoleUser& user) {
  uid_t uid = 0;
  if (sd_seat_get_active("seat0", nullptr, &uid) < 0) {
    return false;
  }
  std::vector<char> buffer(16384);
  struct passwd entry;
  struct passwd* found = nullptr;
  if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found) {
    return false;
  }
  user.uid = found->pw_uid;
  user.gid = found->pw_gid;
  user.name = found->pw_name ? found->pw_name : "";
  user.home = found->pw_dir ? found->pw_dir : "";
  return true;
}

} // namespace platform
