// Runs a program to the end and keeps what it printed.
#ifndef ORU_TOOLS_COMMON_RUN_PROGRAM_H
#define ORU_TOOLS_COMMON_RUN_PROGRAM_H

#include <string>
#include <vector>

namespace oru_tools {

struct ProgramRun {
  bool started = false;
  int exitStatus = -1; // or minus the signal that ended it
  std::string output;  // standard output
  std::string errors;  // standard error
};

// `program` with `arguments` (argv[0] not included), standard input empty,
// the environment as this process has it.
ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& arguments);

// This program's own executable, or "" when it cannot be told.
std::string OwnExecutable();

} // namespace oru_tools

#endif // ORU_TOOLS_COMMON_RUN_PROGRAM_H
