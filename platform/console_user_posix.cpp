#include "platform/console_user.h"

#include <unistd.h>

namespace platform {

ScopedEffectiveUser::ScopedEffectiveUser(uid_t uid) : saved_uid_(geteuid()) {
  if (uid == saved_uid_) {
    active_ = true;
    return;
  }
  switched_ = seteuid(uid) == 0;
  active_ = switched_;
}

ScopedEffectiveUser::~ScopedEffectiveUser() {
  if (switched_) {
    // Nothing sensible can be done if this fails; the saved set-user-ID
    // makes it succeed whenever the switch itself did.
    (void)seteuid(saved_uid_);
  }
}

} // namespace platform
