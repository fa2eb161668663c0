// The console user of a Linux machine: the user of the active session on
// seat0, as systemd-logind reports it through libsystemd's sd-login.
//
// libsystemd is loaded when the console user is first asked for, not when
// the program starts (it brings compression and crypto libraries along), as
// systemd itself asks optional users of its library to link it; and only on
// a machine that has a seat0 state file for sd-login to read. Without that
// file sd-login answers "no such seat", so the answer is the same without
// loading anything (a build machine, a container, a server). Without
// libsystemd there is no console user.
#if !defined(__linux__)
#error "console_user_linux.cpp is the Linux backend; macOS uses mac/console_user_mac.mm"
#endif

#include "platform/console_user.h"

#include <atomic>
#include <dlfcn.h>
#include <systemd/sd-login.h>
#include <unistd.h>

namespace platform {

namespace {

using SeatGetActive = decltype(&sd_seat_get_active);

// Where logind keeps the state of seat0, which sd_seat_get_active reads.
constexpr char kSeat0State[] = "/run/systemd/seats/seat0";

// sd_seat_get_active, or null while there is no seat0 state to read. The
// library, once loaded, stays loaded.
SeatGetActive LoadedSeatGetActive() {
  static std::atomic<SeatGetActive> loaded{nullptr};
  SeatGetActive function = loaded.load();
  if (function || access(kSeat0State, F_OK) != 0) {
    return function;
  }
  void* library = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
  function =
      library ? reinterpret_cast<SeatGetActive>(dlsym(library, "sd_seat_get_active")) : nullptr;
  loaded.store(function);
  return function;
}

} // namespace

bool GetConsoleUser(ConsoleUser& user) {
  const SeatGetActive seat_get_active = LoadedSeatGetActive();
  uid_t uid = 0;
  return seat_get_active && seat_get_active("seat0", nullptr, &uid) >= 0 && LookUpUser(uid, user);
}

} // namespace platform
