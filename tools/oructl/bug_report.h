// What oructl bug-report gathers, kept apart from how it is packed: each
// piece read without changing anything, and every secret in it masked by
// the logging library's own redaction before it is kept.
#ifndef ORU_TOOLS_ORUCTL_BUG_REPORT_H
#define ORU_TOOLS_ORUCTL_BUG_REPORT_H

#include "tools/common/json_output.h"

#include <cstdint>
#include <string>
#include <vector>

namespace oructl {

// One file of the report.
struct ReportItem {
  std::string name; // inside the archive
  std::string bytes;
  std::string from; // where it came from: a path or a command
  int redacted = 0; // secrets masked in it
  std::string note; // what was cut or could not be read
};

// The library's rule for one message: a message that holds a web token is
// replaced whole; credential elements are masked. True when it changed.
bool RedactMessage(std::string& message);

// Log records, each line's message redacted. Counts what changed.
std::string RedactLogText(const std::string& text, int& redacted);
// A preferences file: the text of each one-line element redacted as a
// message; any other line that holds a secret, whole.
std::string RedactPrefsText(const std::string& text, int& redacted);
// Every string in a JSON document.
void RedactJson(oru_tools::Json& json, int& redacted);

// Limits: the most kept of one log file (its newest records) and of all
// the logs together.
constexpr size_t kMostOfOneLog = 4u << 20;
constexpr size_t kMostOfAllLogs = 24u << 20;

// The records of every product log and its rotated copies at or after
// `since` (seconds; every record when `has_since` is false), one item a
// file, within the limits above.
std::vector<ReportItem> CollectLogs(bool has_since, int64_t since);
// The preferences file, its holder record and its moved-aside copies.
std::vector<ReportItem> CollectPrefs();
// The tool's own looks, as JSON: status, explain, doctor, prefs list and
// log sessions; and the semaphore sets and locks status reports.
std::vector<ReportItem> CollectLooks();
// The system: OS, locale, time zone, user, package version.
ReportItem CollectSystem();

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_BUG_REPORT_H
