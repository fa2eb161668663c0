// Every scenario of oru-installer-sim against the real launcher.
#include "launcher/handover.h"
#include "locks/updater_lock.h"
#include "platform/paths.h"
#include "testing/child_process.h"
#include "testing/namespaces.h"
#include "testing/sandbox.h"
#include "tests/e2e/e2e_fixture.h"
#include "tests/e2e/e2e_support.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

class InstallerSimTest : public e2e::E2eTest {
protected:
  // Runs the simulator with --json; its report and exit status.
  std::string Run(std::vector<std::string> arguments, int& exit_code) {
    arguments.insert(arguments.begin(), {"--launcher", ORU_LAUNCHER_EXE, "--json"});
    oru_testing::ChildProgram sim = oru_testing::StartProgram(ORU_INSTALLER_SIM, arguments);
    const std::string report = oru_testing::ReadAll(sim);
    exit_code = oru_testing::FinishProgram(sim);
    return report;
  }

  // Runs a hand-over whose post comes 20 ms after the launcher waits, with
  // --trace; the trace file, or "" when the run failed.
  std::string TraceOfAHandOver() {
    int exit_code = -1;
    const std::string file = sandbox_->Path("handover.trace.json");
    const std::string report =
        Run({"--scenario", "post-after", "--post-delay", "20", "--trace", file}, exit_code);
    EXPECT_EQ(exit_code, 0) << report;
    return exit_code == 0 ? file : std::string();
  }

  static bool Says(const std::string& report, const std::string& field) {
    return report.find(field) != std::string::npos;
  }
};

TEST_F(InstallerSimTest, PostNowEndsWithZeltoStarted) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  int exit_code = -1;
  const std::string report = Run({"--scenario", "post-now"}, exit_code);
  EXPECT_EQ(exit_code, 0) << report;
  EXPECT_TRUE(Says(report, "\"outcome\":\"zelto-started\"")) << report;
  EXPECT_TRUE(Says(report, "\"launcher_exit\":0")) << report;
  EXPECT_TRUE(zelto.WaitForStart());
  EXPECT_TRUE(e2e::NamedSemaphores().empty());
  EXPECT_FALSE(e2e::SetExists(UpdaterLockWaitKey(kSyncOruLauncherWaitKey)));
  EXPECT_FALSE(e2e::SetExists(UpdaterLockWaitKey(kSyncUInstPostSelfUpdateWaitKey)));
}

// A trace-event file as the format asks: an object whose "traceEvents" are
// objects with a name, a phase, numeric times and integer process and
// thread ids; complete events ("X") have a length of 0 or more.
void ExpectValidTrace(const nlohmann::json& trace) {
  ASSERT_TRUE(trace.is_object());
  ASSERT_TRUE(trace["traceEvents"].is_array());
  for (const auto& event : trace["traceEvents"]) {
    ASSERT_TRUE(event["name"].is_string()) << event;
    ASSERT_TRUE(event["ph"] == "X" || event["ph"] == "M") << event;
    EXPECT_TRUE(event["pid"].is_number_integer()) << event;
    EXPECT_TRUE(event["tid"].is_number_integer()) << event;
    if (event["ph"] == "X") {
      ASSERT_TRUE(event["ts"].is_number()) << event;
      ASSERT_TRUE(event["dur"].is_number()) << event;
      EXPECT_GE(event["ts"].get<double>(), 0.0) << event;
      EXPECT_GE(event["dur"].get<double>(), 0.0) << event;
    }
  }
}

TEST_F(InstallerSimTest, TraceHoldsTheFiveSpansOfAHandOverInOrder) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  const std::string file = TraceOfAHandOver();
  ASSERT_FALSE(file.empty());
  const nlohmann::json trace = nlohmann::json::parse(oru_testing::ReadFile(file));
  ExpectValidTrace(trace);
  std::vector<std::string> names;
  std::vector<double> starts;
  std::vector<double> ends;
  for (const auto& event : trace["traceEvents"]) {
    if (event["ph"] == "X") {
      names.push_back(event["name"]);
      starts.push_back(event["ts"]);
      ends.push_back(event["ts"].get<double>() + event["dur"].get<double>());
    }
  }
  EXPECT_EQ(names,
            (std::vector<std::string>{"installer lock held", "launcher start to blocked wait",
                                      "waiting for the installer's post", "post to launcher exit",
                                      "Zelto's first instruction"}));
  ASSERT_EQ(starts.size(), 5u);
  EXPECT_TRUE(std::is_sorted(starts.begin(), starts.end()));
  // Each launcher step begins where the one before it ended (to the
  // nanosecond; the sums are in floating point).
  EXPECT_NEAR(starts[2], ends[1], 0.001);
  EXPECT_NEAR(starts[3], ends[2], 0.001);
  EXPECT_GE(ends[2] - starts[2], 20000.0) << "the wait holds the post delay";
  // Zelto starts after the post, while the installer still holds its lock.
  EXPECT_GE(starts[4], starts[3]);
  EXPECT_LE(ends[1], ends[0]);
  EXPECT_EQ(trace["otherData"]["outcome"], "zelto-started");
}

TEST_F(InstallerSimTest, TraceOfAnInstallerThatNeverPostsHasNoZelto) {
  int exit_code = -1;
  const std::string file = sandbox_->Path("never.trace.json");
  Run({"--scenario", "never-post", "--timeout", "300", "--trace", file}, exit_code);
  const nlohmann::json trace = nlohmann::json::parse(oru_testing::ReadFile(file));
  ExpectValidTrace(trace);
  for (const auto& event : trace["traceEvents"]) {
    EXPECT_NE(event["name"], "Zelto's first instruction");
  }
  EXPECT_EQ(trace["otherData"]["scenario"], "never-post");
}

TEST_F(InstallerSimTest, PostAfterADelayEndsWithZeltoStarted) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  int exit_code = -1;
  const std::string report = Run({"--scenario", "post-after", "--post-delay", "300"}, exit_code);
  EXPECT_EQ(exit_code, 0) << report;
  EXPECT_TRUE(Says(report, "\"outcome\":\"zelto-started\"")) << report;
  EXPECT_TRUE(zelto.WaitForStart());
}

TEST_F(InstallerSimTest, NeverPostReportsTheLauncherStillWaitingAndItsEndAfterwards) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  int exit_code = -1;
  const std::string report = Run({"--scenario", "never-post", "--timeout", "1500"}, exit_code);
  EXPECT_EQ(exit_code, 0) << report;
  EXPECT_TRUE(Says(report, "\"outcome\":\"launcher-still-waiting\"")) << report;
  EXPECT_TRUE(Says(report, "gave up without starting Zelto")) << report;
  EXPECT_TRUE(Says(report, "\"posted\":false")) << report;
  EXPECT_TRUE(Says(report, "\"post_to_exit_ms\":null")) << report;
  EXPECT_FALSE(Says(report, "\"installer_gone_to_exit_ms\":null")) << report;
  EXPECT_FALSE(zelto.Started());
}

TEST_F(InstallerSimTest, InstallerDyingWhileTheLauncherWaitsEndsTheWait) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  int exit_code = -1;
  const std::string report = Run({"--scenario", "die-holding"}, exit_code);
  EXPECT_EQ(exit_code, 0) << report;
  EXPECT_TRUE(Says(report, "\"outcome\":\"installer-died\"")) << report;
  EXPECT_TRUE(Says(report, "\"launcher_exit\":0")) << report;
  EXPECT_TRUE(Says(report, "\"posted\":false")) << report;
  EXPECT_TRUE(Says(report, "\"post_to_exit_ms\":null")) << report;
  EXPECT_FALSE(zelto.Started());
  // Said in words, nothing was posted: the time runs from the installer's death.
  oru_testing::ChildProgram text = oru_testing::StartProgram(
      ORU_INSTALLER_SIM, {"--launcher", ORU_LAUNCHER_EXE, "--scenario", "die-holding"});
  const std::string said = oru_testing::ReadAll(text);
  EXPECT_EQ(oru_testing::FinishProgram(text), 0) << said;
  EXPECT_NE(said.find("; not posted; finished "), std::string::npos) << said;
  EXPECT_NE(said.find(" ms after the installer died)"), std::string::npos) << said;
  EXPECT_EQ(said.find("after the post"), std::string::npos) << said;
}

// A launcher that exits without ever waiting is seen to exit, not waited
// for until the time-out runs out.
TEST_F(InstallerSimTest, ALauncherThatExitsWithoutWaitingIsSeenExiting) {
  oru_testing::ChildProgram sim = oru_testing::StartProgram(
      ORU_INSTALLER_SIM, {"--launcher", "/bin/false", "--timeout", "600000", "--json"});
  const std::string report = oru_testing::ReadAll(sim);
  EXPECT_EQ(oru_testing::FinishProgram(sim), 1) << report;
  EXPECT_TRUE(Says(report, "\"outcome\":\"launcher-never-waited\"")) << report;
  EXPECT_TRUE(Says(report, "the launcher exited before it waited")) << report;
  EXPECT_TRUE(Says(report, "\"launcher_exit\":1")) << report;
}

// Installed as the package lays it out, the simulator finds the launcher
// without being told where it is.
TEST_F(InstallerSimTest, WithoutLauncherItStartsTheInstalledOne) {
  const std::string prefix = sandbox_->Path("usr");
  ASSERT_EQ(system(("mkdir -p '" + prefix + "/bin' '" + prefix + "/libexec/orulauncher' && cp '" +
                    ORU_INSTALLER_SIM + "' '" + prefix + "/bin/' && cp '" + ORU_LAUNCHER_EXE +
                    "' '" + prefix + "/libexec/orulauncher/OruLauncher'")
                       .c_str()),
            0);
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  oru_testing::ChildProgram sim =
      oru_testing::StartProgram(prefix + "/bin/oru-installer-sim", {"--json"});
  const std::string report = oru_testing::ReadAll(sim);
  EXPECT_EQ(oru_testing::FinishProgram(sim), 0) << report;
  EXPECT_TRUE(Says(report, "\"outcome\":\"zelto-started\"")) << report;
  EXPECT_TRUE(zelto.WaitForStart());
}

TEST_F(InstallerSimTest, TwoLaunchersAtOnceTheSecondHandsBack) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  int exit_code = -1;
  const std::string report = Run({"--scenario", "two-launchers"}, exit_code);
  EXPECT_EQ(exit_code, 0) << report;
  EXPECT_TRUE(Says(report, "\"outcome\":\"second-handed-back\"")) << report;
  EXPECT_TRUE(Says(report, "\"second_launcher_exit\":0")) << report;
  EXPECT_TRUE(zelto.WaitForStart());
}

// What the trace engine of Chrome's DevTools Performance panel made of a
// trace file (scripts/setup installs it): the trace's bounds, and each
// process with its name and spans. Null when the engine could not read it.
nlohmann::json LoadedByTheTraceEngine(const std::string& file) {
  const oru_testing::ErrorCapture errors;
  oru_testing::ChildProgram node =
      oru_testing::StartProgram(ORU_NODE, {ORU_TRACE_ENGINE_LOADER, file}, -1, -1, errors.fd());
  const std::string said = oru_testing::ReadAll(node);
  const int exit_code = oru_testing::FinishProgram(node);
  EXPECT_EQ(exit_code, 0) << "node " << ORU_NODE << ": " << errors.Text()
                          << "(scripts/setup installs node and the trace engine)";
  return exit_code == 0 ? nlohmann::json::parse(said) : nlohmann::json();
}

// Every span lies within the bounds the engine gave the trace: a span
// outside them is not drawn where it happened.
void ExpectEverySpanWithinTheBounds(const nlohmann::json& loaded) {
  const double min = loaded["bounds"]["min"];
  const double max = loaded["bounds"]["max"];
  for (const auto& process : loaded["processes"]) {
    for (const auto& span : process["spans"]) {
      EXPECT_GE(span["ts"].get<double>(), min) << process["name"] << " " << span;
      EXPECT_LE(span["ts"].get<double>() + span["dur"].get<double>(), max)
          << process["name"] << " " << span;
    }
  }
}

// The span of a process named `name` in what the engine loaded; null if none.
nlohmann::json SpanOf(const nlohmann::json& process, const std::string& name) {
  for (const auto& span : process["spans"]) {
    if (span["name"] == name) {
      return span;
    }
  }
  return nlohmann::json();
}

TEST_F(InstallerSimTest, TheSimulatorsTraceLoadsInTheTraceEngineWithEverySpanInItsBounds) {
  e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
  const std::string file = TraceOfAHandOver();
  ASSERT_FALSE(file.empty());
  const nlohmann::json loaded = LoadedByTheTraceEngine(file);
  ASSERT_FALSE(loaded.is_null());
  ASSERT_EQ(loaded["processes"].size(), 3u) << loaded.dump(1);
  EXPECT_EQ(loaded["processes"][0]["name"], "installer (oru-installer-sim)");
  EXPECT_EQ(loaded["processes"][1]["name"], "OruLauncher");
  EXPECT_FALSE(SpanOf(loaded["processes"][0], "installer lock held").is_null()) << loaded.dump(1);
  EXPECT_EQ(loaded["processes"][1]["spans"].size(), 3u) << loaded.dump(1);
  ExpectEverySpanWithinTheBounds(loaded);
}

class TwoLaunchersLogTest : public InstallerSimTest {
protected:
  // Runs the two-launchers scenario and draws the log it left with
  // oructl log sessions --trace; the trace file.
  std::string TraceOfTheLog() {
    e2e::FakeZelto zelto(ZeltoPath(), ORU_FAKE_ZELTO);
    int exit_code = -1;
    started_s_ = time(nullptr);
    const std::string report = Run({"--scenario", "two-launchers"}, exit_code);
    ended_s_ = time(nullptr);
    EXPECT_EQ(exit_code, 0) << report;
    EXPECT_TRUE(zelto.WaitForStart());
    const std::string file = sandbox_->Path("runs.trace.json");
    const oru_testing::ErrorCapture errors;
    oru_testing::ChildProgram sessions = oru_testing::StartProgram(
        ORU_ORUCTL, {"log", "sessions", "--trace", file}, -1, -1, errors.fd());
    const std::string said = oru_testing::ReadAll(sessions);
    EXPECT_EQ(oru_testing::FinishProgram(sessions), 0) << said << errors.Text();
    return file;
  }

  // The whole seconds of the clock when the scenario started and ended.
  int64_t started_s_ = 0;
  int64_t ended_s_ = 0;
};

// The two launchers as the log has them: one track a run on one time axis
// (the moments the records name, in microseconds since 1970), the second run
// inside the first's wait for the installer.
TEST_F(TwoLaunchersLogTest, TheLogsTraceShowsTheSecondRunInsideTheFirstsWait) {
  const nlohmann::json trace = nlohmann::json::parse(oru_testing::ReadFile(TraceOfTheLog()));
  ExpectValidTrace(trace);
  std::map<int, std::vector<nlohmann::json>> tracks;
  for (const auto& event : trace["traceEvents"]) {
    if (event["ph"] == "X") {
      tracks[event["pid"].get<int>()].push_back(event);
    }
  }
  ASSERT_EQ(tracks.size(), 2u) << trace.dump(1);
  const std::vector<nlohmann::json>& first = tracks.begin()->second;
  const std::vector<nlohmann::json>& second = tracks.rbegin()->second;
  ASSERT_EQ(first.size(), 3u) << trace.dump(1);
  const nlohmann::json& wait = first[1];
  EXPECT_EQ(wait["name"], "waiting for the installer");
  const int64_t wait_from = wait["ts"];
  const int64_t wait_to = wait_from + wait["dur"].get<int64_t>();
  for (const auto& span : second) {
    EXPECT_GE(span["ts"].get<int64_t>(), wait_from) << span;
    EXPECT_LE(span["ts"].get<int64_t>() + span["dur"].get<int64_t>(), wait_to) << span;
  }
  // The axis is the records' own moments since 1970, which the run's clock
  // readings bracket.
  EXPECT_GE(first[0]["ts"].get<int64_t>(), started_s_ * 1000000);
  EXPECT_LT(first[0]["ts"].get<int64_t>(), (ended_s_ + 1) * 1000000);
}

TEST_F(TwoLaunchersLogTest, TheLogsTraceLoadsInTheTraceEngineWithBothRunsOnOneAxis) {
  const nlohmann::json loaded = LoadedByTheTraceEngine(TraceOfTheLog());
  ASSERT_FALSE(loaded.is_null());
  ASSERT_EQ(loaded["processes"].size(), 2u) << loaded.dump(1);
  const nlohmann::json& first = loaded["processes"][0];
  const nlohmann::json& second = loaded["processes"][1];
  EXPECT_EQ(first["name"].get<std::string>().rfind("OruLauncher run ", 0), 0u) << first["name"];
  EXPECT_EQ(second["name"].get<std::string>().rfind("OruLauncher run ", 0), 0u) << second["name"];
  const nlohmann::json wait = SpanOf(first, "waiting for the installer");
  ASSERT_FALSE(wait.is_null()) << loaded.dump(1);
  ASSERT_FALSE(second["spans"].empty()) << loaded.dump(1);
  const double wait_from = wait["ts"];
  const double wait_to = wait_from + wait["dur"].get<double>();
  for (const auto& span : second["spans"]) {
    EXPECT_GE(span["ts"].get<double>(), wait_from) << span;
    EXPECT_LE(span["ts"].get<double>() + span["dur"].get<double>(), wait_to) << span;
  }
  ExpectEverySpanWithinTheBounds(loaded);
}

TEST_F(InstallerSimTest, ZeltoMissingReportsAHandBack) {
  ASSERT_TRUE(platform::CreateDirectoryTree(sandbox_->local_data()));
  int exit_code = -1;
  const std::string report = Run({}, exit_code);
  EXPECT_EQ(exit_code, 1) << report;
  EXPECT_TRUE(Says(report, "\"outcome\":\"handed-back\"")) << report;
}

TEST_F(InstallerSimTest, BadUsageIsRefusedWithExitTwo) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--bogus"}, std::vector<std::string>{"--scenario", "nonsense"},
        std::vector<std::string>{"--timeout", "abc"}}) {
    int exit_code = -1;
    Run(arguments, exit_code);
    EXPECT_EQ(exit_code, 2);
  }
  oru_testing::ChildProgram no_launcher = oru_testing::StartProgram(ORU_INSTALLER_SIM, {});
  EXPECT_EQ(oru_testing::FinishProgram(no_launcher), 2);
  oru_testing::ChildProgram help = oru_testing::StartProgram(ORU_INSTALLER_SIM, {"--help"});
  const std::string text = oru_testing::ReadAll(help);
  EXPECT_EQ(oru_testing::FinishProgram(help), 0);
  EXPECT_EQ(text.rfind("Usage: oru-installer-sim", 0), 0u);
  EXPECT_NE(text.find("two-launchers"), std::string::npos);
}

// Each mistake: exit 2 at once, one exact line on standard error, and
// nothing started (no launcher, no set of the hand-over made).
TEST_F(InstallerSimTest, EachMistakeIsOneExactLineAndExitTwoBeforeAnythingStarts) {
  const std::string missing = sandbox_->Path("no-such-launcher");
  const std::string not_executable = sandbox_->Path("plain-file");
  oru_testing::WriteFile(not_executable, "");
  const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
      {{"--launcher", missing}, "the launcher '" + missing + "' does not exist"},
      {{"--launcher", not_executable}, "the launcher '" + not_executable + "' is not executable"},
      {{"--launcher", ORU_LAUNCHER_EXE, "--scenario", "post-nwo"},
       "unknown scenario 'post-nwo' (did you mean 'post-now'?)"},
      {{"--launcher", ORU_LAUNCHER_EXE, "--timeout", "1.5s"},
       "--timeout takes whole milliseconds, 1 or more, not '1.5s'"},
      {{"--launcher", ORU_LAUNCHER_EXE, "--post-delay", "-3"},
       "--post-delay takes whole milliseconds, 0 or more, not '-3'"},
      {{"--launcher=" + std::string(ORU_LAUNCHER_EXE), "--scenaro", "post-now"},
       "unknown option '--scenaro' (did you mean '--scenario'?)"},
      {{},
       "no launcher is installed at '" + platform::DirName(ORU_INSTALLER_SIM) +
           "/../libexec/orulauncher/OruLauncher'; give --launcher PATH"},
  };
  for (const auto& [arguments, said] : mistakes) {
    const oru_testing::ErrorCapture errors;
    oru_testing::ChildProgram sim =
        oru_testing::StartProgram(ORU_INSTALLER_SIM, arguments, -1, -1, errors.fd());
    EXPECT_EQ(oru_testing::ReadAll(sim), "");
    EXPECT_EQ(oru_testing::FinishProgram(sim), 2) << said;
    EXPECT_EQ(errors.Text(), "oru-installer-sim: " + said + " (see oru-installer-sim --help)\n");
    EXPECT_FALSE(e2e::SetExists(UpdaterLockKey(kUpdateInstallerKey))) << said;
  }
}

TEST_F(InstallerSimTest, AStepThatDidNotHappenHasNoDurationRatherThanANegativeOne) {
  // No Zelto and a launcher that exits at once without waiting: /bin/true.
  int exit_code = -1;
  oru_testing::ChildProgram sim =
      oru_testing::StartProgram(ORU_INSTALLER_SIM, {"--launcher", "/bin/true", "--timeout", "300"});
  const std::string text = oru_testing::ReadAll(sim);
  exit_code = oru_testing::FinishProgram(sim);
  EXPECT_EQ(exit_code, 1) << text;
  EXPECT_EQ(text.find("-1.000"), std::string::npos) << text;
  EXPECT_NE(text.find("it never waited"), std::string::npos) << text;
  oru_testing::ChildProgram json = oru_testing::StartProgram(
      ORU_INSTALLER_SIM, {"--launcher", "/bin/true", "--timeout", "300", "--json"});
  const std::string report = oru_testing::ReadAll(json);
  oru_testing::FinishProgram(json);
  EXPECT_NE(report.find("\"launcher_blocked_ms\":null"), std::string::npos) << report;
}

} // namespace
