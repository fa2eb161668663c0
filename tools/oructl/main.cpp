// oructl COMMAND [ARGUMENTS]; see kUsage.
#include "tools/common/command_line.h"
#include "tools/oructl/oructl.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

const char kUsage[] =
    "Usage: oructl COMMAND [ARGUMENTS] [--json]\n"
    "\n"
    "Shows and drives the machinery of the updater's post-self-update hand-over.\n"
    "\n"
    "Commands:\n"
    "  status              the named locks, rendezvous semaphores, preferences\n"
    "                      lock and log file lock, and what their state means\n"
    "  explain             what the launcher would do now, without doing it\n"
    "  doctor              checks the known causes of a failed hand-over\n"
    "  prefs list|get|set|reset\n"
    "                      the updater preferences, typed by their key table\n"
    "  unlock-prefs --force\n"
    "                      breaks a stale preferences lock\n"
    "  log [-n N] [-f]     reads the updater log as records, from the end or as\n"
    "                      it grows\n"
    "  log sessions [--timeline]\n"
    "                      splits the log into launcher runs and their phases\n"
    "  log write [MESSAGE...]\n"
    "                      appends records to the log, as logger(1) does\n"
    "\n"
    "\"oructl COMMAND --help\" describes each command.\n"
    "\n"
    "Exit status: 0 ok; 1 a negative answer (such as faults found); 2 usage or\n"
    "error.\n";

} // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(kUsage, stderr);
    return oructl::kError;
  }
  const std::string command = argv[1];
  if (command == "--help" || command == "-h" || command == "help") {
    std::fputs(kUsage, stdout);
    return oructl::kOk;
  }
  if (command == "--version") {
    std::printf("oructl %s\n", oru_tools::ProjectVersion());
    return oructl::kOk;
  }
  using Command = int (*)(const oructl::Arguments&);
  static const std::pair<const char*, Command> kCommands[] = {
      {"status", &oructl::StatusCommand},
      {"explain", &oructl::ExplainCommand},
      {"doctor", &oructl::DoctorCommand},
      {"prefs", &oructl::PrefsCommand},
      {"unlock-prefs", &oructl::UnlockPrefsCommand},
      {"log", &oructl::LogCommand}};
  const oructl::Arguments arguments(argv + 2, argv + argc);
  std::vector<std::string> names;
  for (const auto& [name, run] : kCommands) {
    if (command == name) {
      return run(arguments);
    }
    names.push_back(name);
  }
  return oructl::Fail("unknown command '" + command + "'" + oru_tools::DidYouMean(command, names) +
                      " (see oructl --help)");
}
