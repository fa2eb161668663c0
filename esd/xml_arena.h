// Memory for the nodes and strings of one document while it is read.
//
// A large preferences file is hundreds of thousands of small elements. Given
// one allocation each for the node, its name, its text and its attributes,
// the allocator and the page faults behind it cost more than the parse. The
// arena hands out memory front to back from blocks and frees it all at once.
//
// It is counted, not owned: its maker holds one reference and every node
// made in it holds one, so a node that outlives its document stays valid,
// and the memory goes back when the last of them is gone.
//
// Blocks are split in granules aligned to their size, each starting with the
// arena's address, and a node never straddles two: so the arena of a node is
// found from the node's address, and a node needs no field for it.
//
// Blocks come straight from the system and grow with the document; once
// they are large they are asked for whole, in large pages where the system
// has them, since a fault per 4 KiB page costs more than reading the file.
//
// One thread at a time, like the tree it serves.
#ifndef ORU_ESD_XML_ARENA_H
#define ORU_ESD_XML_ARENA_H

#include <boost/noncopyable.hpp>
#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace esd {

class XMLArena : private boost::noncopyable {
public:
  static constexpr size_t kGranuleBytes = 128 * 1024;

  // A new arena with one reference, its maker's.
  static XMLArena* Create();

  // Frees the arena with the last reference.
  void Release();

  // Memory for one node, inside a block; adds the node's reference.
  void* AllocateNode(size_t size);
  // The arena a node made by AllocateNode lives in.
  static XMLArena* Of(const void* node);

  // Bytes that live as long as the arena.
  void* Allocate(size_t size, size_t alignment);
  // Lengthens the newest allocation of alignment 1 (a string's bytes) in
  // place when `bytes` is that one and its granule has room; false
  // otherwise, and nothing changes.
  bool Extend(const void* bytes, size_t old_size, size_t new_size);

  // One shared copy of each name, laid out as XMLName reads it.
  const char* InternName(std::string_view name);

  // Nodes put the strings they are given into the arena only while it is
  // being filled, that is while a file is read. What they are given later
  // goes to the heap, so that a document changed again and again over a
  // long life does not grow without bound.
  void StartFilling() { filling_ = true; }
  // Also drops the table of shared names, which only reading needs.
  void StopFilling();
  bool filling() const { return filling_; }

private:
  struct Block {
    void* memory;
    size_t size;
  };

  XMLArena() = default;
  ~XMLArena();

  void* AllocateLarge(size_t size);
  // The free part of a granule being filled.
  struct Cursor {
    char* front = nullptr;
    char* end = nullptr;
  };

  // Points the cursor at the next granule of the current block, or of a
  // new one.
  void TakeGranule(Cursor& cursor);
  void StartBlock();

  size_t references_ = 1;
  bool filling_ = false;
  std::vector<Block> blocks_;
  // Strings are packed byte by byte apart from what needs alignment, so
  // that an odd-sized string does not leave a gap before the next node.
  Cursor aligned_;
  Cursor bytes_;
  // The granules of the current block not yet taken.
  char* nextGranule_ = nullptr;
  char* blockEnd_ = nullptr;
  // Allocations too large to share a block, each freed with the arena.
  std::vector<void*> large_;
  std::unordered_map<std::string_view, const char*> names_;
  std::string_view lastName_;
  const char* lastInterned_ = nullptr;
};

} // namespace esd

#endif // ORU_ESD_XML_ARENA_H
