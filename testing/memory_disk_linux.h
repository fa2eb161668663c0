// A file system in memory, mounted for one test (Linux: mount namespaces
// and tmpfs).
#ifndef ORU_TESTING_MEMORY_DISK_LINUX_H
#define ORU_TESTING_MEMORY_DISK_LINUX_H

#include <cstddef>
#include <string>

namespace oru_testing {

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

#endif // ORU_TESTING_MEMORY_DISK_LINUX_H
