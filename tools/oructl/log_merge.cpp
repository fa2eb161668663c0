#include "tools/oructl/log_merge.h"

#include "tools/oructl/log_time.h"

#include <algorithm>
#include <limits>

namespace oructl {

namespace {

// The moment of `record`, no earlier than `previous` where its wall time
// allows.
int64_t MomentOf(const LogRecord& record, int64_t previous, LogTimePlacer& placer) {
  PlacedTime placed;
  if (!placer.Place(record.time, placed)) {
    return record.TimeMs();
  }
  const bool passed_the_first = placed.reading == PlacedTime::Reading::kFold &&
                                placed.epochMs < previous && placed.laterEpochMs >= previous;
  return passed_the_first ? placed.laterEpochMs : placed.epochMs;
}

} // namespace

bool MergeLogs(const std::vector<std::string>& logs, std::vector<MergedRecord>& records,
               std::string& error) {
  records.clear();
  LogTimePlacer placer;
  for (const std::string& log : logs) {
    int64_t previous = std::numeric_limits<int64_t>::min();
    const auto take = [&](const LogRecord& record) {
      previous = MomentOf(record, previous, placer);
      records.push_back({record, previous});
      return true;
    };
    if (!ForEachRecord(LogFilesOf(log), take, error)) {
      return false;
    }
  }
  std::stable_sort(
      records.begin(), records.end(),
      [](const MergedRecord& a, const MergedRecord& b) { return a.epochMs < b.epochMs; });
  return true;
}

} // namespace oructl
