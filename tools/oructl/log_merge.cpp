#include "tools/oructl/log_merge.h"

#include <algorithm>

namespace oructl {

int64_t LogMoments::Next(const LogRecord& record) {
  PlacedTime placed;
  if (!placer_.Place(record.time, placed)) {
    return previous_ = record.TimeMs();
  }
  const bool passed_the_first = placed.reading == PlacedTime::Reading::kFold &&
                                placed.epochMs < previous_ && placed.laterEpochMs >= previous_;
  return previous_ = passed_the_first ? placed.laterEpochMs : placed.epochMs;
}

bool MergeLogs(const std::vector<std::string>& logs, std::vector<MergedRecord>& records,
               std::string& error) {
  records.clear();
  for (size_t log = 0; log < logs.size(); ++log) {
    LogMoments moments;
    const auto take = [&](const LogRecord& record) {
      records.push_back({record, moments.Next(record), log});
      return true;
    };
    if (!ForEachRecord(LogFilesOf(logs[log]), take, error)) {
      return false;
    }
  }
  std::stable_sort(
      records.begin(), records.end(),
      [](const MergedRecord& a, const MergedRecord& b) { return a.epochMs < b.epochMs; });
  return true;
}

} // namespace oructl
