// The user logged in at the machine's console, and acting as that user.
#ifndef ORU_PLATFORM_CONSOLE_USER_H
#define ORU_PLATFORM_CONSOLE_USER_H

#include "platform/identity.h"

#include <sys/types.h>

namespace platform {

// The console user's password-database entry.
using ConsoleUser = UserRecord;

// False when nobody is logged in at the console.
bool GetConsoleUser(ConsoleUser& user);

// Switches the effective user id to `uid` for its lifetime when it differs
// from the current one, and restores the saved id on destruction (on every
// path). `active()` tells whether the process now acts as `uid`.
class ScopedEffectiveUser {
public:
  explicit ScopedEffectiveUser(uid_t uid);
  ~ScopedEffectiveUser();
  ScopedEffectiveUser(const ScopedEffectiveUser&) = delete;
  ScopedEffectiveUser& operator=(const ScopedEffectiveUser&) = delete;

  bool active() const { return active_; }

private:
  uid_t saved_uid_;
  bool switched_ = false;
  bool active_ = false;
};

} // namespace platform

#endif // ORU_PLATFORM_CONSOLE_USER_H
