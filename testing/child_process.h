// Running a piece of a test in a forked child process, for behaviour that
// depends on process-wide state (the effective user, exit paths).
#ifndef ORU_TESTING_CHILD_PROCESS_H
#define ORU_TESTING_CHILD_PROCESS_H

#include <functional>

namespace oru_testing {

// Forks, runs `body` in the child and ends the child with its result as exit
// status. Returns that status, or -1 when the child did not exit normally.
int RunInChild(const std::function<int()>& body);

} // namespace oru_testing

#endif // ORU_TESTING_CHILD_PROCESS_H
