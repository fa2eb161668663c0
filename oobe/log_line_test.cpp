#include "oobe/levels.h"
#include "oobe/log_line.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <time.h>

namespace oobe {
namespace {

const std::string kSeparator = " | ";

// Times are read back in UTC: in a zone with clock changes, the hour a
// change repeats reads back as either of its instants.
class LogLineTest : public ::testing::Test {
protected:
  void SetUp() override {
    const char* zone = getenv("TZ");
    saved_zone_ = zone ? zone : "";
    had_zone_ = zone != nullptr;
    setenv("TZ", "UTC", 1);
    tzset();
  }
  void TearDown() override {
    if (had_zone_) {
      setenv("TZ", saved_zone_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

  std::string saved_zone_;
  bool had_zone_ = false;
};

// Text from bytes that make lines interesting: the separator's own
// characters, brackets, digits, UTF-8 and control bytes.
std::string RandomText(std::mt19937& random, size_t longest) {
  static const std::string kBytes = "ab |[]09:\t\xC3\xA9\x01\x7F/";
  std::uniform_int_distribution<size_t> length(0, longest);
  std::uniform_int_distribution<size_t> pick(0, kBytes.size() - 1);
  std::string text(length(random), ' ');
  for (char& byte : text) {
    byte = kBytes[pick(random)];
  }
  return text;
}

// A field the writer can carry back: between two separators it forms no
// other separator (it holds none, and does not end in " |" or begin with
// "| ").
std::string RandomField(std::mt19937& random) {
  std::string field;
  do {
    field = RandomText(random, 12);
  } while ((kSeparator + field + kSeparator).find(kSeparator, 1) !=
           kSeparator.size() + field.size());
  return field;
}

TEST_F(LogLineTest, EveryLineTheWriterBuildsParsesBackToItsParts) {
  std::mt19937 random(20261123);
  // 1970 to 2068: the years a two-digit year reads back to.
  std::uniform_int_distribution<int64_t> when(0, 3124137599LL);
  std::uniform_int_distribution<int> millis(0, 999);
  const int32_t levels[] = {kLevelTrace, kLevelDebug, kLevelInfo, kLevelWarn,
                            kLevelError, kLevelFatal, kLevelNone, 0};
  std::string line;
  for (int round = 0; round < 20000; ++round) {
    const int64_t seconds = when(random);
    const int milliseconds = millis(random);
    const int32_t level = levels[round % 8];
    std::string fields[6];
    for (std::string& field : fields) {
      field = RandomField(random);
    }
    const bool with_thread = round % 3 != 0;
    const uint64_t thread = random();
    const std::string message = RandomText(random, 40);
    const LineFields written = {LevelName(level),
                                {fields[0].c_str(), fields[1].c_str(), fields[2].c_str(),
                                 fields[3].c_str(), fields[4].c_str(), fields[5].c_str()},
                                with_thread,
                                thread};
    BuildLine(seconds, milliseconds, written, kSeparator, message, line);

    ParsedLine parsed;
    ASSERT_TRUE(ParseLine(line, kSeparator, parsed)) << line;
    EXPECT_EQ(parsed.seconds, seconds) << line;
    EXPECT_EQ(parsed.milliseconds, milliseconds) << line;
    EXPECT_EQ(LevelOfName(parsed.level_name), level) << line;
    for (int field = 0; field < 6; ++field) {
      EXPECT_EQ(parsed.fields[field], fields[field]) << line;
    }
    EXPECT_EQ(parsed.thread, with_thread ? std::to_string(thread) : "") << line;
    EXPECT_EQ(parsed.message, message) << line;
    if (HasFailure()) {
      FAIL() << "round " << round;
    }
  }
}

TEST_F(LogLineTest, TextTheWriterCannotHaveWrittenIsRefused) {
  ParsedLine parsed;
  for (const char* text : {
           "",
           "this | is | not | a | log | line",
           "11/22/26 10:00:00:000 | INFO |  |  |  |  |  |  | 1 | no brackets",
           "11/22/26 10:00:00:00 | [INFO] |  |  |  |  |  |  | 1 | two-digit milliseconds",
           "yesterday:000 | [INFO] |  |  |  |  |  |  | 1 | no date",
           "11/22/26 10:00:00:000 | [INFO] |  |  |  |  |  |  | 1x | thread is no number",
           "11/22/26 10:00:00:000 | [INFO] |  |  |  |  |  | 1 | eight separators",
       }) {
    EXPECT_FALSE(ParseLine(text, kSeparator, parsed)) << text;
  }
}

TEST_F(LogLineTest, EveryLevelNameNamesItsLevel) {
  for (const int32_t level :
       {kLevelTrace, kLevelDebug, kLevelInfo, kLevelWarn, kLevelError, kLevelFatal, kLevelNone}) {
    EXPECT_EQ(LevelOfName(LevelName(level)), level);
  }
  EXPECT_EQ(LevelOfName("ALL"), 0);
  EXPECT_EQ(LevelOfName("LOUD"), -1);
  EXPECT_EQ(LevelOfName("info"), -1);
}

} // namespace
} // namespace oobe
