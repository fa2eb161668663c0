// The console user of a Linux machine: the user of the active session on
// seat0, as systemd-logind reports it.
#if !defined(__linux__)
#error "console_user_linux.cpp is the Linux backend; macOS uses mac/console_user_mac.mm"
#endif

#include "platform/console_user.h"

#include <systemd/sd-login.h>

namespace platform {

bool GetConsoleUser(ConsoleUser& user) {
  uid_t uid = 0;
  return sd_seat_get_active("seat0", nullptr, &uid) >= 0 && LookUpUser(uid, user);
}

} // namespace platform
