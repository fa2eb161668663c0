// The base of every end-to-end test: private IPC and /dev/shm, so the fixed
// names of the hand-over touch nothing else on the machine, and a sandbox
// for HOME and the XDG folders.
#ifndef ORU_TESTS_E2E_E2E_FIXTURE_H
#define ORU_TESTS_E2E_E2E_FIXTURE_H

#include "testing/namespaces.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <memory>
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

} // namespace e2e

#endif // ORU_TESTS_E2E_E2E_FIXTURE_H
