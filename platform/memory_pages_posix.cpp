#include "platform/memory_pages.h"

#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace platform {

void* MapPages(size_t size, size_t alignment) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  // Room to slide to the alignment, then the slack on either side goes back.
  const size_t mapped = size + (alignment > page ? alignment - page : 0);
  void* memory = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return nullptr;
  }
  const auto start = reinterpret_cast<uintptr_t>(memory);
  const uintptr_t aligned = (start + alignment - 1) & ~(uintptr_t{alignment} - 1);
  if (aligned > start) {
    munmap(memory, aligned - start);
  }
  const uintptr_t end = aligned + size;
  if (start + mapped > end) {
    munmap(reinterpret_cast<void*>(end), start + mapped - end);
  }
  return reinterpret_cast<void*>(aligned);
}

void UnmapPages(void* pages, size_t size) {
  if (pages) {
    munmap(pages, size);
  }
}

} // namespace platform
