// Which "LogFile" preference values the launcher writes its log to.
//
// The value comes from a file in the user's folder, so it is the user's to
// choose; a privileged launcher must not let that choice reach anything the
// user could not write to, nor let it forge lines in the log.
#ifndef ORU_LAUNCHER_LOG_FILE_RULE_H
#define ORU_LAUNCHER_LOG_FILE_RULE_H

#include <string>

// True when this process is privileged and the updater folder it works in
// belongs to another user: the preferences there are that user's to write,
// so what they say must not take the process beyond that user's rights.
bool WorksForAnotherUser();

// Why `path` is refused as the log file, as the log line that says so, or
// the empty string when it may be used: a control character anywhere in it
// (it would end a log line early); when working for another user, a place
// outside that user's updater folder and logs folder.
std::string LogFileRefusal(const std::string& path);
// The same answer with nothing made: the folders it compares with are only
// looked up (for tools that look and change nothing).
std::string LogFileRefusalLookingOnly(const std::string& path);

// True when `path`, in standard form, lies inside `folder` (or is it).
bool PathIsInside(const std::string& path, const std::string& folder);

#endif // ORU_LAUNCHER_LOG_FILE_RULE_H
