// A hand-over drawn as Chrome trace-event JSON, which Perfetto and
// chrome://tracing open: one track for the installer, one for the launcher
// and one for Zelto, and a span for each step that happened.
#ifndef ORU_TOOLS_COMMON_HANDOVER_TRACE_H
#define ORU_TOOLS_COMMON_HANDOVER_TRACE_H

#include "tools/common/json_output.h"

#include <string>
#include <sys/types.h>

namespace oru_tools {

// When each step happened, in CLOCK_MONOTONIC nanoseconds; 0 for a step that
// did not happen.
struct HandOverStamps {
  long long lockTaken = 0;       // the installer's lock was held from here
  long long lockReleased = 0;    // to here
  long long launcherStarted = 0; // the launcher was started
  long long launcherBlocked = 0; // it was seen waiting for the post
  long long waitEnded = 0;       // the post, or the installer gone
  long long launcherExited = 0;
  long long zeltoStarted = 0; // Zelto's first instruction, as Zelto reported it
  pid_t installerPid = 0;
  pid_t launcherPid = 0;
};

// The trace: metadata naming the three tracks, then, in the order they
// start, the spans "installer lock held", "launcher start to blocked wait",
// "waiting for the installer's post", "post to launcher exit" and "Zelto's
// first instruction" (an instant, drawn as a span of no length). Times are
// the stamps in microseconds, as Chrome's own traces take the monotonic
// clock: never counted from 0, which trace viewers read as a time not given
// and leave out of the trace's bounds.
Json HandOverTrace(const HandOverStamps& stamps, const std::string& scenario,
                   const std::string& outcome);

// Writes `trace` to the file at `path` (made, or emptied first). False with
// errno set when it cannot be written.
bool WriteTraceFile(const std::string& path, const Json& trace);

} // namespace oru_tools

#endif // ORU_TOOLS_COMMON_HANDOVER_TRACE_H
