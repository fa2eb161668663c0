#include "bench/ratio_reporter.h"

#include <cstdio>

namespace oru_bench {

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run& run : runs) {
    // With repetitions, the median stands for the benchmark; without, the
    // single run does.
    const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
    const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
    if (run.error_occurred || !(single || median)) {
      continue;
    }
    const std::string name = run.benchmark_name();
    const size_t slash = name.find('/');
    const std::string group = name.substr(0, slash);
    std::string variant = slash == std::string::npos ? name : name.substr(slash + 1);
    variant = variant.substr(0, variant.find('/'));
    variant = variant.substr(0, variant.find("_median"));
    const double seconds =
        run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
    Figure figure{variant, seconds, 0.0, 0.0};
    const auto bytes = run.counters.find("bytes_per_second");
    if (bytes != run.counters.end()) {
      figure.bytes_per_second = bytes->second;
    }
    const auto items = run.counters.find("items_per_second");
    if (items != run.counters.end()) {
      figure.items_per_second = items->second;
    }
    if (groups_.find(group) == groups_.end()) {
      order_.push_back(group);
    }
    groups_[group].push_back(figure);
  }
}

void RatioReporter::Finalize() {
  ConsoleReporter::Finalize();
  std::printf("\n%-28s %-22s %14s %12s %10s\n", "group", "variant", "time/iter", "MB/s (1e6)",
              "x floor");
  for (const std::string& group : order_) {
    const std::vector<Figure>& figures = groups_[group];
    double floor = 0.0;
    for (const Figure& figure : figures) {
      if (figure.variant == "floor") {
        floor = figure.seconds_per_iteration;
      }
    }
    for (const Figure& figure : figures) {
      char ratio[32] = "-";
      if (floor > 0.0) {
        std::snprintf(ratio, sizeof ratio, "%.2f", figure.seconds_per_iteration / floor);
      }
      char rate[32] = "-";
      if (figure.bytes_per_second > 0.0) {
        std::snprintf(rate, sizeof rate, "%.1f", figure.bytes_per_second / 1e6);
      }
      std::printf("%-28s %-22s %11.3f us %12s %10s\n", group.c_str(), figure.variant.c_str(),
                  figure.seconds_per_iteration * 1e6, rate, ratio);
    }
  }
  std::fflush(stdout);
}

int RunWithRatios(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

} // namespace oru_bench
