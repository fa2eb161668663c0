// Running parts of a test in other processes: a forked function, or another
// program with a pipe from its standard output.
#ifndef ORU_TESTING_CHILD_PROCESS_H
#define ORU_TESTING_CHILD_PROCESS_H

#include <cstdio>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace oru_testing {

// Forks, runs `body` in the child and ends the child with its result as exit
// status. Returns that status, or -1 when the child did not exit normally.
int RunInChild(const std::function<int()>& body);

// The id of a child that has exited and been reaped: a process that is
// gone (until the system hands the id out again).
pid_t PidOfAnExitedProcess();

struct ChildProgram {
  pid_t pid = -1;
  FILE* output = nullptr; // the child's standard output
};

// Starts `program` (argv[0]) with `arguments` and this process's
// environment. Standard input is `input`, or inherited when -1; `close_in_child`
// is closed in the child (the write end of a start gate, say), if not -1;
// standard error goes to `errors`, or is inherited when -1.
ChildProgram StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                          int input = -1, int close_in_child = -1, int errors = -1);

// Closes the output and waits: the exit status, or minus the signal.
int FinishProgram(ChildProgram& child);

// Everything the child writes until it closes its standard output.
std::string ReadAll(ChildProgram& child);

// A file in memory to give children as their standard error, and what they
// wrote to it.
class ErrorCapture {
public:
  ErrorCapture();
  ~ErrorCapture();
  ErrorCapture(const ErrorCapture&) = delete;
  ErrorCapture& operator=(const ErrorCapture&) = delete;

  int fd() const { return fd_; }
  std::string Text() const;
  // How many lines written so far contain `words`.
  int LinesContaining(const std::string& words) const;

private:
  int fd_;
};

// A descriptor that becomes readable when process `pid` ends, so that a
// wait on many of them sleeps until one of them is done; -1 where the
// system has none (the waiter then looks every few milliseconds).
int OpenProcessDescriptor(pid_t pid);

// Runs `lanes` sequences of short-lived programs side by side: each lane
// starts its next program as soon as its previous one ends, `per_lane`
// programs in all. `arguments_of(lane, index)` gives each one's arguments.
// Their standard input and output are /dev/null. Returns how many exited
// with a status other than 0.
int RunInLanes(const std::string& program, int lanes, int per_lane,
               const std::function<std::vector<std::string>(int lane, int index)>& arguments_of);

} // namespace oru_testing

#endif // ORU_TESTING_CHILD_PROCESS_H
