#include "platform/paths.h"
#include "tools/oructl/oructl.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

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

std::string AbsolutePath(const std::string& path) {
  if (path.empty() || path[0] == '/') {
    return path;
  }
  char* here = getcwd(nullptr, 0);
  const std::string absolute = here ? platform::JoinPath(here, path) : path;
  std::free(here);
  return absolute;
}

int FailUnexpected(const oru_tools::CommandLine& line, const char* command) {
  return Fail("unexpected '" + line.words().front() + "' (see oructl " + command + " --help)");
}

} // namespace oructl
