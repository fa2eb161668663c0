// Running programs under testing/fault_injection_linux.c, the preload that
// fails chosen system calls on files below one folder (Linux: LD_PRELOAD).
#ifndef ORU_TESTING_FAULT_INJECTION_LINUX_H
#define ORU_TESTING_FAULT_INJECTION_LINUX_H

#include "testing/sandbox.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace oru_testing {

// While it lives, programs this process starts run under the preload at
// `library`, with calls counted on files below `folder` (given its real
// path here), failing `faults` ("write:3:EIO,ftruncate:1:EIO"; empty: none)
// and, when `counts_file` is not empty, appending their call counts there.
class ScopedFaults {
public:
  ScopedFaults(const std::string& library, const std::string& folder, const std::string& faults,
               const std::string& counts_file = "");

private:
  std::vector<std::unique_ptr<ScopedEnv>> variables_;
};

// The call counts a counting run wrote, summed over the processes that ran.
std::map<std::string, long> ReadFaultCounts(const std::string& counts_file);

// What a sweep tries at each call of a function: the errors of a failing
// disk, and for writes also a write of half the bytes before one fails.
std::vector<std::string> FaultKindsOf(const std::string& function);

} // namespace oru_testing

#endif // ORU_TESTING_FAULT_INJECTION_LINUX_H
