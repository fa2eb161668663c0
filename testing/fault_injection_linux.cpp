#include "testing/fault_injection_linux.h"

#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace oru_testing {

namespace {

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

} // namespace

ScopedFaults::ScopedFaults(const std::string& library, const std::string& folder,
                           const std::string& faults, const std::string& counts_file) {
  variables_.push_back(std::make_unique<ScopedEnv>("LD_PRELOAD", library));
  // A sanitized program wants its runtime first; the preload goes after it.
  variables_.push_back(std::make_unique<ScopedEnv>("ASAN_OPTIONS", [] {
    const char* given = std::getenv("ASAN_OPTIONS");
    return std::string(given ? given : "") + (given && *given ? ":" : "") +
           "verify_asan_link_order=0";
  }()));
  variables_.push_back(std::make_unique<ScopedEnv>("ORU_FAULT_DIR", RealPath(folder)));
  variables_.push_back(std::make_unique<ScopedEnv>("ORU_FAULT", faults));
  if (!counts_file.empty()) {
    variables_.push_back(std::make_unique<ScopedEnv>("ORU_FAULT_COUNTS", counts_file));
  }
}

std::map<std::string, long> ReadFaultCounts(const std::string& counts_file) {
  std::map<std::string, long> counts;
  std::ifstream in(counts_file);
  std::string function;
  long count = 0;
  while (in >> function >> count) {
    counts[function] += count;
  }
  return counts;
}

std::vector<std::string> FaultKindsOf(const std::string& function) {
  std::vector<std::string> kinds = {"EIO", "ENOSPC", "EDQUOT"};
  if (function == "write" || function == "pwrite") {
    kinds.push_back("half");
  }
  return kinds;
}

} // namespace oru_testing
