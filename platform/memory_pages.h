// Memory straight from the system, for allocators that hand it out
// themselves (the XML arena).
#ifndef ORU_PLATFORM_MEMORY_PAGES_H
#define ORU_PLATFORM_MEMORY_PAGES_H

#include <cstddef>

namespace platform {

// Zeroed, readable and writable memory of `size` bytes at an address that
// is a multiple of `alignment` (a power of two). Both are multiples of the
// page size. Null when the system has none to give.
void* MapPages(size_t size, size_t alignment);
void UnmapPages(void* pages, size_t size);

// The size of the largest pages the system may back memory with; a
// multiple of the normal page size.
size_t LargePageBytes();

// Memory about to be written whole: asks the system to back it now, with
// large pages where the range holds whole ones, instead of one fault per
// page on first touch. Only a hint: it may do nothing, and the memory is
// usable either way.
void PrefaultWholePages(void* pages, size_t size);

} // namespace platform

#endif // ORU_PLATFORM_MEMORY_PAGES_H
