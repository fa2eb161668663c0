// A log record's time placed on the time line. The log writes the wall
// clock of the zone in force, without its offset: the hour that the end of
// summer time repeats is written the same way twice, and the hour its start
// skips is never written by a clock that kept up. Both are said, not hidden.
#ifndef ORU_TOOLS_ORUCTL_LOG_TIME_H
#define ORU_TOOLS_ORUCTL_LOG_TIME_H

#include <cstdint>
#include <ctime>
#include <string>

namespace oructl {

struct PlacedTime {
  enum class Reading {
    kOne,     // the wall time names one moment
    kFold,    // it names two: `epochMs` is the first, `laterEpochMs` the second
    kSkipped, // it names none (the clock jumped over it): read as if before the jump
  };
  int64_t epochMs = 0;
  std::string rfc3339; // "2026-11-24T04:01:12.568+01:00"
  Reading reading = Reading::kOne;
  int64_t laterEpochMs = 0;
  std::string laterRfc3339;
};

// The moment(s) a time as the log writes it ("MM/DD/YY HH:MM:SS:mmm" in the
// C locale) names in the time zone in force (TZ). False for text that is no
// such time.
bool PlaceLogTime(const std::string& written, PlacedTime& out);

// PlaceLogTime for many records: the zone's offsets change only at whole
// minutes, so how one minute of wall time reads is worked out once (a few
// calls into the time zone code) and the records of that minute are placed
// by arithmetic.
class LogTimePlacer {
public:
  bool Place(const std::string& written, PlacedTime& out);

private:
  struct MinuteReading {
    PlacedTime::Reading reading = PlacedTime::Reading::kOne;
    long offset = 0;      // seconds east of UTC, of the first moment
    long laterOffset = 0; // of the second, in a fold
  };
  // How the minute of `wall` reads in the zone in force: the moments its
  // first second names, as offsets from its fields.
  static MinuteReading ReadMinute(const struct tm& wall);

  int64_t minute_ = -1; // the wall minute last read, as minutes since 1970 of its fields
  MinuteReading reading_;
};

// RFC 3339 of a moment, in the zone in force, with milliseconds and the
// zone's offset at that moment ("Z" never: the offset is always written).
std::string Rfc3339(int64_t epoch_ms);

} // namespace oructl

#endif // ORU_TOOLS_ORUCTL_LOG_TIME_H
