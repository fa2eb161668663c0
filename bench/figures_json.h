// Figures of the benchmarks that time whole processes, written as JSON in
// the shape Google Benchmark's --benchmark_out gives, so that one summary
// reads every benchmark alike: {"benchmarks": [{"run_name", "aggregate_name":
// "median", "real_time", "time_unit", "peak_kib"}]}.
#ifndef ORU_BENCH_FIGURES_JSON_H
#define ORU_BENCH_FIGURES_JSON_H

#include <string>
#include <vector>

namespace oru_bench {

struct Figure {
  std::string name;    // "group/variant"
  double microseconds; // the median
  long peak_kib = -1;  // the largest resident set, or -1 when not measured
};

// Writes the figures to `path`; false (said on standard error) when it cannot.
bool WriteFigures(const std::string& path, const std::vector<Figure>& figures);

// The path after "--json" among the arguments, or "".
std::string JsonPathArgument(int argc, char** argv);

} // namespace oru_bench

#endif // ORU_BENCH_FIGURES_JSON_H
