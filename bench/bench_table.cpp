// The one table of bench/run: every figure beside its floor from the same
// run, with the ratio and the goal, metric by metric. Reads the JSON the
// benchmarks wrote (Google Benchmark's --benchmark_out, and the same shape
// from the whole-process benchmarks), prints the table, and writes it as
// JSON and as an SVG bar chart of the ratios.
// Usage: bench_table OUT_FOLDER RESULT.json...
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace {

struct Run {
  double microseconds = 0;
  long peak_kib = -1;
};

enum class Kind {
  kTime,   // the project's median time against the floor's
  kMemory, // the project's peak memory against the floor's
};

struct Metric {
  std::string name;
  std::string project;
  std::string floor;
  Kind kind;
  double goal_ratio; // at most this many times the floor; 0: none
  double goal_limit; // at most this (microseconds or KiB); 0: none
  std::string goal_text;
};

// Every metric but the XML load, which AllMetrics adds for each file size.
const Metric kMetrics[] = {
    {"hand-over p50, post to app", "handover/launcher", "handover/floor_c", Kind::kTime, 1.2, 0,
     "<= 1.2x"},
    {"launcher start-up p50", "startup/launcher", "startup/floor_c", Kind::kTime, 2.0, 0, "<= 2x"},
    {"  of it: the libraries", "startup/floor_linked", "startup/floor_c", Kind::kTime, 0, 0, "-"},
    {"launcher peak memory", "handover/launcher", "handover/floor_c", Kind::kMemory, 0, 3072,
     "<= 3 MiB"},
    {"XML peak memory, 15 MiB file", "xml_load_15MiB/esd_reader_peak", "xml_load_15MiB/file",
     Kind::kMemory, 2.0, 0, "<= 2x"},
    {"preferences Get, unchanged", "prefs_get/file_unchanged", "prefs_get/floor", Kind::kTime, 1.5,
     0, "<= 1.5x"},
    {"preferences Set (durable)", "prefs_set/set", "prefs_set/floor", Kind::kTime, 0, 0, "-"},
    {"rotation of 50 MiB", "rotate_50MiB/oobe_rotation", "rotate_50MiB/floor", Kind::kTime, 1.1, 0,
     "<= 1.1x"},
    {"log line, locked and flushed", "log_line/oobe_target", "log_line/floor", Kind::kTime, 0, 0,
     "-"},
    {"log, 4 processes at once", "log_4_processes/oobe_target", "log_4_processes/floor",
     Kind::kTime, 0, 0, "-"},
    {"oructl log -n 10, 50 MiB", "log_tail/oructl", "log_tail/floor", Kind::kTime, 0, 100000,
     "< 100 ms"},
    {"  its peak memory", "log_tail/oructl", "log_tail/floor", Kind::kMemory, 0, 20 * 1024,
     "< 20 MB"},
};

// The XML load of each file size, against bare expat and against pugixml,
// and what feeding expat 1 KiB at a time costs on its own.
std::vector<Metric> XMLLoadMetrics() {
  std::vector<Metric> metrics;
  for (const char* size : {"1", "5", "15"}) {
    const std::string group = std::string("xml_load_") + size + "MiB/";
    metrics.push_back({std::string("XML load ") + size + " MiB vs bare expat", group + "esd_reader",
                       group + "floor", Kind::kTime, 1.2, 0, "<= 1.2x"});
    metrics.push_back(
        {"  vs pugixml", group + "esd_reader", group + "pugixml", Kind::kTime, 1.0, 0, "<= 1x"});
    metrics.push_back({"  expat fed 1 KiB at a time", group + "expat_1024_chunks", group + "floor",
                       Kind::kTime, 0, 0, "-"});
  }
  return metrics;
}

// In the order of the table: the XML load comes before the XML memory.
std::vector<Metric> AllMetrics() {
  std::vector<Metric> metrics;
  for (const Metric& metric : kMetrics) {
    if (metric.project.rfind("xml_load_", 0) == 0) {
      const std::vector<Metric> loads = XMLLoadMetrics();
      metrics.insert(metrics.end(), loads.begin(), loads.end());
    }
    metrics.push_back(metric);
  }
  return metrics;
}

double Microseconds(double value, const std::string& unit) {
  if (unit == "ns") {
    return value / 1000;
  }
  if (unit == "ms") {
    return value * 1000;
  }
  if (unit == "s") {
    return value * 1e6;
  }
  return value;
}

// "group/variant" of a run name ("rotate_50MiB/floor/iterations:5/...").
std::string GroupAndVariant(const std::string& run_name) {
  const size_t first = run_name.find('/');
  const size_t second = first == std::string::npos ? first : run_name.find('/', first + 1);
  return run_name.substr(0, second);
}

bool ReadRuns(const char* path, std::map<std::string, Run>& runs) {
  std::ifstream in(path);
  const nlohmann::json results = nlohmann::json::parse(in, nullptr, false);
  if (results.is_discarded() || !results.contains("benchmarks")) {
    std::fprintf(stderr, "bench_table: %s holds no benchmark results\n", path);
    return false;
  }
  for (const auto& entry : results["benchmarks"]) {
    if (entry.value("aggregate_name", "") != "median") {
      continue;
    }
    Run& run = runs[GroupAndVariant(entry.value("run_name", ""))];
    run.microseconds = Microseconds(entry.value("real_time", 0.0), entry.value("time_unit", "ns"));
    run.peak_kib = entry.value("peak_kib", -1L);
  }
  return true;
}

struct Row {
  const Metric* metric;
  double project = 0;
  double floor = 0;
  double ratio = 0;
  bool measured = false;
  bool has_goal = false;
  bool met = false;
};

Row Evaluate(const Metric& metric, const std::map<std::string, Run>& runs) {
  Row row{&metric};
  const auto project = runs.find(metric.project);
  const auto floor = runs.find(metric.floor);
  if (project == runs.end() || floor == runs.end()) {
    return row;
  }
  const bool memory = metric.kind == Kind::kMemory;
  row.project = memory ? project->second.peak_kib : project->second.microseconds;
  row.floor = memory ? floor->second.peak_kib : floor->second.microseconds;
  row.measured = row.project > 0 && row.floor > 0;
  row.ratio = row.measured ? row.project / row.floor : 0;
  row.has_goal = metric.goal_ratio > 0 || metric.goal_limit > 0;
  row.met = row.measured && (metric.goal_ratio <= 0 || row.ratio <= metric.goal_ratio) &&
            (metric.goal_limit <= 0 || row.project <= metric.goal_limit);
  return row;
}

std::string Amount(double value, Kind kind) {
  char text[32];
  if (kind == Kind::kMemory) {
    std::snprintf(text, sizeof text, "%.2f MiB", value / 1024);
  } else if (value >= 10000) {
    std::snprintf(text, sizeof text, "%.2f ms", value / 1000);
  } else {
    std::snprintf(text, sizeof text, "%.1f us", value);
  }
  return text;
}

std::string Verdict(const Row& row) {
  if (!row.measured) {
    return "not measured";
  }
  return row.has_goal ? (row.met ? "met" : "NOT MET") : "";
}

void PrintTable(const std::vector<Row>& rows) {
  std::printf("\n%-30s %14s %14s %8s %9s  %s\n", "metric", "project", "floor", "ratio", "goal", "");
  for (const Row& row : rows) {
    const Metric& metric = *row.metric;
    if (!row.measured) {
      std::printf("%-30s %14s %14s %8s %9s  %s\n", metric.name.c_str(), "-", "-", "-",
                  metric.goal_text.c_str(), Verdict(row).c_str());
      continue;
    }
    std::printf("%-30s %14s %14s %7.2fx %9s  %s\n", metric.name.c_str(),
                Amount(row.project, metric.kind).c_str(), Amount(row.floor, metric.kind).c_str(),
                row.ratio, metric.goal_text.c_str(), Verdict(row).c_str());
  }
}

nlohmann::ordered_json TableJson(const std::vector<Row>& rows) {
  nlohmann::ordered_json table = nlohmann::ordered_json::array();
  for (const Row& row : rows) {
    const Metric& metric = *row.metric;
    nlohmann::ordered_json entry = {{"metric", metric.name},
                                    {"project", metric.project},
                                    {"floor", metric.floor},
                                    {"unit", metric.kind == Kind::kMemory ? "KiB" : "us"},
                                    {"goal", metric.goal_text}};
    if (row.measured) {
      entry["project_value"] = row.project;
      entry["floor_value"] = row.floor;
      entry["ratio"] = row.ratio;
    }
    if (row.has_goal && row.measured) {
      entry["met"] = row.met;
    }
    table.push_back(entry);
  }
  return table;
}

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
  }
  return out;
}

// Horizontal bars of the ratios on a logarithmic scale from 0.25x to 16x,
// a line at 1x (the floor) and a tick at each ratio goal.
std::string Chart(const std::vector<Row>& rows) {
  const int label_width = 240;
  const int bar_width = 480;
  const int row_height = 24;
  const int height = static_cast<int>(rows.size()) * row_height + 50;
  const auto x_of = [&](double ratio) {
    const double clamped = std::min(16.0, std::max(0.25, ratio));
    return label_width + static_cast<int>((std::log2(clamped) + 2) / 6 * bar_width);
  };
  std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
                    std::to_string(label_width + bar_width + 80) + "\" height=\"" +
                    std::to_string(height) +
                    "\" font-family=\"sans-serif\" font-size=\"12\">\n"
                    "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  int y = 20;
  for (const Row& row : rows) {
    svg += "<text x=\"4\" y=\"" + std::to_string(y + 14) + "\">" + Escaped(row.metric->name) +
           "</text>\n";
    if (row.measured) {
      const char* colour = !row.has_goal ? "#8a9bb0" : row.met ? "#3a9a4a" : "#c8443c";
      const int from = x_of(0.25);
      const int to = std::max(from + 1, x_of(row.ratio));
      char text[32];
      std::snprintf(text, sizeof text, "%.2fx", row.ratio);
      svg += "<rect x=\"" + std::to_string(from) + "\" y=\"" + std::to_string(y + 3) +
             "\" width=\"" + std::to_string(to - from) + "\" height=\"16\" fill=\"" + colour +
             "\"/>\n<text x=\"" + std::to_string(to + 4) + "\" y=\"" + std::to_string(y + 15) +
             "\">" + text + "</text>\n";
      if (row.metric->goal_ratio > 0) {
        const int goal = x_of(row.metric->goal_ratio);
        svg += "<line x1=\"" + std::to_string(goal) + "\" x2=\"" + std::to_string(goal) +
               "\" y1=\"" + std::to_string(y) + "\" y2=\"" + std::to_string(y + 22) +
               "\" stroke=\"black\" stroke-width=\"2\"/>\n";
      }
    }
    y += row_height;
  }
  const int one = x_of(1.0);
  svg += "<line x1=\"" + std::to_string(one) + "\" x2=\"" + std::to_string(one) +
         "\" y1=\"14\" y2=\"" + std::to_string(y) +
         "\" stroke=\"#555\" stroke-dasharray=\"4 3\"/>\n<text x=\"" + std::to_string(one - 30) +
         "\" y=\"" + std::to_string(y + 16) +
         "\">1x = floor; black ticks: goals; green met, red not met</text>\n</svg>\n";
  return svg;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: bench_table OUT_FOLDER RESULT.json...\n");
    return 2;
  }
  std::map<std::string, Run> runs;
  for (int index = 2; index < argc; ++index) {
    if (!ReadRuns(argv[index], runs)) {
      return 2;
    }
  }
  std::vector<Row> rows;
  const std::vector<Metric> metrics = AllMetrics();
  for (const Metric& metric : metrics) {
    rows.push_back(Evaluate(metric, runs));
  }
  PrintTable(rows);
  const std::string folder = argv[1];
  std::ofstream(folder + "/summary.json") << TableJson(rows).dump(2) << "\n";
  std::ofstream(folder + "/summary.svg") << Chart(rows);
  std::printf("\nwritten: %s/summary.json, %s/summary.svg\n", folder.c_str(), folder.c_str());
  return 0;
}
