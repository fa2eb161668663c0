#include "tools/common/json_output.h"

#include <cstdio>

namespace oru_tools {

std::string JsonText(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void PrintJson(const Json& value) {
  const std::string text = JsonText(value) + "\n";
  std::fwrite(text.data(), 1, text.size(), stdout);
}

} // namespace oru_tools
