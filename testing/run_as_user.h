// Runs a piece of a test as another user, in a child process: what a user
// cannot do is only seen without root's powers.
#ifndef ORU_TESTING_RUN_AS_USER_H
#define ORU_TESTING_RUN_AS_USER_H

#include <functional>
#include <string>
#include <sys/types.h>

namespace oru_testing {

// A uid (and gid) that no account of the machine uses.
constexpr uid_t kOtherUid = 4242;

// Runs `body` in a forked child and returns its result (or 128 + signal).
// Under root the child first becomes `uid` (groups and gid too) and the
// tree at `owned_tree` is given to that user beforehand; otherwise the
// child runs as the test's own user, and `owned_tree` is left as it is.
int RunAsUser(uid_t uid, const std::string& owned_tree, const std::function<int()>& body);

} // namespace oru_testing

#endif // ORU_TESTING_RUN_AS_USER_H
