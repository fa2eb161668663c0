#include "esd/xml_arena.h"

#include "esd/xml_strings.h"
#include "platform/memory_pages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace esd {

namespace {

// Anything larger gets an allocation of its own, so a long text does not
// leave most of a granule unused behind it.
constexpr size_t kLargestShared = XMLArena::kGranuleBytes / 4;

char* AlignUp(char* pointer, size_t alignment) {
  const auto address = reinterpret_cast<uintptr_t>(pointer);
  return reinterpret_cast<char*>((address + alignment - 1) & ~(uintptr_t{alignment} - 1));
}

} // namespace

XMLArena* XMLArena::Create() {
  return new XMLArena();
}

XMLArena::~XMLArena() {
  for (const Block& block : blocks_) {
    platform::UnmapPages(block.memory, block.size);
  }
  for (void* large : large_) {
    std::free(large);
  }
}

void XMLArena::Release() {
  if (--references_ == 0) {
    delete this;
  }
}

void XMLArena::StartBlock() {
  // A granule for each cursor, then twice the last, up to a large page;
  // then large pages.
  const size_t large_page = platform::LargePageBytes();
  const size_t size =
      blocks_.empty() ? 2 * kGranuleBytes : std::min(large_page, 2 * blocks_.back().size);
  const bool whole_large_pages = size % large_page == 0;
  blocks_.reserve(blocks_.size() + 1);
  void* memory = platform::MapPages(size, whole_large_pages ? large_page : kGranuleBytes);
  if (!memory) {
    throw std::bad_alloc();
  }
  // The first block serves every small document and is faulted in page by
  // page as it fills; a document that needs a second one is large, and the
  // rest of its blocks are asked for whole.
  if (!blocks_.empty()) {
    platform::PrefaultWholePages(memory, size);
  }
  blocks_.push_back({memory, size});
  nextGranule_ = static_cast<char*>(memory);
  blockEnd_ = nextGranule_ + size;
}

void XMLArena::TakeGranule(Cursor& cursor) {
  if (nextGranule_ == blockEnd_) {
    StartBlock();
  }
  *reinterpret_cast<XMLArena**>(nextGranule_) = this;
  cursor.front = nextGranule_ + sizeof(XMLArena*);
  cursor.end = nextGranule_ + kGranuleBytes;
  nextGranule_ += kGranuleBytes;
}

void* XMLArena::AllocateLarge(size_t size) {
  large_.reserve(large_.size() + 1);
  void* memory = std::malloc(size);
  if (!memory) {
    throw std::bad_alloc();
  }
  large_.push_back(memory);
  return memory;
}

void* XMLArena::Allocate(size_t size, size_t alignment) {
  if (size > kLargestShared) {
    return AllocateLarge(size);
  }
  Cursor& cursor = alignment == 1 ? bytes_ : aligned_;
  char* start = cursor.front ? AlignUp(cursor.front, alignment) : nullptr;
  if (!start || start + size > cursor.end) {
    TakeGranule(cursor);
    start = AlignUp(cursor.front, alignment);
  }
  cursor.front = start + size;
  return start;
}

void* XMLArena::AllocateNode(size_t size) {
  if (size > kLargestShared) {
    throw std::bad_alloc(); // a node must sit in a granule to be found from its address
  }
  // Aligned as a pointer: a node holds nothing wider.
  void* memory = Allocate(size, alignof(void*));
  ++references_;
  return memory;
}

XMLArena* XMLArena::Of(const void* node) {
  const auto address = reinterpret_cast<uintptr_t>(node);
  return *reinterpret_cast<XMLArena* const*>(address & ~(uintptr_t{kGranuleBytes} - 1));
}
bool XMLArena::Extend(const void* bytes, size_t old_size, size_t new_size) {
  const char* start = static_cast<const char*>(bytes);
  if (start + old_size != bytes_.front ||
      new_size - old_size > static_cast<size_t>(bytes_.end - bytes_.front)) {
    return false;
  }
  bytes_.front += new_size - old_size;
  return true;
}

const char* XMLArena::InternName(std::string_view name) {
  if (lastInterned_ && name == lastName_) {
    return lastInterned_;
  }
  const auto known = names_.find(name);
  const char* interned;
  if (known != names_.end()) {
    interned = known->second;
  } else {
    void* memory = Allocate(XMLName::StorageBytes(name.size()), alignof(uint32_t));
    interned = XMLName::Emplace(memory, name, /*owned=*/false);
    names_.emplace(std::string_view(interned, name.size()), interned);
  }
  lastName_ = std::string_view(interned, name.size());
  lastInterned_ = interned;
  return interned;
}

void XMLArena::StopFilling() {
  filling_ = false;
  names_ = {};
  lastName_ = {};
  lastInterned_ = nullptr;
}

} // namespace esd
