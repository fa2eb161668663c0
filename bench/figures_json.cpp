#include "bench/figures_json.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

namespace oru_bench {

bool WriteFigures(const std::string& path, const std::vector<Figure>& figures) {
  nlohmann::ordered_json runs = nlohmann::ordered_json::array();
  for (const Figure& figure : figures) {
    nlohmann::ordered_json run = {{"run_name", figure.name},
                                  {"aggregate_name", "median"},
                                  {"real_time", figure.microseconds},
                                  {"time_unit", "us"}};
    if (figure.peak_kib >= 0) {
      run["peak_kib"] = figure.peak_kib;
    }
    runs.push_back(run);
  }
  std::ofstream out(path);
  out << nlohmann::ordered_json{{"benchmarks", runs}}.dump(2) << "\n";
  if (!out) {
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    return false;
  }
  return true;
}

std::string JsonPathArgument(int argc, char** argv) {
  for (int index = 1; index + 1 < argc; ++index) {
    if (std::strcmp(argv[index], "--json") == 0) {
      return argv[index + 1];
    }
  }
  return "";
}

} // namespace oru_bench
