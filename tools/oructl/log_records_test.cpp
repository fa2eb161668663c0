#include "testing/sandbox.h"
#include "tools/oructl/log_records.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <time.h>
#include <vector>

namespace oructl {
namespace {

std::string Line(const std::string& message, const std::string& level = "INFO") {
  return "11/22/26 10:00:00:000 | [" + level + "] |  | UPDATER | SHARED |  |  |  | 7 | " + message +
         "\n";
}

class LogRecordsTest : public ::testing::Test {
protected:
  void SetUp() override { sandbox_ = std::make_unique<oru_testing::Sandbox>(); }

  std::string Write(const std::string& name, const std::string& text) {
    const std::string path = sandbox_->Path(name);
    oru_testing::WriteFile(path, text);
    return path;
  }

  std::vector<LogRecord> Forward(const std::vector<std::string>& files) {
    std::vector<LogRecord> records;
    std::string error;
    EXPECT_TRUE(ForEachRecord(
        files,
        [&](const LogRecord& record) {
          records.push_back(record);
          return true;
        },
        error))
        << error;
    return records;
  }

  std::vector<LogRecord> Backward(const std::vector<std::string>& files, size_t count) {
    std::vector<LogRecord> records;
    std::string error;
    EXPECT_TRUE(LastRecords(
        files, count, [](const LogRecord&) { return true; }, true, records, error))
        << error;
    return records;
  }

  std::unique_ptr<oru_testing::Sandbox> sandbox_;
};

TEST_F(LogRecordsTest, BackwardAndForwardReadTheSameRecordsWithTheSameLineNumbers) {
  // Continuation lines, empty lines of an end banner, a last line without
  // its line break, and records longer than a read block.
  const std::string text = Line("first") + Line("two\nlines") + Line("banner\n\n") +
                           Line(std::string(200000, 'y')) + Line("after\n") +
                           Line("unfinished").substr(0, Line("unfinished").size() - 1);
  const std::string path = Write("a.log", text);
  const std::vector<LogRecord> forward = Forward({path});
  const std::vector<LogRecord> backward = Backward({path}, 100);
  ASSERT_EQ(forward.size(), 6u);
  ASSERT_EQ(backward.size(), forward.size());
  for (size_t index = 0; index < forward.size(); ++index) {
    EXPECT_EQ(backward[index].text, forward[index].text) << index;
    EXPECT_EQ(backward[index].message, forward[index].message) << index;
    EXPECT_EQ(backward[index].line, forward[index].line) << index;
    EXPECT_EQ(backward[index].offset, forward[index].offset) << index;
  }
  EXPECT_EQ(forward[1].message, "two\nlines");
  EXPECT_EQ(forward[2].message, "banner\n\n");
  EXPECT_EQ(forward[3].line, 7);
  EXPECT_EQ(forward[5].message, "unfinished");
}

TEST_F(LogRecordsTest, LastRecordsStopAtTheCountAndReachIntoOlderFiles) {
  const std::string old_copy = Write("a 2026-11-22 09-00-00.log", Line("old 1") + Line("old 2"));
  const std::string live = Write("a.log", Line("new 1"));
  const std::vector<LogRecord> two = Backward({old_copy, live}, 2);
  ASSERT_EQ(two.size(), 2u);
  EXPECT_EQ(two[0].message, "old 2");
  EXPECT_EQ(two[0].line, 2);
  EXPECT_EQ(two[0].file, old_copy);
  EXPECT_EQ(two[1].message, "new 1");
  EXPECT_TRUE(Backward({old_copy, live}, 0).empty());
  EXPECT_EQ(Backward({old_copy, sandbox_->Path("missing.log")}, 5).size(), 2u);
}

TEST_F(LogRecordsTest, EmptyFilesHoldNoRecords) {
  const std::string empty = Write("empty.log", "");
  EXPECT_TRUE(Forward({empty}).empty());
  EXPECT_TRUE(Backward({empty}, 3).empty());
}

TEST_F(LogRecordsTest, ALineThatIsNoLogLineIsAnErrorReadEitherWay) {
  for (const std::string& text :
       {Line("fine") + "this | is not\n", std::string("stray first line\n") + Line("fine")}) {
    const std::string path = Write("bad.log", text);
    std::vector<LogRecord> records;
    std::string forward_error;
    std::string backward_error;
    EXPECT_FALSE(ForEachRecord(
        {path}, [](const LogRecord&) { return true; }, forward_error));
    EXPECT_FALSE(LastRecords(
        {path}, 10, [](const LogRecord&) { return true; }, false, records, backward_error));
    EXPECT_NE(forward_error.find("not a log line"), std::string::npos) << forward_error;
    EXPECT_NE(backward_error.find("not a log line"), std::string::npos) << backward_error;
  }
}

class LogTimeTest : public ::testing::Test {
protected:
  void SetUp() override {
    zone_ = std::make_unique<oru_testing::ScopedEnv>("TZ", "UTC");
    tzset();
  }
  void TearDown() override {
    zone_.reset();
    tzset();
  }
  // 2026-11-22 10:30:00 UTC.
  static constexpr int64_t kNow = 1795343400;
  std::unique_ptr<oru_testing::ScopedEnv> zone_;
};

TEST_F(LogTimeTest, ReadsEveryFormItNames) {
  const std::pair<const char*, int64_t> kCases[] = {
      {"now", kNow},
      {"today", kNow - 10 * 3600 - 1800},
      {"yesterday", kNow - 34 * 3600 - 1800},
      {"tomorrow", kNow + 13 * 3600 + 1800},
      {"-2h", kNow - 7200},
      {"+30m", kNow + 1800},
      {"-1d", kNow - 86400},
      {"-90s", kNow - 90},
      {"-1w", kNow - 7 * 86400},
      {"2026-11-22", kNow - 10 * 3600 - 1800},
      {"2026-11-22T10:30", kNow},
      {"2026-11-22 10:30:15", kNow + 15},
      {"2026-11-22T10:30:00Z", kNow},
      {"2026-11-22T11:30:00+01:00", kNow},
      {"2026-11-22T09:30-0100", kNow},
      {"11/22/26 10:30:00", kNow},
  };
  for (const auto& [text, expected] : kCases) {
    int64_t seconds = 0;
    EXPECT_TRUE(ParseLogTime(text, kNow, seconds)) << text;
    EXPECT_EQ(seconds, expected) << text;
  }
}

TEST_F(LogTimeTest, RefusesWhatItDoesNotName) {
  for (const char* text : {"", "soon", "-2", "-h", "2h", "-2y", "2026-11-22T10:30:00+1:00",
                           "2026-11-22T10:30:00 UTC", "2026-11-22T25:00", "22/11/2026"}) {
    int64_t seconds = 0;
    EXPECT_FALSE(ParseLogTime(text, kNow, seconds)) << text;
  }
}

} // namespace
} // namespace oructl
