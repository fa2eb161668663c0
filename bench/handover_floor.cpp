// The floor of the hand-over benchmark: a minimal program that blocks on the
// launcher's rendezvous semaphore and then starts the app it is given, the
// way the launcher starts Zelto. Usage: handover_floor APP ARGUMENT...
#include "launcher/handover.h"
#include "locks/updater_lock.h"
#include "platform/launch.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    return 2;
  }
  UpdaterLock_Wait rendezvous(kSyncOruLauncherWaitKey);
  rendezvous.Acquire();
  rendezvous.Remove();
  return platform::LaunchApplication(argv[1], argv + 2) ? 0 : 1;
}
