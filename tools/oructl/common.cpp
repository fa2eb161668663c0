#include "tools/oructl/oructl.h"

#include <cstdio>

namespace oructl {

int Fail(const std::string& message) {
  std::fprintf(stderr, "oructl: %s\n", message.c_str());
  return kError;
}

bool BeginCommand(const Arguments& arguments, const char* usage,
                  std::vector<oru_tools::OptionSpec> options, oru_tools::CommandLine& line,
                  int& status) {
  line = oru_tools::CommandLine(std::move(options));
  if (!line.Parse(arguments)) {
    status = Fail(line.error() + " (see --help)");
    return false;
  }
  if (line.Has("help")) {
    std::fputs(usage, stdout);
    status = kOk;
    return false;
  }
  return true;
}

int FailUnexpected(const oru_tools::CommandLine& line, const char* command) {
  return Fail("unexpected '" + line.words().front() + "' (see oructl " + command + " --help)");
}

} // namespace oructl
