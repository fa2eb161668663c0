#include "esd/xml_strings.h"

#include "esd/xml_arena.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace esd {

namespace {

constexpr uint32_t kOwnedName = 0x80000000u;
// Longest string either kind holds: the length shares a word with a flag.
constexpr size_t kMaxBytes = 0x7fffffffu;

void CheckLength(size_t size) {
  if (size > kMaxBytes) {
    throw std::length_error("XML node string too long");
  }
}

// The empty name, laid out as every name is: the length word, then a NUL.
struct EmptyName {
  uint32_t word = 0;
  char nul = '\0';
};
const EmptyName kEmptyName;

uint32_t WordOf(const char* bytes) {
  uint32_t word;
  std::memcpy(&word, bytes - sizeof(uint32_t), sizeof word);
  return word;
}

const char* CopyToHeap(std::string_view text) {
  CheckLength(text.size());
  void* memory = ::operator new(XMLName::StorageBytes(text.size()));
  return XMLName::Emplace(memory, text, /*owned=*/true);
}

} // namespace

XMLName::XMLName() noexcept : bytes_(&kEmptyName.nul) {}

XMLName::XMLName(std::string_view text) : bytes_(CopyToHeap(text)) {}

// A copy owns its bytes, so that it may outlive the arena of the original.
XMLName::XMLName(const XMLName& other)
    : bytes_(other.empty() ? &kEmptyName.nul : CopyToHeap(other.view())) {}

XMLName::XMLName(XMLName&& other) noexcept : bytes_(other.bytes_) {
  other.bytes_ = &kEmptyName.nul;
}

XMLName& XMLName::operator=(const XMLName& other) {
  if (this != &other) {
    XMLName copy(other);
    std::swap(bytes_, copy.bytes_);
  }
  return *this;
}

XMLName& XMLName::operator=(XMLName&& other) noexcept {
  std::swap(bytes_, other.bytes_);
  return *this;
}

XMLName::~XMLName() {
  if (owned()) {
    ::operator delete(const_cast<char*>(bytes_) - sizeof(uint32_t));
  }
}

XMLName XMLName::Borrowing(const char* laid_out) noexcept {
  XMLName name;
  name.bytes_ = laid_out;
  return name;
}

const char* XMLName::Emplace(void* memory, std::string_view text, bool owned) {
  const uint32_t word = static_cast<uint32_t>(text.size()) | (owned ? kOwnedName : 0);
  char* bytes = static_cast<char*>(memory) + sizeof(uint32_t);
  std::memcpy(memory, &word, sizeof word);
  if (!text.empty()) {
    std::memcpy(bytes, text.data(), text.size());
  }
  bytes[text.size()] = '\0';
  return bytes;
}

size_t XMLName::size() const {
  return WordOf(bytes_) & ~kOwnedName;
}

bool XMLName::owned() const {
  return (WordOf(bytes_) & kOwnedName) != 0;
}

std::string operator+(const XMLName& name, std::string_view more) {
  std::string joined;
  joined.reserve(name.size() + more.size());
  joined.append(name.view()).append(more);
  return joined;
}

std::ostream& operator<<(std::ostream& out, const XMLName& name) {
  return out << name.view();
}

XMLText::XMLText(XMLText&& other) noexcept
    : bytes_(std::exchange(other.bytes_, nullptr)), size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

XMLText& XMLText::operator=(const XMLText& other) {
  return assign(other.view());
}

XMLText& XMLText::operator=(XMLText&& other) noexcept {
  if (this != &other) {
    Free();
    bytes_ = std::exchange(other.bytes_, nullptr);
    size_ = std::exchange(other.size_, 0);
    capacity_ = std::exchange(other.capacity_, 0);
  }
  return *this;
}

XMLText::~XMLText() {
  Free();
}

void XMLText::Free() noexcept {
  if (owned()) {
    std::free(bytes_);
  }
  bytes_ = nullptr;
  size_ = 0;
  capacity_ = 0;
}

void XMLText::SetCapacity(size_t capacity, bool owned) {
  capacity_ = static_cast<uint32_t>(capacity) | (owned ? kOwned : 0);
}

void XMLText::ReserveOwned(size_t size) {
  CheckLength(size);
  if (owned() && size <= capacity()) {
    return;
  }
  const size_t room = std::min(kMaxBytes, std::max(size, 2 * capacity()));
  char* bytes = static_cast<char*>(owned() ? std::realloc(bytes_, room) : std::malloc(room));
  if (!bytes) {
    throw std::bad_alloc();
  }
  if (!owned() && size_ != 0) {
    std::memcpy(bytes, bytes_, size_);
  }
  bytes_ = bytes;
  SetCapacity(room, /*owned=*/true);
}

XMLText& XMLText::assign(std::string_view text) {
  if (text.empty()) {
    size_ = 0;
    return *this;
  }
  if (owned() && text.size() <= capacity()) {
    // May be a part of the bytes held.
    std::memmove(bytes_, text.data(), text.size());
    size_ = static_cast<uint32_t>(text.size());
    return *this;
  }
  CheckLength(text.size());
  char* bytes = static_cast<char*>(std::malloc(text.size()));
  if (!bytes) {
    throw std::bad_alloc();
  }
  std::memcpy(bytes, text.data(), text.size());
  Free();
  bytes_ = bytes;
  size_ = static_cast<uint32_t>(text.size());
  SetCapacity(text.size(), /*owned=*/true);
  return *this;
}

void XMLText::append(std::string_view text) {
  if (text.empty()) {
    return;
  }
  if (text.data() >= bytes_ && text.data() < bytes_ + size_) {
    const std::string copy(text); // a part of these very bytes
    append(copy);
    return;
  }
  CheckLength(size_ + text.size());
  ReserveOwned(size_ + text.size());
  std::memcpy(bytes_ + size_, text.data(), text.size());
  size_ += static_cast<uint32_t>(text.size());
}

void XMLText::AppendIn(XMLArena& arena, std::string_view text) {
  if (owned()) {
    append(text);
    return;
  }
  if (text.empty()) {
    return;
  }
  const size_t wanted = size_ + text.size();
  CheckLength(wanted);
  if (wanted > capacity()) {
    if (bytes_ && arena.Extend(bytes_, capacity(), wanted)) {
      SetCapacity(wanted, /*owned=*/false);
    } else {
      // A first run is taken at its size; a text that keeps growing where
      // it cannot be lengthened in place gets room to double.
      const size_t room =
          size_ == 0 ? wanted : std::min(kMaxBytes, std::max(wanted, size_t{2} * size_));
      char* bytes = static_cast<char*>(arena.Allocate(room, 1));
      if (size_ != 0) {
        std::memcpy(bytes, bytes_, size_);
      }
      bytes_ = bytes;
      SetCapacity(room, /*owned=*/false);
    }
  }
  std::memcpy(bytes_ + size_, text.data(), text.size());
  size_ = static_cast<uint32_t>(wanted);
}

std::ostream& operator<<(std::ostream& out, const XMLText& text) {
  return out << text.view();
}

} // namespace esd
