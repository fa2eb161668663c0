#include "tools/oructl/oructl.h"

#include <algorithm>
#include <cstdio>

namespace oructl {

int Fail(const std::string& message) {
  std::fprintf(stderr, "oructl: %s\n", message.c_str());
  return kError;
}

bool TakeFlag(Arguments& arguments, const std::string& flag) {
  const auto found = std::find(arguments.begin(), arguments.end(), flag);
  if (found == arguments.end()) {
    return false;
  }
  arguments.erase(found);
  return true;
}

bool TakeOption(Arguments& arguments, const std::string& option, std::string& value, int& status) {
  const auto found = std::find(arguments.begin(), arguments.end(), option);
  if (found == arguments.end()) {
    return false;
  }
  if (found + 1 == arguments.end()) {
    status = Fail(option + " needs a value");
    arguments.erase(found);
    return false;
  }
  value = *(found + 1);
  arguments.erase(found, found + 2);
  return true;
}

bool BeginCommand(Arguments& arguments, const char* usage, bool more_allowed, bool& json,
                  int& status) {
  if (TakeFlag(arguments, "--help")) {
    std::fputs(usage, stdout);
    status = kOk;
    return false;
  }
  json = TakeFlag(arguments, "--json");
  if (!more_allowed && !arguments.empty()) {
    status = Fail("unexpected '" + arguments[0] + "' (see --help)");
    return false;
  }
  return true;
}

} // namespace oructl
