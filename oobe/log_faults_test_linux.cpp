// The logging library on a failing or full disk: every failure of every
// call that writing records and setting the log aside make, and a disk
// filled to its last byte. A record is whole or absent, a record reported
// written is there once, and the writer after the fault starts cleanly.
#include "oobe/log_line.h"
#include "oobe/log_rotation.h"
#include "oobe/log_target.h"
#include "platform/fs_ops.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/fault_injection_linux.h"
#include "testing/log_test_support.h"
#include "testing/memory_disk_linux.h"
#include "testing/namespaces.h"
#include "testing/sandbox.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace oobe {
namespace {

using oru_testing::Sandbox;

// A log's lock is a System V set keyed by ftok, which keeps 16 bits of the
// file's inode: in the machine's IPC namespace, a log of another test or of
// another build's suite running beside this one can share its set, and a
// held lock there would change what these tests count. With root they get
// an IPC namespace of their own (their helpers inherit it); without, they
// run as they are.
[[maybe_unused]] const bool kPrivateIpc = oru_testing::EnterPrivateIpcNamespace();

constexpr char kLogName[] = "faults.log";
constexpr int kRecords = 4;
constexpr size_t kPadBytes = 40;

// A whole line as the library writes it, `bytes` long with its newline.
std::string FillerLine(size_t bytes) {
  std::string line = "01/02/26 03:04:05:006 | [INFO] | filler | helper |  |  |  |  | 1 | ";
  line.append(bytes - line.size() - 1, 'f');
  return line + "\n";
}

// Whether `key` names a record of a writer here: "<id> r<index>".
bool IsRecordKey(const std::string& key) {
  const size_t blank = key.find(" r");
  return blank != std::string::npos && blank > 0 && key.size() > blank + 2 &&
         key.find_first_not_of("0123456789", blank + 2) == std::string::npos &&
         key.find(' ') == blank;
}

// The files of the log, its copies (oldest first) and then the live one.
std::vector<std::string> LogFiles(const std::string& folder) {
  return oobe::testing::LogFilesOf(folder + "/" + kLogName);
}

class LogFaultsTest : public ::testing::Test {
protected:
  // A live log of whole lines exactly at the size at which it is set aside:
  // the next writer rotates it when it opens it.
  void PrepareDueLog() {
    for (const std::string& file : LogFiles(folder_)) {
      (void)platform::DeletePath(file);
    }
    std::string text;
    const size_t line_bytes = 10240;
    for (uint64_t size = 0; size < RotationSizeLimit(kLevelInfo); size += line_bytes) {
      text += FillerLine(line_bytes);
    }
    oru_testing::WriteFile(folder_ + "/" + kLogName, text);
  }

  // Runs a writer of `count` records tagged `id`; the records it reported
  // written go into `written_`.
  void WriteRecords(const std::string& id, int count, int errors = -1) {
    oru_testing::ChildProgram writer = oru_testing::StartProgram(
        ORU_LOG_WRITER_HELPER,
        {"records", folder_, kLogName, id, std::to_string(count), std::to_string(kPadBytes)}, -1,
        -1, errors);
    std::istringstream reported(oru_testing::ReadAll(writer));
    EXPECT_EQ(oru_testing::FinishProgram(writer), 0);
    std::string word;
    long index = 0;
    while (reported >> word >> index) {
      written_.insert(id + " r" + std::to_string(index));
    }
  }

  // Every line of every file of the log is a whole record, and each record
  // reported written is there exactly once.
  void ExpectWholeRecordsOnly(const std::string& context) {
    std::map<std::string, int> seen;
    for (const std::string& file : LogFiles(folder_)) {
      for (const std::string& line : testing::LinesOf(file)) {
        ParsedLine parsed;
        ASSERT_TRUE(ParseLine(line, kLineSeparator, parsed))
            << context << ": a line cut off or glued in " << file << ":\n"
            << line.substr(0, 200);
        const std::string key =
            parsed.message.substr(0, parsed.message.find(' ', parsed.message.find(' ') + 1));
        if (IsRecordKey(key)) {
          // A record of a writer here: whole, its padding included.
          EXPECT_EQ(parsed.message.size(), key.size() + 1 + kPadBytes)
              << context << ": a record cut short in " << file << ": " << parsed.message;
        }
        ++seen[key];
      }
    }
    for (const std::string& record : written_) {
      EXPECT_EQ(seen[record], 1) << context << ": " << record;
    }
  }

  Sandbox sandbox_;
  std::string folder_ = sandbox_.Path("logs");
  std::set<std::string> written_;
};

// Each call that writing records to a log due for rotation makes, failed in
// turn with each error of a failing disk (and writes cut in half).
TEST_F(LogFaultsTest, EveryFailedCallLeavesWholeRecordsAndTheNextWriterStartsCleanly) {
  ASSERT_TRUE(platform::CreateDirectoryTree(folder_));
  const std::string counts_file = sandbox_.Path("counts");
  PrepareDueLog();
  {
    const oru_testing::ScopedFaults counting(ORU_FAULT_INJECTION, folder_, "", counts_file);
    WriteRecords("count", kRecords);
  }
  const std::map<std::string, long> counts = oru_testing::ReadFaultCounts(counts_file);
  ASSERT_GT(counts.at("write"), 0);
  ASSERT_GT(counts.at("copy_file_range"), 0);
  ASSERT_GT(counts.at("ftruncate"), 0);
  int runs = 0;
  for (const auto& [function, count] : counts) {
    for (long call = 1; call <= count; ++call) {
      for (const std::string& kind : oru_testing::FaultKindsOf(function)) {
        const std::string fault = function + ":" + std::to_string(call) + ":" + kind;
        PrepareDueLog();
        written_.clear();
        {
          const oru_testing::ScopedFaults faults(ORU_FAULT_INJECTION, folder_, fault);
          WriteRecords("faulty", kRecords);
        }
        WriteRecords("after", kRecords);
        ExpectWholeRecordsOnly(fault);
        EXPECT_EQ(written_.count("after r0") + written_.count("after r3"), 2u) << fault;
        ++runs;
      }
    }
  }
  EXPECT_GT(runs, 20);
}

// Records that could not be written are said once per process, naming the
// log and the system's error, however many of them there were.
TEST_F(LogFaultsTest, RecordsNotWrittenAreSaidOncePerProcessWithTheCause) {
  ASSERT_TRUE(platform::CreateDirectoryTree(folder_));
  const oru_testing::ErrorCapture errors;
  {
    const oru_testing::ScopedFaults faults(ORU_FAULT_INJECTION, folder_, "write:2:EIO");
    WriteRecords("faulty", kRecords, errors.fd());
  }
  EXPECT_EQ(written_, (std::set<std::string>{"faulty r0"}));
  EXPECT_EQ(errors.LinesContaining("oobe: a record could not be written to the log " + folder_ +
                                   "/" + kLogName + ": Input/output error"),
            1)
      << errors.Text();
  EXPECT_EQ(errors.LinesContaining("oobe:"), 1) << errors.Text();
}

// A log due for rotation whose copy cannot be made is kept whole: the
// failure is said once on standard error and once, as a WARN record, in
// the live log, and the records go on.
TEST_F(LogFaultsTest, ARotationThatCannotBeMadeIsSaidOnceAndLeavesOneWarnRecord) {
  ASSERT_TRUE(platform::CreateDirectoryTree(folder_));
  PrepareDueLog();
  const oru_testing::ErrorCapture errors;
  {
    const oru_testing::ScopedFaults faults(ORU_FAULT_INJECTION, folder_,
                                           "copy_file_range:1:ENOSPC");
    WriteRecords("faulty", kRecords, errors.fd());
  }
  EXPECT_EQ(written_.size(), static_cast<size_t>(kRecords));
  EXPECT_EQ(LogFiles(folder_).size(), 1u) << "no copy";
  EXPECT_EQ(errors.LinesContaining("oobe: could not set aside the log " + folder_ + "/" + kLogName +
                                   ": No space left on device"),
            1)
      << errors.Text();
  int warnings = 0;
  for (const std::string& line : testing::LinesOf(folder_ + "/" + kLogName)) {
    ParsedLine parsed;
    if (ParseLine(line, kLineSeparator, parsed) && parsed.level_name == "WARN") {
      ++warnings;
      EXPECT_EQ(parsed.message, "The log could not be set aside (No space left on device); it is "
                                "kept whole and set aside at a later check");
    }
  }
  EXPECT_EQ(warnings, 1);
  ExpectWholeRecordsOnly("rotation failed");
}

// A record cut short whose bytes cannot be given back either: the line
// stays cut, but the next writer's record is a line of its own.
TEST_F(LogFaultsTest, ARecordThatCannotBeGivenBackNeverSwallowsTheNextOne) {
  ASSERT_TRUE(platform::CreateDirectoryTree(folder_));
  {
    const oru_testing::ScopedFaults faults(ORU_FAULT_INJECTION, folder_,
                                           "write:2:half,ftruncate:1:EIO");
    WriteRecords("faulty", kRecords);
  }
  WriteRecords("after", kRecords);
  const std::vector<std::string> lines = testing::LinesOf(folder_ + "/" + kLogName);
  ASSERT_EQ(lines.size(), 2u + kRecords) << "the first record, the cut one, the next writer's";
  EXPECT_EQ(testing::MessageOf(lines[0]).rfind("faulty r0 ", 0), 0u);
  ParsedLine parsed;
  EXPECT_FALSE(ParseLine(lines[1], kLineSeparator, parsed)) << "the cut line";
  for (int i = 0; i < kRecords; ++i) {
    EXPECT_EQ(testing::MessageOf(lines[2 + i]).rfind("after r" + std::to_string(i) + " ", 0), 0u)
        << lines[2 + i];
  }
}

// A disk filled to its last byte while writers go on, then freed: no
// record is cut off or glued to another, each one reported written is there
// once, and the writers after the space was freed write every record.
TEST_F(LogFaultsTest, ADiskFullToItsLastByteCutsNoRecordAndFreedSpaceIsUsedAgain) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root: mounts a small disk";
  }
  ASSERT_TRUE(platform::CreateDirectoryTree(folder_));
  oru_testing::MemoryDisk disk(folder_, 64 * 1024);
  ASSERT_TRUE(disk.mounted());
  WriteRecords("before", kRecords);
  ASSERT_TRUE(disk.Fill());
  size_t reported = written_.size();
  for (int writer = 0; writer < 8; ++writer) {
    WriteRecords("full" + std::to_string(writer), 40);
  }
  const size_t written_while_full = written_.size() - reported;
  EXPECT_LT(written_while_full, 8u * 40u) << "the disk never filled up";
  disk.Free();
  reported = written_.size();
  for (int writer = 0; writer < 2; ++writer) {
    WriteRecords("freed" + std::to_string(writer), kRecords);
  }
  EXPECT_EQ(written_.size() - reported, 2u * kRecords);
  ExpectWholeRecordsOnly("disk full");
}

} // namespace
} // namespace oobe
