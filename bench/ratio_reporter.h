// A console reporter that, after the usual table, prints every benchmark
// beside the floor of its group: benchmarks are named "group/variant", and
// the variant "floor" is the raw cost measured in the same run.
#ifndef ORU_BENCH_RATIO_REPORTER_H
#define ORU_BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>
#include <map>
#include <string>
#include <vector>

namespace oru_bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

private:
  struct Figure {
    std::string variant;
    double seconds_per_iteration;
    double bytes_per_second;
    double items_per_second;
  };
  std::map<std::string, std::vector<Figure>> groups_;
  std::vector<std::string> order_;
};

// Runs every registered benchmark with the ratio reporter; for main().
int RunWithRatios(int argc, char** argv);

} // namespace oru_bench

#endif // ORU_BENCH_RATIO_REPORTER_H
