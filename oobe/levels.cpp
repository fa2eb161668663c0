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

} // namespace oobe
