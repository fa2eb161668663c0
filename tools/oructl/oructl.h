// oructl: shows and drives the hand-over machinery of the updater (its named
// locks, rendezvous semaphores, preferences and logs) for the people who
// build, test and support it. Each subcommand lives in a file of its own.
#ifndef ORU_TOOLS_ORUCTL_ORUCTL_H
#define ORU_TOOLS_ORUCTL_ORUCTL_H

#include "tools/common/command_table.h"

#include <cstdint>
#include <string>
#include <vector>

namespace oructl {

constexpr int kOk = 0;
constexpr int kNegative = 1; // a negative answer: not running, faults found
constexpr int kError = 2;    // usage or error

// Each command's entry in the tool's table: its name, texts, options and
// what runs it.
oru_tools::Command StatusCommand();
oru_tools::Command ExplainCommand();
oru_tools::Command DoctorCommand();
std::vector<oru_tools::Command> PrefsCommands(); // the group and its actions
oru_tools::Command UnlockPrefsCommand();
oru_tools::Command LogCommand();
oru_tools::Command LogSessionsCommand();
oru_tools::Command LogWriteCommand();
oru_tools::Command BugReportCommand();

// The tool's own sections of its --help: files, environment, examples.
std::vector<oru_tools::HelpSection> HelpSections();

// A one-line error on standard error; returns kError.
int Fail(const std::string& message);

// Options that several commands take, said the same way by each.
oru_tools::Option JsonOption();
oru_tools::Option FileOption();
// --file, repeatable, and --all: the logs a view of several logs reads.
oru_tools::Option ManyFilesOption();
oru_tools::Option AllLogsOption();
oru_tools::Option NoPagerOption();
oru_tools::Option LevelFilterOption();
oru_tools::Completer TimeCompleter();

// The log a command reads: the one named by --file, or the updater's. A
// log named on the command line must be there (a typo is no empty log):
// when it is not, says so with the system's reason, sets `status` to
// kNegative and gives an empty path; so does a log nobody configured, with
// kError. The updater's own log may be missing (nothing written yet).
std::string LogToRead(const oru_tools::CommandLine& line, int& status);
// The logs a view reads: those named with --file and, with --all, every
// log the preferences name; the updater's alone when neither is given.
// Empty, with `status` set, when a log named with --file is not there.
std::vector<std::string> LogsToRead(const oru_tools::CommandLine& line, int& status);
// Reads the time option `name` (as log --since takes it) into `seconds`
// and sets `has`; true when it is absent. False, with the mistake said, for
// a value that is no time.
bool ReadTimeOption(const oru_tools::CommandLine& line, const char* name, bool& has,
                    int64_t& seconds);
// Whether a log named on the command line is there; when it is not, says
// so with the system's reason and sets `status` to kNegative.
bool NamedLogIsThere(const std::string& file, int& status);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_ORUCTL_H
