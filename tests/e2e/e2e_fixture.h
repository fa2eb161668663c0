// The base of every end-to-end test: private IPC and /dev/shm, so the fixed
// names of the hand-over touch nothing else on the machine, and a sandbox
// for HOME and the XDG folders.
#ifndef ORU_TESTS_E2E_E2E_FIXTURE_H
#define ORU_TESTS_E2E_E2E_FIXTURE_H

#include "launcher/handover.h"
#include "locks/updater_lock.h"
#include "testing/namespaces.h"
#include "testing/sandbox.h"
#include "tests/e2e/e2e_support.h"

#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <string>

namespace e2e {

class E2eTest : public ::testing::Test {
protected:
  void SetUp() override {
    if (!oru_testing::EnterPrivateIpcAndShm()) {
      GTEST_SKIP() << "needs private IPC and mount namespaces (root)";
    }
    sandbox_ = std::make_unique<oru_testing::Sandbox>();
  }

  // Where the launcher looks for Zelto in this sandbox.
  std::string ZeltoPath() const {
    return sandbox_->local_data() + "/Nuvex/OOBE/Zelto/core/Zelto.app/Contents/MacOS/Zelto";
  }

  std::unique_ptr<oru_testing::Sandbox> sandbox_;
};

// One hand-over while the caller plays the running installer (it holds the
// installer's lock): a launcher started, seen waiting for the post, posted,
// and ended. The launcher's exit status, or -1 when it never waited (it is
// then killed).
inline int HandOverOnce() {
  UpdaterLock_Wait rendezvous(kSyncOruLauncherWaitKey);
  oru_testing::ChildProgram launcher = Start(ORU_LAUNCHER_EXE);
  if (!WaitForWaiters(rendezvous.semaphoreSet(), 1)) {
    kill(launcher.pid, SIGKILL);
    Wait(launcher);
    return -1;
  }
  rendezvous.Release();
  return Wait(launcher);
}

// The installer's side while a launcher waits for its post: the fake Zelto
// in place, the installer's lock held, the rendezvous made, and a launcher
// started that blocks on it.
struct LauncherWaitingForTheInstaller {
  explicit LauncherWaitingForTheInstaller(const std::string& zelto_path)
      : zelto(zelto_path, ORU_FAKE_ZELTO), installer(kUpdateInstallerKey),
        rendezvous(kSyncOruLauncherWaitKey), launcher(Start(ORU_LAUNCHER_EXE)) {}

  // Whether the launcher is blocked on the rendezvous (waits at most 10 s).
  bool Waits() { return WaitForWaiters(rendezvous.semaphoreSet(), 1); }
  // Posts, and returns the launcher's exit status once it ends.
  int PostAndWait() {
    rendezvous.Release();
    return Wait(launcher);
  }

  FakeZelto zelto;
  UpdaterLock installer;
  UpdaterLock_Wait rendezvous;
  oru_testing::ChildProgram launcher;
};

} // namespace e2e

#endif // ORU_TESTS_E2E_E2E_FIXTURE_H
