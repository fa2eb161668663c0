// Starting another application as a new, detached process.
#ifndef ORU_PLATFORM_LAUNCH_H
#define ORU_PLATFORM_LAUNCH_H

#include <string>

namespace platform {

// Starts the executable at `path` as a new instance in a session of its own,
// with its standard streams on /dev/null, argv[0] the path and then
// `arguments` in order (a null-terminated array, or null for none). Does
// not wait for it. True when the executable was started; a path that does
// not exist gives false without trying.
bool LaunchApplication(const std::string& path, const char* const* arguments);

} // namespace platform

#endif // ORU_PLATFORM_LAUNCH_H
