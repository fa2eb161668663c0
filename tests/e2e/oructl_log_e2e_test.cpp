// oructl log as a person uses it: from the end, following the log across a
// rotation, by time, on a terminal, writing records, and runs as timelines.
#include "oobe/log_line.h"
#include "testing/child_process.h"
#include "testing/sandbox.h"
#include "tests/e2e/e2e_fixture.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

using oru_testing::ChildProgram;

struct Result {
  int exit_code = -1;
  std::string output;
};

Result Oructl(const std::vector<std::string>& arguments, int input = -1) {
  ChildProgram child = oru_testing::StartProgram(ORU_ORUCTL, arguments, input);
  Result result;
  result.output = oru_testing::ReadAll(child);
  result.exit_code = oru_testing::FinishProgram(child);
  return result;
}

std::string LogLine(const std::string& time, const std::string& thread, const std::string& level,
                    const std::string& message, const std::string& program = "UPDATER") {
  return time + " | [" + level + "] |  | " + program + " | SHARED |  |  |  | " + thread + " | " +
         message + "\n";
}

// The time as the log writes it, `seconds_ago` before now.
std::string TimeAgo(int64_t seconds_ago) {
  std::string text;
  oobe::AppendTimestamp(static_cast<int64_t>(time(nullptr)) - seconds_ago, 0, text);
  return text;
}

std::string Formatted(int64_t seconds_ago, const char* format, bool utc) {
  const time_t when = time(nullptr) - seconds_ago;
  struct tm parts = {};
  if (utc) {
    gmtime_r(&when, &parts);
  } else {
    localtime_r(&when, &parts);
  }
  char text[64];
  strftime(text, sizeof text, format, &parts);
  return text;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(text.substr(start, end - start));
  }
  return lines;
}

// Reads a follower's output a line at a time, waiting at most 10 s for each.
class LineWaiter {
public:
  explicit LineWaiter(int fd) : fd_(fd) {}
  bool Next(std::string& line) {
    while (true) {
      const size_t newline = buffer_.find('\n');
      if (newline != std::string::npos) {
        line = buffer_.substr(0, newline);
        buffer_.erase(0, newline + 1);
        return true;
      }
      struct pollfd ready = {fd_, POLLIN, 0};
      char block[4096];
      ssize_t got = 0;
      if (poll(&ready, 1, 10000) != 1 || (got = read(fd_, block, sizeof block)) <= 0) {
        return false;
      }
      buffer_.append(block, static_cast<size_t>(got));
    }
  }
  // The next line that holds `part`, the lines before it collected.
  bool Until(const std::string& part, std::vector<std::string>& seen) {
    std::string line;
    while (Next(line)) {
      seen.push_back(line);
      if (line.find(part) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

private:
  int fd_;
  std::string buffer_;
};

// Runs oructl on a new terminal with `environment` added; what it shows.
std::string OnATerminal(const std::vector<std::string>& arguments,
                        const std::vector<std::string>& environment) {
  int terminal = -1;
  int its_end = -1;
  if (openpty(&terminal, &its_end, nullptr, nullptr, nullptr) != 0) {
    return "";
  }
  const pid_t child = fork();
  if (child == 0) {
    close(terminal);
    setsid();
    ioctl(its_end, TIOCSCTTY, 0);
    dup2(its_end, STDIN_FILENO);
    dup2(its_end, STDOUT_FILENO);
    dup2(its_end, STDERR_FILENO);
    for (const std::string& setting : environment) {
      putenv(const_cast<char*>(setting.c_str()));
    }
    std::vector<char*> argv{const_cast<char*>(ORU_ORUCTL)};
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execv(ORU_ORUCTL, argv.data());
    _exit(127);
  }
  // This end of the program's terminal stays open here too, so that what the
  // program (and its pager, which it waits for) wrote before exiting is never
  // dropped with the terminal: it is read until the program has exited and
  // nothing more comes. At most 10 s in all.
  std::string shown;
  bool exited = false;
  for (int wait = 0; wait < 200; ++wait) {
    struct pollfd ready = {terminal, POLLIN, 0};
    if (poll(&ready, 1, 50) == 1) {
      char block[4096];
      const ssize_t got = read(terminal, block, sizeof block);
      if (got <= 0) {
        break;
      }
      shown.append(block, static_cast<size_t>(got));
      continue;
    }
    if (exited) {
      break; // exited, and nothing came for 50 ms since
    }
    exited = waitpid(child, nullptr, WNOHANG) == child;
  }
  if (!exited) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  close(its_end);
  close(terminal);
  return shown;
}

// Whether the process goes to sleep (state "S") within 10 s: a follower that
// has read everything waits in poll. Looked at every millisecond.
bool SleepsSoon(pid_t pid) {
  for (int look = 0; look < 10000; ++look) {
    const std::string stat = oru_testing::ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const size_t state = stat.rfind(") ");
    if (state != std::string::npos && stat.compare(state + 2, 1, "S") == 0) {
      return true;
    }
    usleep(1000);
  }
  return false;
}

class OructlLogTest : public e2e::E2eTest {
protected:
  std::string Log() const { return sandbox_->Path("oruu.log"); }

  // A log past the 10 MiB at which a writer at INFO sets it aside: records
  // of 200 "x" and then "the last". Its size.
  size_t WriteALogDueForRotation() {
    const std::string filler = LogLine("11/22/26 10:00:00:000", "7", "INFO", std::string(200, 'x'));
    std::string big;
    while (big.size() < 10u * 1024 * 1024) {
      big += filler;
    }
    big += LogLine("11/22/26 10:00:01:000", "7", "INFO", "the last");
    oru_testing::WriteFile(Log(), big);
    return big.size();
  }
};

TEST_F(OructlLogTest, LastRecordsAreReadFromTheEndAcrossTheRotatedCopies) {
  std::string older;
  std::string newer;
  for (int index = 0; index < 300; ++index) {
    const std::string line = LogLine("11/22/26 10:00:00:000", "7", index % 3 == 0 ? "WARN" : "INFO",
                                     "record " + std::to_string(index) +
                                         (index % 50 == 1 ? "\nwith a second line" : ""));
    (index < 200 ? older : newer) += line;
  }
  oru_testing::WriteFile(sandbox_->Path("oruu 2026-11-22 09-00-00.log"), older);
  oru_testing::WriteFile(Log(), newer);

  const std::vector<std::string> all = Lines(Oructl({"log", "--file", Log()}).output);
  const Result last = Oructl({"log", "--file", Log(), "-n", "3"});
  EXPECT_EQ(last.exit_code, 0);
  EXPECT_EQ(Lines(last.output), std::vector<std::string>(all.end() - 3, all.end()));
  // 110 records reach back into the copy; records 201 and 251 have two lines.
  const std::vector<std::string> reaching = Lines(Oructl({"log", "--file", Log(), "-n110"}).output);
  ASSERT_EQ(reaching.size(), 110u + 2u);
  EXPECT_EQ(reaching, std::vector<std::string>(all.end() - 112, all.end()));

  // With a filter: the last two WARN records, and their line numbers as a
  // whole read counts them.
  const auto whole = nlohmann::json::parse(Oructl({"log", "--file", Log(), "--json"}).output);
  const auto warns = nlohmann::json::parse(
      Oructl({"log", "--file", Log(), "--level=WARN", "-n", "2", "--json"}).output);
  ASSERT_EQ(warns.size(), 2u);
  EXPECT_EQ(warns[0]["message"], "record 294");
  EXPECT_EQ(warns[1]["message"], "record 297");
  for (const auto& record : whole) {
    if (record["message"] == "record 294") {
      EXPECT_EQ(warns[0]["line"], record["line"]);
      EXPECT_EQ(warns[0]["file"], record["file"]);
    }
  }
  EXPECT_EQ(Oructl({"log", "--file", Log(), "-n", "0"}).output, "");
  EXPECT_EQ(Oructl({"log", "--file", Log(), "-n", "x"}).exit_code, 2);
}

TEST_F(OructlLogTest, FollowShowsRecordsWrittenBeforeAndAfterARotation) {
  WriteALogDueForRotation();

  ChildProgram follower =
      oru_testing::StartProgram(ORU_ORUCTL, {"log", "-f", "-n", "1", "--file", Log()});
  LineWaiter output(fileno(follower.output));
  std::vector<std::string> seen;
  ASSERT_TRUE(output.Until("the last", seen));
  EXPECT_EQ(seen.size(), 1u);

  // The first writer finds the log too large, rotates it and then writes.
  ASSERT_EQ(Oructl({"log", "write", "--file", Log(), "after the rotation"}).exit_code, 0);
  ASSERT_EQ(Oructl({"log", "write", "--file", Log(), "and one more"}).exit_code, 0);
  seen.clear();
  ASSERT_TRUE(output.Until("and one more", seen));
  int rotated = 0;
  int filler_lines = 0;
  for (const std::string& line : seen) {
    rotated += line.find("after the rotation") != std::string::npos ? 1 : 0;
    filler_lines += line.find("xxxxxxxx") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(rotated, 1);
  EXPECT_EQ(filler_lines, 0) << "the copy set aside was shown again";
  std::vector<std::string> copies = Lines(Oructl({"log", "--file", Log(), "-n", "1"}).output);
  ASSERT_EQ(copies.size(), 1u);
  EXPECT_NE(copies[0].find("and one more"), std::string::npos);

  kill(follower.pid, SIGTERM);
  EXPECT_EQ(oru_testing::FinishProgram(follower), -SIGTERM);
}

// As journalctl -f and tail -f do: the last ten records, then each new one.
TEST_F(OructlLogTest, FollowStartsWithTheLastTenRecords) {
  std::string text;
  for (int i = 0; i < 50; ++i) {
    text += LogLine("11/22/26 10:00:00:000", "7", "INFO", "record " + std::to_string(i));
  }
  oru_testing::WriteFile(Log(), text);
  ChildProgram follower = oru_testing::StartProgram(ORU_ORUCTL, {"log", "-f", "--file", Log()});
  LineWaiter output(fileno(follower.output));
  std::vector<std::string> seen;
  ASSERT_TRUE(output.Until("record 49", seen));
  ASSERT_EQ(seen.size(), 10u);
  EXPECT_NE(seen[0].find("record 40"), std::string::npos) << seen[0];
  ASSERT_EQ(Oructl({"log", "write", "--file", Log(), "a new one"}).exit_code, 0);
  seen.clear();
  ASSERT_TRUE(output.Until("a new one", seen));
  kill(follower.pid, SIGTERM);
  EXPECT_EQ(oru_testing::FinishProgram(follower), -SIGTERM);
}

// A log named on the command line that is not there is a mistake to say,
// not an empty log; the updater's own log may not be written yet.
TEST_F(OructlLogTest, ALogNamedOnTheCommandLineThatIsNotThereIsAnErrorWithItsReason) {
  const std::string missing = sandbox_->Path("no-such-folder/x.log");
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"log", "--file", missing},
        std::vector<std::string>{"log", "sessions", "--file", missing}}) {
    oru_testing::ErrorCapture errors;
    ChildProgram tool = oru_testing::StartProgram(ORU_ORUCTL, command, -1, -1, errors.fd());
    const std::string shown = oru_testing::ReadAll(tool);
    EXPECT_EQ(oru_testing::FinishProgram(tool), 1) << command[1];
    EXPECT_EQ(shown, "");
    EXPECT_EQ(errors.Text(),
              "oructl: cannot read the log " + missing + ": No such file or directory\n");
  }
  const Result updater_log = Oructl({"log"});
  EXPECT_EQ(updater_log.exit_code, 0);
  EXPECT_EQ(updater_log.output, "no entries\n");
}

// log write that cannot open its log says why, in one line: a missing
// folder, a FIFO and a link at the log's name.
TEST_F(OructlLogTest, ALogWriteThatCannotOpenTheLogSaysWhy) {
  const std::string missing = sandbox_->Path("no-such-folder/x.log");
  const std::string fifo = sandbox_->Path("fifo.log");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string link = sandbox_->Path("link.log");
  oru_testing::WriteFile(sandbox_->Path("elsewhere"), "");
  ASSERT_EQ(symlink(sandbox_->Path("elsewhere").c_str(), link.c_str()), 0);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {missing, "No such file or directory"},
      {fifo, "it is not a regular file"},
      {link, "it is a symbolic link, which the log never follows"}};
  for (const auto& [file, reason] : cases) {
    oru_testing::ErrorCapture errors;
    ChildProgram tool = oru_testing::StartProgram(
        ORU_ORUCTL, {"log", "write", "--file", file, "hi"}, -1, -1, errors.fd());
    EXPECT_EQ(oru_testing::ReadAll(tool), "");
    EXPECT_EQ(oru_testing::FinishProgram(tool), 2) << file;
    EXPECT_EQ(errors.Text(), "oructl: cannot open the log " + file + ": " + reason + "\n");
  }
  EXPECT_EQ(oru_testing::ReadFile(sandbox_->Path("elsewhere")), "");
}

// The time zone in force for this process and the tools it starts.
class ScopedTimeZone {
public:
  explicit ScopedTimeZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    unsetenv("TZ");
    tzset();
  }
};

// The moment an RFC 3339 time with milliseconds and an offset names.
int64_t EpochMsOfRfc3339(const std::string& text) {
  struct tm parts = {};
  const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  int millis = 0;
  int hours = 0;
  int minutes = 0;
  char sign = '+';
  if (!rest || std::sscanf(rest, ".%3d%c%2d:%2d", &millis, &sign, &hours, &minutes) != 4) {
    ADD_FAILURE() << "not RFC 3339 with milliseconds and an offset: " << text;
    return 0;
  }
  const int64_t offset = (sign == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
  return (static_cast<int64_t>(timegm(&parts)) - offset) * 1000 + millis;
}

// A record in --json: its time as epoch milliseconds and as RFC 3339 with
// the zone's offset, both the moment the line's local time names in the
// zone in force; its six fields by name; its file and line; the schema.
TEST_F(OructlLogTest, JsonRecordsPlaceTheLinesLocalTimeInTheZoneInForce) {
  oru_testing::WriteFile(Log(), LogLine("11/24/26 04:01:12:568", "7", "INFO", "one") +
                                    LogLine("11/01/26 01:30:00:000", "7", "WARN", "twice"));
  struct Expected {
    const char* zone;
    const char* rfc3339;
    int64_t epoch_ms;
  };
  for (const Expected& expected :
       {Expected{"Europe/Berlin", "2026-11-24T04:01:12.568+01:00", 1795489272568},
        Expected{"America/New_York", "2026-11-24T04:01:12.568-05:00", 1795510872568}}) {
    const ScopedTimeZone zone(expected.zone);
    const Result result = Oructl({"log", "--file", Log(), "--json"});
    ASSERT_EQ(result.exit_code, 0);
    const auto records = nlohmann::json::parse(result.output); // strict: throws on any slip
    ASSERT_EQ(records.size(), 2u);
    const auto& first = records[0];
    EXPECT_EQ(first["schema"], 1);
    EXPECT_EQ(first["file"], Log());
    EXPECT_EQ(first["line"], 1);
    EXPECT_EQ(first["time_written"], "11/24/26 04:01:12:568");
    EXPECT_EQ(first["time"], expected.rfc3339) << expected.zone;
    EXPECT_EQ(first["epoch_ms"], expected.epoch_ms) << expected.zone;
    EXPECT_EQ(EpochMsOfRfc3339(first["time"]), first["epoch_ms"]);
    EXPECT_EQ(first["time_reading"], "one");
    EXPECT_EQ(first["fields"]["f2"], "UPDATER");
    EXPECT_EQ(first["fields"]["f3"], "SHARED");
    EXPECT_EQ(first["fields"].size(), 6u);
  }
  // 01:30 on the day summer time ends in New York is two moments: said.
  const ScopedTimeZone new_york("America/New_York");
  const auto records = nlohmann::json::parse(Oructl({"log", "--file", Log(), "--json"}).output);
  const auto& twice = records[1];
  EXPECT_EQ(twice["time_reading"], "fold");
  EXPECT_EQ(twice["time"], "2026-11-01T01:30:00.000-04:00");
  EXPECT_EQ(twice["later_time"], "2026-11-01T01:30:00.000-05:00");
  EXPECT_EQ(twice["later_epoch_ms"].get<int64_t>() - twice["epoch_ms"].get<int64_t>(), 3600000);
}

// Two logs written at once by processes that take turns, read as one view:
// every record of both, in time order, each marked with its log.
TEST_F(OructlLogTest, LogsNamedTogetherAreMergedInTimeOrder) {
  const std::string first = sandbox_->Path("first.log");
  const std::string second = sandbox_->Path("second.log");
  constexpr int kRecordsEach = 15;
  std::vector<ChildProgram> writers;
  for (const std::string& log : {first, second}) {
    const std::string script = "for i in $(seq 1 " + std::to_string(kRecordsEach) + "); do '" +
                               std::string(ORU_ORUCTL) + "' log write --file '" + log +
                               "' \"record $i\"; sleep 0.003; done";
    writers.push_back(oru_testing::StartProgram("/bin/sh", {"-c", script}));
  }
  for (ChildProgram& writer : writers) {
    EXPECT_EQ(oru_testing::FinishProgram(writer), 0);
  }
  const Result merged = Oructl({"log", "--file", first, "--file", second, "--json"});
  ASSERT_EQ(merged.exit_code, 0);
  const auto records = nlohmann::json::parse(merged.output);
  std::map<std::string, int> per_file;
  int64_t previous = 0;
  for (const auto& record : records) {
    EXPECT_GE(record["epoch_ms"].get<int64_t>(), previous) << record.dump();
    previous = record["epoch_ms"];
    ++per_file[record["file"]];
  }
  EXPECT_EQ(per_file[first], kRecordsEach);
  EXPECT_EQ(per_file[second], kRecordsEach);
  const std::vector<std::string> lines =
      Lines(Oructl({"log", "--file", first, "--file", second}).output);
  ASSERT_EQ(lines.size(), 2u * kRecordsEach);
  for (const std::string& line : lines) {
    EXPECT_TRUE(line.rfind("first.log: ", 0) == 0 || line.rfind("second.log: ", 0) == 0) << line;
  }
}

// --all: every log the preferences name, the updater's and the installer's
// here, in one view; -f follows one log only.
TEST_F(OructlLogTest, AllMergesEveryLogThePreferencesName) {
  std::string installer_log = Oructl({"prefs", "get", "InstallerLogFile"}).output;
  installer_log.pop_back();
  std::string updater_log = Oructl({"prefs", "get", "LogFile"}).output;
  updater_log.pop_back();
  ASSERT_EQ(Oructl({"prefs", "set", "LogFile", updater_log}).exit_code, 0);
  oru_testing::WriteFile(updater_log, LogLine("11/24/26 04:00:00:000", "7", "INFO", "second"));
  oru_testing::WriteFile(installer_log, LogLine("11/24/26 03:00:00:000", "8", "INFO", "first") +
                                            LogLine("11/24/26 05:00:00:000", "8", "INFO", "third"));
  const std::vector<std::string> lines = Lines(Oructl({"log", "--all"}).output);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].rfind("oruui.log: ", 0), 0u) << lines[0];
  EXPECT_NE(lines[0].find("first"), std::string::npos);
  EXPECT_EQ(lines[1].rfind("oruu.log: ", 0), 0u) << lines[1];
  EXPECT_NE(lines[2].find("third"), std::string::npos);
  EXPECT_EQ(Oructl({"log", "--all", "-f"}).exit_code, 2);
}

// log sessions over every log: the installer's runs, from its own log,
// drawn beside the launcher's on one axis; in the updater's log only the
// updater's records make runs.
TEST_F(OructlLogTest, SessionsOfAllLogsDrawTheInstallersRunsBesideTheLaunchers) {
  std::string installer_log = Oructl({"prefs", "get", "InstallerLogFile"}).output;
  installer_log.pop_back();
  std::string updater_log = Oructl({"prefs", "get", "LogFile"}).output;
  updater_log.pop_back();
  ASSERT_EQ(Oructl({"prefs", "set", "LogFile", updater_log}).exit_code, 0);
  oru_testing::WriteFile(
      updater_log,
      LogLine("11/22/26 10:00:00:000", "5", "INFO", ">>> Nuvex Updater Log Begin >>>") +
          LogLine("11/22/26 10:00:00:020", "5", "INFO",
                  "Oru Launcher  : Acquiring kSyncOruLauncherWaitKey Lock.") +
          LogLine("11/22/26 10:00:00:500", "9", "INFO", "a script", "SCRIPT") +
          LogLine("11/22/26 10:00:01:520", "5", "INFO", "<<< Nuvex Updater Log End <<<") + "\n\n");
  oru_testing::WriteFile(installer_log,
                         LogLine("11/22/26 09:59:59:000", "8", "INFO", "installing", "INSTALLER") +
                             LogLine("11/22/26 10:00:01:500", "8", "INFO", "posted", "INSTALLER"));
  const std::string trace_file = sandbox_->Path("all.trace.json");
  const Result text = Oructl({"log", "sessions", "--all", "--trace", trace_file});
  EXPECT_EQ(text.exit_code, 1) << "the installer's run has no end banner: " << text.output;
  const std::vector<std::string> lines = Lines(text.output);
  ASSERT_EQ(lines.size(), 2u) << text.output;
  EXPECT_EQ(lines[0].rfind("oruui.log run 8: 11/22/26 09:59:59:000 .. 11/22/26 10:00:01:500, 2 "
                           "records, UNFINISHED",
                           0),
            0u)
      << lines[0];
  EXPECT_EQ(lines[1].rfind("run 5: 11/22/26 10:00:00:000 .. 11/22/26 10:00:01:520, 3 records, "
                           "finished",
                           0),
            0u)
      << lines[1];

  const auto first_record = nlohmann::json::parse(Oructl({"log", "--all", "--json"}).output)[0];
  const auto trace = nlohmann::json::parse(oru_testing::ReadFile(trace_file));
  std::map<std::string, std::vector<nlohmann::json>> tracks;
  std::map<int, std::string> names;
  for (const auto& event : trace["traceEvents"]) {
    if (event["ph"] == "M") {
      names[event["pid"]] = event["args"]["name"];
    } else {
      tracks[names[event["pid"]]].push_back(event);
    }
  }
  ASSERT_EQ(tracks.size(), 2u) << trace.dump(1);
  const auto& installer = tracks["oruui.log run 8"];
  const auto& launcher = tracks["OruLauncher run 5"];
  ASSERT_EQ(installer.size(), 1u) << trace.dump(1);
  ASSERT_EQ(launcher.size(), 3u) << trace.dump(1);
  // One axis, the moments the records name, in microseconds since 1970.
  EXPECT_EQ(installer[0]["ts"].get<int64_t>(), first_record["epoch_ms"].get<int64_t>() * 1000);
  EXPECT_EQ(installer[0]["dur"], 2500000);
  EXPECT_EQ(launcher[1]["name"], "waiting for the installer");
  EXPECT_EQ(launcher[1]["ts"].get<int64_t>() - installer[0]["ts"].get<int64_t>(), 1020000);
  EXPECT_EQ(launcher[1]["dur"], 1500000);
}

// The follower is stopped while the log is rotated and then grows past the
// place where the follower stopped reading: once it runs again it still
// shows each new record once, from the start of the emptied file.
TEST_F(OructlLogTest, FollowSeesARotationItSleptThroughWhenTheLogHasGrownPastIt) {
  const size_t read_before = WriteALogDueForRotation();
  ChildProgram follower =
      oru_testing::StartProgram(ORU_ORUCTL, {"log", "-f", "-n", "1", "--file", Log()});
  LineWaiter output(fileno(follower.output));
  std::vector<std::string> seen;
  ASSERT_TRUE(output.Until("the last", seen));

  ASSERT_TRUE(SleepsSoon(follower.pid)) << "the follower never waited for the log to grow";
  ASSERT_EQ(kill(follower.pid, SIGSTOP), 0);
  ASSERT_EQ(Oructl({"log", "write", "--file", Log(), "after the rotation"}).exit_code, 0);
  // Another writer then appends more than the follower had read before.
  const std::string more = LogLine("11/22/26 10:00:02:000", "8", "INFO", std::string(200, 'y'));
  std::string appended;
  int more_lines = 0;
  while (appended.size() < read_before + 4096) {
    appended += more;
    ++more_lines;
  }
  appended += LogLine("11/22/26 10:00:03:000", "8", "INFO", "the end");
  const int fd = open(Log().c_str(), O_WRONLY | O_APPEND);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, appended.data(), appended.size()), static_cast<ssize_t>(appended.size()));
  close(fd);
  ASSERT_EQ(kill(follower.pid, SIGCONT), 0);

  seen.clear();
  ASSERT_TRUE(output.Until("the end", seen)) << "the follower stopped";
  int rotated = 0;
  int shown_more = 0;
  int shown_filler = 0;
  for (const std::string& line : seen) {
    rotated += line.find("after the rotation") != std::string::npos ? 1 : 0;
    shown_more += line.find("yyyyyyyy") != std::string::npos ? 1 : 0;
    shown_filler += line.find("xxxxxxxx") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(rotated, 1);
  EXPECT_EQ(shown_more, more_lines);
  EXPECT_EQ(shown_filler, 0);
  kill(follower.pid, SIGTERM);
  EXPECT_EQ(oru_testing::FinishProgram(follower), -SIGTERM);
}

TEST_F(OructlLogTest, SinceAndUntilTakeIsoDaysAndRelativeTimes) {
  oru_testing::WriteFile(Log(), LogLine(TimeAgo(3 * 3600), "1", "INFO", "three hours ago") +
                                    LogLine(TimeAgo(90 * 60), "2", "INFO", "ninety minutes ago") +
                                    LogLine(TimeAgo(60), "1", "INFO", "a minute ago"));
  const auto messages = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"log", "--file", Log(), "--json"});
    std::vector<std::string> found;
    for (const auto& record : nlohmann::json::parse(Oructl(arguments).output)) {
      found.push_back(record["message"]);
    }
    return found;
  };
  using Messages = std::vector<std::string>;
  EXPECT_EQ(messages({"--since", "-2h"}), (Messages{"ninety minutes ago", "a minute ago"}));
  EXPECT_EQ(messages({"--until", "-1h"}), (Messages{"three hours ago", "ninety minutes ago"}));
  EXPECT_EQ(messages({"--since", "-100m", "--until", "-10m"}), (Messages{"ninety minutes ago"}));
  EXPECT_EQ(messages({"--since", "yesterday"}).size(), 3u);
  EXPECT_EQ(messages({"--since", "tomorrow"}).size(), 0u);
  EXPECT_EQ(messages({"--until", "now"}).size(), 3u);
  EXPECT_EQ(messages({"--since", Formatted(2 * 3600, "%Y-%m-%dT%H:%M:%S", false)}),
            (Messages{"ninety minutes ago", "a minute ago"}));
  EXPECT_EQ(messages({"--since", Formatted(2 * 3600, "%Y-%m-%d %H:%M", false)}),
            (Messages{"ninety minutes ago", "a minute ago"}));
  EXPECT_EQ(messages({"--since", Formatted(2 * 3600, "%Y-%m-%dT%H:%M:%SZ", true)}),
            (Messages{"ninety minutes ago", "a minute ago"}));
  EXPECT_EQ(messages({"--since", Formatted(2 * 3600, "%Y-%m-%dT%H:%M:%S+00:00", true)}),
            (Messages{"ninety minutes ago", "a minute ago"}));
  EXPECT_EQ(messages({"--pid", "1"}), (Messages{"three hours ago", "a minute ago"}));
  for (const char* wrong : {"soonish", "-2x", "2026-13-01", "2026-11-22T10:00+25:00"}) {
    EXPECT_EQ(Oructl({"log", "--file", Log(), "--since", wrong}).exit_code, 2) << wrong;
  }
}

TEST_F(OructlLogTest, OnATerminalRecordsAreColouredByLevelAndPaged) {
  oru_testing::WriteFile(Log(), LogLine("11/22/26 10:00:00:000", "1", "INFO", "calm") +
                                    LogLine("11/22/26 10:00:01:000", "1", "WARN", "careful") +
                                    LogLine("11/22/26 10:00:02:000", "1", "ERROR", "broken"));
  const std::vector<std::string> pager = {"PAGER=sed s/^/paged:/", "TERM=xterm"};
  const std::string paged = OnATerminal({"log", "--file", Log()}, pager);
  EXPECT_NE(paged.find("paged:\x1b[1;33m11/22/26 10:00:01:000"), std::string::npos) << paged;
  EXPECT_NE(paged.find("paged:\x1b[1;31m11/22/26 10:00:02:000"), std::string::npos) << paged;
  EXPECT_NE(paged.find("paged:11/22/26 10:00:00:000"), std::string::npos) << paged;

  const std::string unpaged = OnATerminal({"log", "--no-pager", "--file", Log()}, pager);
  EXPECT_EQ(unpaged.find("paged:"), std::string::npos) << unpaged;
  EXPECT_NE(unpaged.find("\x1b[1;33m"), std::string::npos) << unpaged;

  const std::string plain =
      OnATerminal({"log", "--file", Log()}, {"PAGER=sed s/^/paged:/", "TERM=xterm", "NO_COLOR=1"});
  EXPECT_NE(plain.find("paged:11/22/26 10:00:01:000"), std::string::npos) << plain;
  EXPECT_EQ(plain.find("\x1b["), std::string::npos) << plain;

  // Not a terminal: neither colour nor pager.
  EXPECT_EQ(Oructl({"log", "--file", Log()}).output.find('\x1b'), std::string::npos);
}

// A pager that is not there: the records stay on the terminal, and no
// shell complains about a missing program instead.
TEST_F(OructlLogTest, APagerThatCannotStartLeavesTheRecordsOnTheTerminal) {
  oru_testing::WriteFile(Log(), LogLine("11/22/26 10:00:00:000", "7", "INFO", "kept on screen"));
  const std::string shown =
      OnATerminal({"log", "--file", Log()}, {"PAGER=no-such-pager", "NO_COLOR=1"});
  EXPECT_NE(shown.find("kept on screen"), std::string::npos) << shown;
  EXPECT_EQ(shown.find("not found"), std::string::npos) << shown;
}

// prefs list pages as log does.
TEST_F(OructlLogTest, PrefsListGoesThroughThePagerOnATerminal) {
  ASSERT_EQ(Oructl({"prefs", "set", "AutoCheck", "1"}).exit_code, 0);
  const std::string shown = OnATerminal({"prefs", "list"}, {"PAGER=sed s/^/paged:/"});
  EXPECT_NE(shown.find("paged:AutoCheck (bool) = 1"), std::string::npos) << shown;
  const std::string unpaged =
      OnATerminal({"prefs", "list", "--no-pager"}, {"PAGER=sed s/^/paged:/"});
  EXPECT_EQ(unpaged.find("paged:"), std::string::npos) << unpaged;
  EXPECT_NE(unpaged.find("AutoCheck (bool) = 1"), std::string::npos) << unpaged;
}

TEST_F(OructlLogTest, WriteAppendsWordsOrEachLineOfInputThroughTheLibrary) {
  ASSERT_EQ(Oructl({"log", "write", "--file", Log(), "--level", "WARN", "two", "words"}).exit_code,
            0);
  int input[2];
  ASSERT_EQ(pipe(input), 0);
  ASSERT_EQ(write(input[1], "first line\nsecond line\n", 23), 23);
  close(input[1]);
  ASSERT_EQ(Oructl({"log", "write", "--file", Log(), "--tag", "SCRIPT"}, input[0]).exit_code, 0);
  close(input[0]);
  const auto records = nlohmann::json::parse(Oructl({"log", "--file", Log(), "--json"}).output);
  std::vector<std::string> messages;
  for (const auto& record : records) {
    messages.push_back(record["message"]);
  }
  // The library may open the log with its header block; the records follow it.
  ASSERT_GE(messages.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(messages.end() - 3, messages.end()),
            (std::vector<std::string>{"two words", "first line", "second line"}));
  const auto& last = records[records.size() - 1];
  EXPECT_EQ(last["level"], "INFO");
  EXPECT_EQ(last["fields"]["f2"], "SCRIPT");
  EXPECT_EQ(records[records.size() - 3]["level"], "WARN");
  // Records of other programs make no launcher run.
  EXPECT_EQ(Oructl({"log", "sessions", "--file", Log()}).output, "no entries\n");

  EXPECT_EQ(Oructl({"log", "write", "--file", Log(), "--level", "LOUD", "x"}).exit_code, 2);
  EXPECT_EQ(
      Oructl({"log", "write", "--file", sandbox_->Path("no/such/folder/x.log"), "x"}).exit_code, 2);
}

TEST_F(OructlLogTest, WritersInManyProcessesLoseAndTearNothing) {
  constexpr int kWriters = 8;
  constexpr int kLines = 50;
  std::vector<ChildProgram> writers;
  for (int writer = 0; writer < kWriters; ++writer) {
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    std::string text;
    for (int line = 0; line < kLines; ++line) {
      text += "writer " + std::to_string(writer) + " line " + std::to_string(line) + "\n";
    }
    ASSERT_EQ(write(input[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(input[1]);
    writers.push_back(
        oru_testing::StartProgram(ORU_ORUCTL, {"log", "write", "--file", Log()}, input[0]));
    close(input[0]);
  }
  for (ChildProgram& writer : writers) {
    EXPECT_EQ(oru_testing::FinishProgram(writer), 0);
  }
  const Result read = Oructl({"log", "--file", Log(), "--json"});
  ASSERT_EQ(read.exit_code, 0) << "a torn line would not parse";
  std::vector<int> next(kWriters, 0);
  for (const auto& record : nlohmann::json::parse(read.output)) {
    int writer = -1;
    int line = -1;
    if (std::sscanf(record["message"].get<std::string>().c_str(), "writer %d line %d", &writer,
                    &line) == 2) {
      ASSERT_EQ(line, next[writer]) << "writer " << writer << " lost or reordered a line";
      ++next[writer];
    }
  }
  EXPECT_EQ(next, std::vector<int>(kWriters, kLines));
}

TEST_F(OructlLogTest, SessionTimelineShowsEachPhaseWithItsDuration) {
  oru_testing::WriteFile(
      Log(), LogLine("11/22/26 10:00:00:000", "5", "INFO", ">>> Nuvex Updater Log Begin >>>") +
                 LogLine("11/22/26 10:00:00:020", "5", "INFO",
                         "Oru Launcher  : Acquiring kSyncOruLauncherWaitKey Lock.") +
                 LogLine("11/22/26 10:00:00:500", "9", "INFO", "a script", "SCRIPT") +
                 LogLine("11/22/26 10:00:01:520", "5", "INFO",
                         "Oru Launcher : Zelto executable path is  = /z") +
                 LogLine("11/22/26 10:00:01:524", "5", "INFO", "<<< Nuvex Updater Log End <<<") +
                 "\n\n");
  const Result text = Oructl({"log", "sessions", "--timeline", "--file", Log()});
  EXPECT_EQ(text.exit_code, 0);
  const std::vector<std::string> lines = Lines(text.output);
  ASSERT_EQ(lines.size(), 4u) << text.output;
  EXPECT_EQ(lines[0].rfind("run 5: 11/22/26 10:00:00:000 .. 11/22/26 10:00:01:524, 4 records, "
                           "finished",
                           0),
            0u);
  EXPECT_EQ(lines[1].rfind("  start-up ", 0), 0u) << lines[1];
  EXPECT_EQ(lines[1].substr(lines[1].size() - 7), "  20 ms");
  EXPECT_EQ(lines[2].rfind("  waiting for the installer ", 0), 0u) << lines[2];
  EXPECT_EQ(lines[2].substr(lines[2].size() - 9), "  1500 ms");
  EXPECT_EQ(lines[3].rfind("  hand-over ", 0), 0u) << lines[3];
  EXPECT_EQ(lines[3].substr(lines[3].size() - 6), "  4 ms");

  const auto json = nlohmann::json::parse(
      Oructl({"log", "sessions", "--timeline", "--json", "--file", Log()}).output);
  ASSERT_EQ(json.size(), 1u);
  EXPECT_EQ(json[0]["duration_ms"], 1524);
  ASSERT_EQ(json[0]["phases"].size(), 3u);
  EXPECT_EQ(json[0]["phases"][1]["name"], "waiting for the installer");
  EXPECT_EQ(json[0]["phases"][1]["start_ms"], 20);
  EXPECT_EQ(json[0]["phases"][1]["duration_ms"], 1500);
}

} // namespace
