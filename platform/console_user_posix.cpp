#include "platform/console_user.h"

#include <cstdlib>
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
    // The saved set-user-ID makes this succeed whenever the switch itself
    // did. Should it fail all the same, going on under the user's identity
    // would be worse than stopping.
    if (seteuid(saved_uid_) != 0) {
      std::abort();
    }
  }
}

} // namespace platform
