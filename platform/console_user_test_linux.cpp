#include "platform/console_user.h"
#include "testing/child_process.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>

namespace platform {
namespace {

// In a child with a private /run: logind's seat0 state as `state`, or none.
// The child's exit status: 0 no console user, 1 the expected one, 2 another
// answer, 77 when the namespace could not be made.
int ConsoleUserWithSeatState(const char* state, uid_t expected) {
  return oru_testing::RunInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) ||
        mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0) {
      return 77;
    }
    if (state) {
      mkdir("/run/systemd", 0755);
      mkdir("/run/systemd/seats", 0755);
      oru_testing::WriteFile("/run/systemd/seats/seat0", state);
    }
    ConsoleUser user;
    if (!GetConsoleUser(user)) {
      return 0;
    }
    return user.uid == expected ? 1 : 2;
  });
}

TEST(ConsoleUserTest, IsTheActiveUserOfSeat0AsLogindReportsIt) {
  // uid 65534 ("nobody") is in the password database of every Debian.
  const int status =
      ConsoleUserWithSeatState("ACTIVE=c7\nACTIVE_UID=65534\nSESSIONS=c7\nUIDS=65534\n", 65534);
  if (status == 77) {
    GTEST_SKIP() << "needs a private mount namespace (root)";
  }
  EXPECT_EQ(status, 1);
}

TEST(ConsoleUserTest, NoSeat0StateMeansNoConsoleUser) {
  const int status = ConsoleUserWithSeatState(nullptr, 0);
  if (status == 77) {
    GTEST_SKIP() << "needs a private mount namespace (root)";
  }
  EXPECT_EQ(status, 0);
}

TEST(ConsoleUserTest, ASeatWithoutAnActiveUserHasNoConsoleUser) {
  const int status = ConsoleUserWithSeatState("SESSIONS=\nUIDS=\n", 0);
  if (status == 77) {
    GTEST_SKIP() << "needs a private mount namespace (root)";
  }
  EXPECT_EQ(status, 0);
}

} // namespace
} // namespace platform
