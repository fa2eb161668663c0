// "oructl log -n 10" on a 50 MiB log, as a person waits for it: whole
// processes, wall time and peak memory, the median of many runs, beside the
// floor of "tail -n 10" on the same file (the same ten lines found from the
// end, with no records parsed). The goal is under 0.1 s and 20 MB.
#include "bench/figures_json.h"
#include "testing/sandbox.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kRuns = 21;
constexpr size_t kLogBytes = 50u * 1024 * 1024;

struct Run {
  double wall_ms;
  long peak_kib;
};

long long NowNs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

// One run of `argv`, its output thrown away.
Run Measure(const std::vector<std::string>& argv) {
  const long long started = NowNs();
  const pid_t child = fork();
  if (child == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    std::vector<char*> words;
    for (const std::string& word : argv) {
      words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    execvp(words[0], words.data());
    _exit(127);
  }
  int status = 0;
  struct rusage usage = {};
  wait4(child, &status, 0, &usage);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "%s failed\n", argv[0].c_str());
  }
  return {static_cast<double>(NowNs() - started) / 1e6, usage.ru_maxrss};
}

Run Median(std::vector<Run> runs) {
  std::sort(runs.begin(), runs.end(),
            [](const Run& a, const Run& b) { return a.wall_ms < b.wall_ms; });
  std::vector<long> peaks;
  for (const Run& run : runs) {
    peaks.push_back(run.peak_kib);
  }
  std::sort(peaks.begin(), peaks.end());
  return {runs[runs.size() / 2].wall_ms, peaks[peaks.size() / 2]};
}

void WriteLog(const std::string& path) {
  std::string text;
  const std::string line = "11/22/26 10:00:00:000 | [INFO] |  | UPDATER | SHARED |  |  |  | 4242 | "
                           "Oru Launcher : a record of the kind the launcher writes, padded out to "
                           "a typical length for the shared log\n";
  while (text.size() < kLogBytes) {
    text += line;
  }
  oru_testing::WriteFile(path, text);
}

} // namespace

int main(int argc, char** argv) {
  oru_testing::Sandbox sandbox;
  const std::string log = sandbox.Path("oruu.log");
  WriteLog(log);
  std::vector<Run> project;
  std::vector<Run> floor;
  // Interleaved, so that a slow moment of the machine weighs on both.
  for (int run = 0; run < kRuns; ++run) {
    project.push_back(Measure({ORU_ORUCTL, "log", "-n", "10", "--file", log}));
    floor.push_back(Measure({"tail", "-n", "10", log}));
  }
  const Run ours = Median(project);
  const Run tail = Median(floor);
  std::printf("\noructl log -n 10 on a 50 MiB log, median of %d runs:\n", kRuns);
  std::printf("%-28s %12s %14s\n", "variant", "wall ms", "peak KiB");
  std::printf("%-28s %12.2f %14ld\n", "log_tail/floor (tail -n 10)", tail.wall_ms, tail.peak_kib);
  std::printf("%-28s %12.2f %14ld   ratio %.2fx; goal < 100 ms and < 20 MB\n", "log_tail/oructl",
              ours.wall_ms, ours.peak_kib, ours.wall_ms / tail.wall_ms);
  const std::string json = oru_bench::JsonPathArgument(argc, argv);
  const std::vector<oru_bench::Figure> figures = {
      {"log_tail/floor", tail.wall_ms * 1000, tail.peak_kib},
      {"log_tail/oructl", ours.wall_ms * 1000, ours.peak_kib}};
  return json.empty() || oru_bench::WriteFigures(json, figures) ? 0 : 1;
}
