#include "tools/oructl/oructl.h"

#include "platform/safe_fs.h"
#include "tools/oructl/ipc_state.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

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

std::string LogToRead(const oru_tools::CommandLine& line, int& status) {
  if (!line.Has("file")) {
    const std::string file = UpdaterLogPath();
    if (file.empty()) {
      status = Fail("no log file is configured");
    }
    return file;
  }
  const std::string file = line.Value("file");
  // Any other reason the log cannot be read is said by the reader (exit 2).
  platform::ScopedFd log;
  if (!platform::OpenFileAt(oru_tools::AbsolutePath(file), platform::OpenOptions(), log) &&
      errno == ENOENT) {
    std::fprintf(stderr, "oructl: cannot read the log %s: %s\n", file.c_str(),
                 std::strerror(errno));
    status = kNegative;
    return std::string();
  }
  return file;
}

} // namespace oructl
