#include "platform/memory_pages.h"

#include <sys/mman.h>

namespace platform {

namespace {

// Older headers lack it; kernels before 5.14 answer EINVAL, which is fine.
#ifndef MADV_POPULATE_WRITE
constexpr int MADV_POPULATE_WRITE = 23;
#endif

} // namespace

size_t LargePageBytes() {
  return size_t{2} << 20; // a transparent huge page on x86-64 and arm64
}

void PrefaultWholePages(void* pages, size_t size) {
  // Where transparent huge pages are enabled "always" or "madvise", this
  // backs the range with them; filling it then costs a few faults instead
  // of one per 4 KiB page. Both calls are hints: failures change nothing.
  (void)madvise(pages, size, MADV_HUGEPAGE);
  (void)madvise(pages, size, MADV_POPULATE_WRITE);
}

} // namespace platform
