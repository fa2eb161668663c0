// The strings a node holds: compact, and either borrowed from the arena of
// the document they were read into or owned on the heap.
//
// A std::string is 32 bytes; a file of a million elements holds a name and
// a text for each, most of them a few bytes long and every name one of a
// handful. XMLName is one pointer, and the names read from a file are
// shared; XMLText is 16 bytes.
#ifndef ORU_ESD_XML_STRINGS_H
#define ORU_ESD_XML_STRINGS_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace esd {

class XMLArena;

// An immutable name. It points at its bytes, which follow a 32-bit word
// holding the length and, in the top bit, whether this name owns them.
// The bytes end with a NUL.
class XMLName {
public:
  XMLName() noexcept;
  // An owned copy on the heap.
  explicit XMLName(std::string_view text);
  XMLName(const XMLName& other);
  XMLName(XMLName&& other) noexcept;
  XMLName& operator=(const XMLName& other);
  XMLName& operator=(XMLName&& other) noexcept;
  ~XMLName();

  // Bytes laid out by Emplace that outlive this name (an arena's).
  static XMLName Borrowing(const char* laid_out) noexcept;
  // Memory that a name of `size` bytes needs, aligned as a uint32_t.
  static size_t StorageBytes(size_t size) { return sizeof(uint32_t) + size + 1; }
  // Lays the name out at `memory`; returns what XMLName points at.
  static const char* Emplace(void* memory, std::string_view text, bool owned);

  std::string_view view() const { return std::string_view(bytes_, size()); }
  operator std::string_view() const { return view(); }
  std::string str() const { return std::string(view()); }
  size_t size() const;
  bool empty() const { return size() == 0; }

private:
  bool owned() const;

  const char* bytes_;
};

std::string operator+(const XMLName& name, std::string_view more);
std::ostream& operator<<(std::ostream& out, const XMLName& name);

// A string that grows. Owned bytes are on the heap; borrowed ones are in an
// arena and are never freed by the string.
class XMLText {
public:
  XMLText() noexcept = default;
  explicit XMLText(std::string_view text) { assign(text); }
  XMLText(const XMLText& other) { assign(other.view()); }
  XMLText(XMLText&& other) noexcept;
  XMLText& operator=(const XMLText& other);
  XMLText& operator=(XMLText&& other) noexcept;
  XMLText& operator=(std::string_view text) { return assign(text); }
  ~XMLText();

  // Both copy the text to the heap.
  XMLText& assign(std::string_view text);
  void append(std::string_view text);
  // Appends in the arena: in place when the bytes are the arena's newest,
  // else in a new place with room to double. Owned bytes stay on the heap.
  void AppendIn(XMLArena& arena, std::string_view text);

  std::string_view view() const { return std::string_view(bytes_, size_); }
  operator std::string_view() const { return view(); }
  std::string str() const { return std::string(view()); }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

private:
  static constexpr uint32_t kOwned = 0x80000000u;

  bool owned() const { return (capacity_ & kOwned) != 0; }
  size_t capacity() const { return capacity_ & ~kOwned; }
  void SetCapacity(size_t capacity, bool owned);
  // Owned room for at least `size` bytes, keeping the ones held.
  void ReserveOwned(size_t size);
  void Free() noexcept;

  char* bytes_ = nullptr;
  uint32_t size_ = 0;
  // The room at bytes_, and kOwned when the bytes are this string's own.
  uint32_t capacity_ = 0;
};

std::ostream& operator<<(std::ostream& out, const XMLText& text);

} // namespace esd

#endif // ORU_ESD_XML_STRINGS_H
