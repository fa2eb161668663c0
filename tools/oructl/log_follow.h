// Following the shared log as it grows, as "tail -F" does, across the
// rotations that set the live file aside and empty it.
#ifndef ORU_TOOLS_ORUCTL_LOG_FOLLOW_H
#define ORU_TOOLS_ORUCTL_LOG_FOLLOW_H

#include "tools/oructl/log_records.h"

#include <string>

namespace oructl {

// Hands every record written to `live` after `from` to `sink`, until the
// sink returns false or reading fails (false, with `error`). Waits on
// inotify for the log's folder, and looks again every second in case an
// event was missed.
//
// A rotation copies the live file to a dated copy and then empties it: when
// a new copy appears, the records written after what was read and before
// the rotation are read from that copy, then the live file from its start
// once it has been emptied (however far it has grown again by the time it is
// looked at). A live file replaced by another one is read from its start.
bool FollowLog(const std::string& live, ReadPosition from, const RecordAssembler::Sink& sink,
               std::string& error);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_LOG_FOLLOW_H
