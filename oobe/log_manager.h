// The process-wide registry of log targets by name, and the one call that
// sends a line to every target registered under a name.
#ifndef ORU_OOBE_LOG_MANAGER_H
#define ORU_OOBE_LOG_MANAGER_H

#include "oobe/log_target.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace oobe {

// Used from one thread, like the rest of the program; the registry has no
// lock of its own.
class LogManager {
public:
  static LogManager& Instance();

  // Opens the target and registers it under its name; registering the same
  // target under the same name again adds nothing. False for a null target
  // or one that does not open.
  bool AddTarget(LogTargetBase* target);
  // Unregisters the target from the name; the last registration closes it.
  bool RemoveTarget(const std::string& name, LogTargetBase* target);
  // Writes the message (not a format) to every target under `name`, in
  // registration order, under each file's lock. `time_ms` 0 means now.
  void Write(const std::string& name, int32_t level, const char* f1, const char* f2, const char* f3,
             const char* f4, const char* f5, const char* f6, const char* message, int64_t time_ms);

  std::vector<LogTargetBase*> TargetsNamed(const std::string& name) const;

private:
  LogManager() = default;
  // At process end, closes every target still registered, so that each
  // file's lock set is left by this process and removed by the last one out.
  ~LogManager();

  std::map<std::string, std::vector<LogTargetBase*>> registry_;
};

} // namespace oobe

#endif // ORU_OOBE_LOG_MANAGER_H
