#include "tools/oructl/log_time.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>

namespace oructl {
namespace {

// The time zone in force while it lives.
class ScopedTimeZone {
public:
  explicit ScopedTimeZone(const char* zone) {
    const char* before = std::getenv("TZ");
    had_ = before != nullptr;
    before_ = before ? before : "";
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (had_) {
      setenv("TZ", before_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

private:
  bool had_ = false;
  std::string before_;
};

// 2026-11-24T03:01:12.568Z
constexpr int64_t kMomentMs = 1795489272568;

TEST(PlacedTimeTest, TheSameWrittenTimeIsAnotherMomentInAnotherZone) {
  PlacedTime placed;
  {
    const ScopedTimeZone berlin("Europe/Berlin");
    ASSERT_TRUE(PlaceLogTime("11/24/26 04:01:12:568", placed));
    EXPECT_EQ(placed.epochMs, kMomentMs);
    EXPECT_EQ(placed.rfc3339, "2026-11-24T04:01:12.568+01:00");
    EXPECT_EQ(placed.reading, PlacedTime::Reading::kOne);
  }
  {
    const ScopedTimeZone new_york("America/New_York");
    ASSERT_TRUE(PlaceLogTime("11/24/26 04:01:12:568", placed));
    EXPECT_EQ(placed.epochMs, kMomentMs + 6 * 3600 * 1000);
    EXPECT_EQ(placed.rfc3339, "2026-11-24T04:01:12.568-05:00");
    EXPECT_EQ(Rfc3339(kMomentMs), "2026-11-23T22:01:12.568-05:00");
  }
  const ScopedTimeZone utc("UTC");
  EXPECT_EQ(Rfc3339(kMomentMs), "2026-11-24T03:01:12.568+00:00");
}

TEST(PlacedTimeTest, AnHourTheEndOfSummerTimeRepeatsIsSaidToNameTwoMoments) {
  const ScopedTimeZone new_york("America/New_York");
  PlacedTime placed;
  ASSERT_TRUE(PlaceLogTime("11/01/26 01:30:00:250", placed));
  EXPECT_EQ(placed.reading, PlacedTime::Reading::kFold);
  EXPECT_EQ(placed.rfc3339, "2026-11-01T01:30:00.250-04:00");
  EXPECT_EQ(placed.laterRfc3339, "2026-11-01T01:30:00.250-05:00");
  EXPECT_EQ(placed.laterEpochMs - placed.epochMs, 3600 * 1000);
}

TEST(PlacedTimeTest, AnHourTheStartOfSummerTimeSkipsIsSaidToNameNone) {
  const ScopedTimeZone new_york("America/New_York");
  PlacedTime placed;
  ASSERT_TRUE(PlaceLogTime("03/08/26 02:30:00:000", placed));
  EXPECT_EQ(placed.reading, PlacedTime::Reading::kSkipped);
  // A clock still on standard time (-05:00) showed 02:30 at 07:30Z.
  EXPECT_EQ(placed.epochMs % (24 * 3600 * 1000), (7 * 3600 + 30 * 60) * 1000);
}

TEST(PlacedTimeTest, TextThatIsNoLogTimeIsRefused) {
  PlacedTime placed;
  for (const char* text : {"", "11/24/26 04:01:12", "11/24/26 04:01:12:5x8", "yesterday:000"}) {
    EXPECT_FALSE(PlaceLogTime(text, placed)) << text;
  }
}

} // namespace
} // namespace oructl
