// The level scale of the logging library.
#ifndef ORU_OOBE_LEVELS_H
#define ORU_OOBE_LEVELS_H

#include <cstdint>
#include <string_view>

namespace oobe {

constexpr int32_t kLevelTrace = 10;
constexpr int32_t kLevelDebug = 20;
constexpr int32_t kLevelInfo = 30;
constexpr int32_t kLevelWarn = 40;
constexpr int32_t kLevelError = 50;
constexpr int32_t kLevelFatal = 60;
constexpr int32_t kLevelNone = 70;

// "TRACE" ... "NONE" for the values above, "ALL" for any other value.
const char* LevelName(int32_t level);

// The level a name stands for: the values above, 0 for "ALL", -1 for a
// name LevelName never gives.
int32_t LevelOfName(std::string_view name);

} // namespace oobe

#endif // ORU_OOBE_LEVELS_H
