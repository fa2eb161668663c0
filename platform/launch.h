// Starting another application as a new, detached process.
#ifndef ORU_PLATFORM_LAUNCH_H
#define ORU_PLATFORM_LAUNCH_H

#include "platform/identity.h"

#include <string>

namespace platform {

// Starts the executable at `path` as a new instance in a session of its own,
// with its standard streams on /dev/null, argv[0] the path and then
// `arguments` in order (a null-terminated array, or null for none), and
// this process's environment. Does not wait for it. True when the
// executable was started; a path that does not exist gives false without
// trying.
//
// With `as_user`, the new process is that user from its first instruction:
// its supplementary groups, gid and then uid are set before the executable
// is loaded (which needs a privileged caller). A failure to switch fails the
// launch; the program never runs with more rights than asked.
bool LaunchApplication(const std::string& path, const char* const* arguments,
                       const Credentials* as_user = nullptr);

} // namespace platform

#endif // ORU_PLATFORM_LAUNCH_H
