// Running programs under testing/fault_injection.c, the preload that fails
// chosen system calls on files below one folder, and a disk that is full.
#ifndef ORU_TESTING_FAULT_INJECTION_H
#define ORU_TESTING_FAULT_INJECTION_H

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

// A file system in memory of `bytes` mounted at `folder` (made if missing)
// in a mount namespace of this process's own (as root), unmounted again
// when it goes. Only this process and the programs it starts see it. A few
// pages make a disk that fills up; a larger one keeps a test's flushes off
// the machine's disk, where another build's writeback can stall them.
class MemoryDisk {
public:
  MemoryDisk(const std::string& folder, size_t bytes);
  ~MemoryDisk();
  MemoryDisk(const MemoryDisk&) = delete;
  MemoryDisk& operator=(const MemoryDisk&) = delete;

  // False without the privilege to mount.
  bool mounted() const { return mounted_; }
  // Fills the disk to its last byte with a file of its own.
  bool Fill();
  // Removes that file: the space is free again.
  void Free();

private:
  std::string folder_;
  bool mounted_ = false;
};

} // namespace oru_testing

#endif // ORU_TESTING_FAULT_INJECTION_H
