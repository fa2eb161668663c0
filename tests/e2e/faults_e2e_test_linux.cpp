// The real executables on a full or failing disk: a full disk (a small file
// system of the test's own, filled to its last byte) and each failure of
// each call the programs make on the user's updater folder, injected by a
// preload. Records are whole or absent, the preferences are the old or the
// new file, whole, failures say their cause, and the hand-over completes.
#include "esd/expat_dom_builder.h"
#include "esd/updater_prefs.h"
#include "launcher/updater_log.h"
#include "locks/resource_locker.h"
#include "oobe/log_line.h"
#include "oobe/log_rotation.h"
#include "testing/fault_injection_linux.h"
#include "testing/log_test_support.h"
#include "testing/memory_disk_linux.h"
#include "tests/e2e/e2e_fixture.h"

#include <dirent.h>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>

namespace e2e {
namespace {

using oru_testing::ReadFile;

class FaultsTest : public E2eTest {
protected:
  std::string UpdaterFolder() const { return sandbox_->data_home() + "/Nuvex/OruUpdater/1.0"; }
  std::string PrefsPath() const { return UpdaterFolder() + "/" + NuvexUpdaterPrefs::kFileName; }
  std::string LogPath() const { return UpdaterFolder() + "/oruu.log"; }

  // A disk of a few pages under the user's data folder, where the updater
  // folder is made.
  std::unique_ptr<oru_testing::MemoryDisk> MountMemoryDisk() {
    EXPECT_EQ(system(("mkdir -p '" + sandbox_->data_home() + "'").c_str()), 0);
    return std::make_unique<oru_testing::MemoryDisk>(sandbox_->data_home(), 256 * 1024);
  }

  // One hand-over while this test plays the installer; Zelto must start.
  void HandOver(const std::string& context) {
    FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
    EXPECT_EQ(HandOverOnce(), 0) << context;
    EXPECT_TRUE(zelto.WaitForStart()) << context;
  }

  // `oructl ARGUMENTS`: its exit status and standard error.
  int Oructl(const std::vector<std::string>& arguments, std::string& errors) {
    oru_testing::ErrorCapture capture;
    oru_testing::ChildProgram tool = Start(ORU_ORUCTL, arguments, capture.fd());
    (void)oru_testing::ReadAll(tool);
    const int status = Wait(tool);
    errors = capture.Text();
    return status;
  }

  // The files of a log, its rotated copies first.
  static std::vector<std::string> FilesOf(const std::string& log) {
    return oobe::testing::LogFilesOf(log);
  }

  // Every line of the log is a whole record on a line of its own (the end
  // banner's two line breaks aside): none cut off, none glued to another.
  // The messages, in order.
  static std::vector<std::string> WholeRecordsOf(const std::string& log,
                                                 const std::string& context) {
    std::vector<std::string> messages;
    bool blank_allowed = false;
    for (const std::string& file : FilesOf(log)) {
      if (access(file.c_str(), F_OK) != 0) {
        continue; // no log at all: nothing was written
      }
      std::istringstream text(ReadFile(file));
      std::string line;
      while (std::getline(text, line)) {
        if (line.empty() && blank_allowed) {
          continue;
        }
        oobe::ParsedLine parsed;
        EXPECT_TRUE(oobe::ParseLine(line, oobe::kLineSeparator, parsed))
            << context << ": a line cut off in " << file << ": " << line;
        EXPECT_EQ(parsed.message.find(" | ["), std::string::npos)
            << context << ": records glued in " << file << ": " << line;
        blank_allowed = parsed.message == kUpdaterLogEndBanner;
        messages.push_back(parsed.message);
      }
    }
    return messages;
  }

  // No message is cut short: none is the beginning of a message that the
  // programs write whole (`whole`), without being one itself.
  static void ExpectNoCutMessage(const std::vector<std::string>& messages,
                                 const std::set<std::string>& whole, const std::string& context) {
    for (const std::string& message : messages) {
      if (whole.count(message) != 0) {
        continue;
      }
      for (const std::string& full : whole) {
        EXPECT_FALSE(full.size() > message.size() && full.compare(0, message.size(), message) == 0)
            << context << ": a record cut short: " << message;
      }
    }
  }

  // The preferences are a whole file that parses (or none), and no save
  // left a temporary beside them.
  void ExpectWholePreferences(const std::string& context) {
    if (access(PrefsPath().c_str(), F_OK) == 0) {
      esd::ExpatDOMBuilder<esd::XMLDocumentNode> reader;
      ASSERT_TRUE(reader.Create(nullptr, nullptr));
      EXPECT_TRUE(reader.ParseFile(PrefsPath(), false)) << context << ":\n"
                                                        << ReadFile(PrefsPath());
    }
    DIR* dir = opendir(UpdaterFolder().c_str());
    while (const struct dirent* entry = dir ? readdir(dir) : nullptr) {
      const std::string name = entry->d_name;
      EXPECT_EQ(name.find(".saving"), std::string::npos) << context << ": " << name;
      EXPECT_EQ(name.find(".rotating"), std::string::npos) << context << ": " << name;
    }
    if (dir) {
      closedir(dir);
    }
  }
};

// Records written one process each until the disk is full and past it,
// then more once space is freed: each record whose writer said it was
// written is there once, each one said not written is absent, and no line
// is cut off or glued.
TEST_F(FaultsTest, LogWriteUntilTheDiskIsFullAndPastItLosesNoRecordItReportedWritten) {
  const auto disk = MountMemoryDisk();
  ASSERT_TRUE(disk->mounted());
  const std::string log = sandbox_->data_home() + "/records.log";
  std::set<std::string> written, refused;
  const auto write = [&](const std::string& record) {
    std::string errors;
    const int status = Oructl({"log", "write", "--file", log, record}, errors);
    if (status == 0) {
      written.insert(record);
      return;
    }
    EXPECT_EQ(status, 2) << errors;
    EXPECT_NE(errors.find("No space left on device"), std::string::npos) << errors;
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    refused.insert(record);
  };
  write("before the disk filled");
  ASSERT_TRUE(disk->Fill());
  for (int i = 0; i < 60; ++i) {
    write("record " + std::to_string(i) + " " + std::string(40, 'x'));
  }
  disk->Free();
  write("after space was freed");
  EXPECT_FALSE(refused.empty()) << "the disk never filled up";
  std::map<std::string, int> seen;
  const std::vector<std::string> messages = WholeRecordsOf(log, "disk full");
  for (const std::string& message : messages) {
    ++seen[message];
  }
  std::set<std::string> every_record = written;
  every_record.insert(refused.begin(), refused.end());
  ExpectNoCutMessage(messages, every_record, "disk full");
  for (const std::string& record : written) {
    EXPECT_EQ(seen[record], 1) << record;
  }
  for (const std::string& record : refused) {
    EXPECT_EQ(seen[record], 0) << record;
  }
  EXPECT_EQ(seen["after space was freed"], 1);
}

// The system's text for an error a sweep injects.
std::string CauseOf(const std::string& kind) {
  return kind == "EIO"      ? "Input/output error"
         : kind == "EDQUOT" ? "Disk quota exceeded"
                            : "No space left on device";
}

// Each call a preferences change makes, failed in turn with each error: the
// change is saved whole, or the command exits 2 with one line naming the
// cause and the file is as it was.
TEST_F(FaultsTest, PrefsSetThatCannotSaveNamesTheCauseAndChangesNothing) {
  std::string errors;
  ASSERT_EQ(Oructl({"prefs", "set", "LogLevel", "2"}, errors), 0) << errors;
  const std::string counts_file = sandbox_->Path("set.counts");
  {
    const oru_testing::ScopedFaults counting(ORU_FAULT_INJECTION, UpdaterFolder(), "", counts_file);
    ASSERT_EQ(Oructl({"prefs", "set", "LogLevel", "3"}, errors), 0) << errors;
  }
  int value = 10;
  int refused = 0;
  for (const auto& [function, count] : oru_testing::ReadFaultCounts(counts_file)) {
    for (long call = 1; call <= count; ++call) {
      for (const std::string& kind : oru_testing::FaultKindsOf(function)) {
        const std::string fault = function + ":" + std::to_string(call) + ":" + kind;
        const std::string before = ReadFile(PrefsPath());
        int status = 0;
        {
          const oru_testing::ScopedFaults faults(ORU_FAULT_INJECTION, UpdaterFolder(), fault);
          status = Oructl({"prefs", "set", "LogLevel", std::to_string(++value)}, errors);
        }
        ExpectWholePreferences(fault);
        if (status == 0) {
          EXPECT_NE(ReadFile(PrefsPath()).find(std::to_string(value)), std::string::npos) << fault;
          continue;
        }
        ++refused;
        EXPECT_EQ(status, 2) << fault;
        EXPECT_NE(errors.find("could not save LogLevel"), std::string::npos) << errors;
        EXPECT_NE(errors.find(CauseOf(kind)), std::string::npos) << fault << ": " << errors;
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
        EXPECT_EQ(ReadFile(PrefsPath()), before) << fault;
      }
    }
  }
  EXPECT_GT(refused, 5);
}

TEST_F(FaultsTest, PrefsSetAndDoctorOnAFullDiskSayItIsTheSpace) {
  const auto disk = MountMemoryDisk();
  ASSERT_TRUE(disk->mounted());
  std::string errors;
  ASSERT_EQ(Oructl({"prefs", "set", "AutoCheck", "1"}, errors), 0) << errors;
  const std::string before = ReadFile(PrefsPath());
  ASSERT_TRUE(disk->Fill());
  EXPECT_EQ(Oructl({"prefs", "set", "AutoCheck", "0"}, errors), 2);
  EXPECT_NE(errors.find("No space left on device"), std::string::npos) << errors;
  EXPECT_EQ(ReadFile(PrefsPath()), before);
  oru_testing::ChildProgram doctor = Start(ORU_ORUCTL, {"doctor"});
  const std::string report = oru_testing::ReadAll(doctor);
  EXPECT_EQ(Wait(doctor), 1);
  EXPECT_NE(report.find("FAIL  disk space: "), std::string::npos) << report;
  disk->Free();
  EXPECT_EQ(Oructl({"prefs", "set", "AutoCheck", "0"}, errors), 0) << errors;
}

// A program that keeps no holder record took the preferences lock and died
// holding it: writes fail saying who holds the lock, doctor says what it
// is, and the launcher hands over at the cost of one wait, logging to the
// default file with the line that names the lock.
TEST_F(FaultsTest, ALockHeldForEverWithoutRecordIsNamedAndCostsTheLauncherOneWait) {
  std::string errors;
  ASSERT_EQ(Oructl({"prefs", "set", "AutoCheck", "1"}, errors), 0) << errors;
  const std::string name =
      esd::SystemSemaphoreName(esd::ResourceLocker::SemaphoreName(PrefsPath()));
  sem_t* foreign = sem_open(name.c_str(), O_CREAT | O_EXCL, 0700, 1);
  ASSERT_NE(foreign, SEM_FAILED);
  EXPECT_EQ(Oructl({"prefs", "set", "AutoCheck", "0"}, errors), 2);
  EXPECT_NE(errors.find("keeps no holder record"), std::string::npos) << errors;
  oru_testing::ChildProgram doctor = Start(ORU_ORUCTL, {"doctor"});
  const std::string report = oru_testing::ReadAll(doctor);
  EXPECT_EQ(Wait(doctor), 1);
  EXPECT_NE(report.find("FAIL  locks: the preferences lock has been held"), std::string::npos)
      << report;
  UpdaterLock installer(kUpdateInstallerKey);
  HandOver("a lock held for ever");
  const std::vector<std::string> messages = WholeRecordsOf(LogPath(), "a lock held for ever");
  EXPECT_NE(
      std::find(messages.begin(), messages.end(), std::string(kPrefsLockRefusedLine) + PrefsPath()),
      messages.end());
  sem_close(foreign);
  sem_unlink(name.c_str());
}

// Hand-overs on a disk that fills up and is freed again: each completes,
// no record is cut off or glued (the next run's begin banner included), and
// the preferences stay whole.
TEST_F(FaultsTest, HandOversOnAFullDiskCompleteAndCutNoRecord) {
  const auto disk = MountMemoryDisk();
  ASSERT_TRUE(disk->mounted());
  UpdaterLock installer(kUpdateInstallerKey);
  HandOver("room on the disk");
  const std::vector<std::string> first_run = WholeRecordsOf(LogPath(), "room on the disk");
  const std::set<std::string> whole(first_run.begin(), first_run.end());
  const std::string prefs = ReadFile(PrefsPath());
  ASSERT_TRUE(disk->Fill());
  for (int run = 0; run < 3; ++run) {
    HandOver("disk full, run " + std::to_string(run));
  }
  EXPECT_EQ(ReadFile(PrefsPath()), prefs);
  disk->Free();
  HandOver("space freed");
  const std::vector<std::string> messages = WholeRecordsOf(LogPath(), "full disk");
  ExpectNoCutMessage(messages, whole, "full disk");
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages.back(), kUpdaterLogEndBanner);
  ExpectWholePreferences("full disk");
}

// Every call the launcher makes on the user's updater folder, failed in
// turn with each error: on a first run (no preferences yet, so they are
// saved) and on a later one. Each hand-over completes with whole records
// and whole preferences.
TEST_F(FaultsTest, EveryFailedCallOfAHandOverLeavesItCompleteAndTheFilesWhole) {
  UpdaterLock installer(kUpdateInstallerKey);
  for (const bool first_run : {true, false}) {
    const std::string counts_file = sandbox_->Path(first_run ? "first.counts" : "later.counts");
    const auto reset = [&] {
      if (first_run) {
        ASSERT_EQ(system(("rm -rf '" + sandbox_->data_home() + "/Nuvex'").c_str()), 0);
      }
    };
    reset();
    {
      const oru_testing::ScopedFaults counting(ORU_FAULT_INJECTION, sandbox_->data_home(), "",
                                               counts_file);
      HandOver("counting");
    }
    const std::vector<std::string> counted = WholeRecordsOf(LogPath(), "counting");
    const std::set<std::string> whole(counted.begin(), counted.end());
    int runs = 0;
    for (const auto& [function, count] : oru_testing::ReadFaultCounts(counts_file)) {
      for (long call = 1; call <= count; ++call) {
        for (const std::string& kind : oru_testing::FaultKindsOf(function)) {
          const std::string fault = function + ":" + std::to_string(call) + ":" + kind;
          const std::string context = (first_run ? "first run, " : "later run, ") + fault;
          reset();
          {
            const oru_testing::ScopedFaults faults(ORU_FAULT_INJECTION, sandbox_->data_home(),
                                                   fault);
            HandOver(context);
          }
          ExpectNoCutMessage(WholeRecordsOf(LogPath(), context), whole, context);
          ExpectWholePreferences(context);
          ++runs;
        }
      }
    }
    EXPECT_GT(runs, 10) << (first_run ? "first run" : "later run");
  }
}

} // namespace
} // namespace e2e
