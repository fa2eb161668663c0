#include "oobe/levels.h"

namespace oobe {

const char* LevelName(int32_t level) {
  switch (level) {
  case kLevelTrace:
    return "TRACE";
  case kLevelDebug:
    return "DEBUG";
  case kLevelInfo:
    return "INFO";
  case kLevelWarn:
    return "WARN";
  case kLevelError:
    return "ERROR";
  case kLevelFatal:
    return "FATAL";
  case kLevelNone:
    return "NONE";
  default:
    return "ALL";
  }
}

int32_t LevelOfName(std::string_view name) {
  for (const int32_t level :
       {kLevelTrace, kLevelDebug, kLevelInfo, kLevelWarn, kLevelError, kLevelFatal, kLevelNone}) {
    if (name == LevelName(level)) {
      return level;
    }
  }
  return name == "ALL" ? 0 : -1;
}

} // namespace oobe
