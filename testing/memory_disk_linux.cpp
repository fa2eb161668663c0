#include "testing/memory_disk_linux.h"

#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace oru_testing {

MemoryDisk::MemoryDisk(const std::string& folder, size_t bytes) : folder_(folder) {
  for (size_t slash = folder.find('/', 1); slash != std::string::npos;
       slash = folder.find('/', slash + 1)) {
    (void)mkdir(folder.substr(0, slash).c_str(), 0755); // existing levels are fine
  }
  (void)mkdir(folder.c_str(), 0755);
  static const bool own_namespace =
      unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  mounted_ = own_namespace && mount("tmpfs", folder.c_str(), "tmpfs", 0,
                                    ("size=" + std::to_string(bytes) + ",mode=0755").c_str()) == 0;
}

MemoryDisk::~MemoryDisk() {
  if (mounted_) {
    umount2(folder_.c_str(), MNT_DETACH);
  }
}

bool MemoryDisk::Fill() {
  const int fd = open((folder_ + "/.filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0) {
    return false;
  }
  // Large pieces first, then ever smaller ones down to a byte: the last
  // page is filled too.
  for (size_t piece = 65536; piece > 0; piece /= 2) {
    const std::string bytes(piece, 'f');
    while (write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(piece)) {
    }
  }
  close(fd);
  return true;
}

void MemoryDisk::Free() {
  unlink((folder_ + "/.filler").c_str());
}

} // namespace oru_testing
