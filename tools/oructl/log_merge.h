// Several logs read as one, as journalctl reads the journals of several
// units: every record of each log (its rotated copies included), ordered by
// the moment it names.
#ifndef ORU_TOOLS_ORUCTL_LOG_MERGE_H
#define ORU_TOOLS_ORUCTL_LOG_MERGE_H

#include "tools/oructl/log_records.h"

#include <cstdint>
#include <string>
#include <vector>

namespace oructl {

struct MergedRecord {
  LogRecord record;
  int64_t epochMs = 0;
};

// The records of `logs`, in time order. Within one log the order is the
// log's own: a wall time that names two moments (the hour the end of
// summer time repeats) is read as the later one once the log has passed
// the earlier. Records of one moment keep the order of `logs`. A log that
// is not there holds no records. False with `error` as ForEachRecord.
bool MergeLogs(const std::vector<std::string>& logs, std::vector<MergedRecord>& records,
               std::string& error);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_LOG_MERGE_H
