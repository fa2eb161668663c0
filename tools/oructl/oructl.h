// oructl: shows and drives the hand-over machinery of the updater (its named
// locks, rendezvous semaphores, preferences and logs) for the people who
// build, test and support it. Each subcommand lives in a file of its own.
#ifndef ORU_TOOLS_ORUCTL_ORUCTL_H
#define ORU_TOOLS_ORUCTL_ORUCTL_H

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

// A one-line error on standard error; returns kError.
int Fail(const std::string& message);

// True when `flag` is among the arguments; it is taken out.
bool TakeFlag(Arguments& arguments, const std::string& flag);
// The value after `option` ("--level WARN"), taken out with it; false when
// the option is absent. A missing value is an error (kError in `status`).
bool TakeOption(Arguments& arguments, const std::string& option, std::string& value, int& status);

// The start of every command: --help prints `usage`, --json is taken out,
// and, unless `more_allowed`, any other word is an error. True when the
// command goes on; otherwise `status` is what to return.
bool BeginCommand(Arguments& arguments, const char* usage, bool more_allowed, bool& json,
                  int& status);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_ORUCTL_H
