// Several logs read as one, as journalctl reads the journals of several
// units: every record of each log (its rotated copies included), ordered by
// the moment it names.
#ifndef ORU_TOOLS_ORUCTL_LOG_MERGE_H
#define ORU_TOOLS_ORUCTL_LOG_MERGE_H

#include "tools/oructl/log_records.h"
#include "tools/oructl/log_time.h"

#include <cstdint>
#include <string>
#include <vector>

namespace oructl {

struct MergedRecord {
  LogRecord record;
  int64_t epochMs = 0;
  size_t log = 0; // which of the logs merged it came from
};

// The moments of one log's records, given in the log's order: a wall time
// that names two moments (the hour the end of summer time repeats) is read
// as the later one once the log has passed the earlier. A time that is no
// time reads as its fields taken for UTC.
class LogMoments {
public:
  int64_t Next(const LogRecord& record);

private:
  LogTimePlacer placer_;
  int64_t previous_ = INT64_MIN;
};

// The records of `logs`, in time order, each at its LogMoments moment.
// Within one log the order is the log's own; records of one moment keep the
// order of `logs`. A log that is not there holds no records. False with
// `error` as ForEachRecord.
bool MergeLogs(const std::vector<std::string>& logs, std::vector<MergedRecord>& records,
               std::string& error);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_LOG_MERGE_H
