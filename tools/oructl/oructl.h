// oructl: shows and drives the hand-over machinery of the updater (its named
// locks, rendezvous semaphores, preferences and logs) for the people who
// build, test and support it. Each subcommand lives in a file of its own.
#ifndef ORU_TOOLS_ORUCTL_ORUCTL_H
#define ORU_TOOLS_ORUCTL_ORUCTL_H

#include "tools/common/command_line.h"

#include <string>
#include <vector>

namespace oructl {

constexpr int kOk = 0;
constexpr int kNegative = 1; // a negative answer: not running, faults found
constexpr int kError = 2;    // usage or error

using Arguments = std::vector<std::string>;

// Each takes the words after its name; --help prints its manual.
int StatusCommand(const Arguments& arguments);
int ExplainCommand(const Arguments& arguments);
int DoctorCommand(const Arguments& arguments);
int PrefsCommand(const Arguments& arguments);
int UnlockPrefsCommand(const Arguments& arguments);
int LogCommand(const Arguments& arguments);
int LogSessionsCommand(const Arguments& arguments);
int LogWriteCommand(const Arguments& arguments);

// A one-line error on standard error; returns kError.
int Fail(const std::string& message);

// The start of every command: reads `arguments` with `options` (and
// --help, -h); --help prints `usage`. True when the command goes on;
// otherwise `status` is what to return.
bool BeginCommand(const Arguments& arguments, const char* usage,
                  std::vector<oru_tools::OptionSpec> options, oru_tools::CommandLine& line,
                  int& status);
// The error for words a command does not take.
int FailUnexpected(const oru_tools::CommandLine& line, const char* command);

// The log a command reads: the one named by --file, or the updater's. A
// log named on the command line must be there (a typo is no empty log):
// when it is not, says so with the system's reason, sets `status` to
// kNegative and gives an empty path; so does a log nobody configured, with
// kError. The updater's own log may be missing (nothing written yet).
std::string LogToRead(const oru_tools::CommandLine& line, int& status);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_ORUCTL_H
