#include "esd/xml_node.h"

#include "esd/xml_arena.h"

#include <algorithm>
#include <new>

namespace esd {

namespace {

// The children still to destroy, one list per level, of the outermost
// destructor running on this thread; the list being worked through is at
// the back. A nested destructor only hands its children over as a new list,
// so destruction never recurses, and it takes one slot per level of the
// tree, not per node. The slots are kept between trees (see
// ReserveDestructionDepth): destroying a tree must work when memory has run
// out, as it has when a read stopped for want of it.
struct PendingLevel {
  std::vector<std::unique_ptr<XMLDocumentNode>> children;
  size_t next = 0;
};
using PendingLevels = std::vector<PendingLevel>;

// The slots kept on this thread. Only the owner below has a destructor,
// which runs when the thread ends: trees destroyed after that (a static
// store's, at exit) find no kept slots and use their own.
thread_local PendingLevels* kept_levels = nullptr;
thread_local bool kept_levels_gone = false;
struct KeptLevelsOwner {
  bool made = false;
  ~KeptLevelsOwner() {
    delete kept_levels;
    kept_levels = nullptr;
    kept_levels_gone = true;
  }
};
thread_local KeptLevelsOwner kept_levels_owner;

// The kept slots, made on first use; null once the thread is ending, or
// when there is no memory to make them.
PendingLevels* KeptLevels() {
  if (!kept_levels && !kept_levels_gone) {
    kept_levels_owner.made = true; // makes the owner, so that it runs at the end
    kept_levels = new (std::nothrow) PendingLevels();
  }
  return kept_levels;
}

// The slots of the outermost destructor running on this thread, or null.
thread_local PendingLevels* active_levels = nullptr;

// Slots kept once a tree is gone; more are given back.
constexpr size_t kKeptLevels = 4096;

// The arena of the node whose destructor has just run on this thread, for
// the operator delete that follows it, or null for a node on the heap. A
// destroyed object's fields cannot be read by then; this hand-over is what
// lets a node carry no field for where its memory came from.
thread_local XMLArena* arena_of_destroyed_node = nullptr;

} // namespace

struct XMLDocumentNode::AttributeEntry {
  XMLName name;
  XMLText value;
};

// A header followed by `capacity` entries in ascending name order, in an
// arena or on the heap.
struct XMLDocumentNode::AttributeList {
  static constexpr uint32_t kOnHeap = 0x80000000u;

  uint32_t count;
  uint32_t capacityAndPlace;

  size_t capacity() const { return capacityAndPlace & ~kOnHeap; }
  AttributeEntry* entries() { return reinterpret_cast<AttributeEntry*>(this + 1); }
  const AttributeEntry* entries() const {
    return reinterpret_cast<const AttributeEntry*>(this + 1);
  }

  static AttributeList* Make(size_t capacity, XMLArena* arena) {
    static_assert(sizeof(AttributeList) % alignof(AttributeEntry) == 0,
                  "entries follow the header without padding");
    const size_t bytes = sizeof(AttributeList) + capacity * sizeof(AttributeEntry);
    void* memory = arena ? arena->Allocate(bytes, alignof(AttributeEntry)) : ::operator new(bytes);
    auto* list = static_cast<AttributeList*>(memory);
    list->count = 0;
    list->capacityAndPlace = static_cast<uint32_t>(capacity) | (arena ? 0 : kOnHeap);
    return list;
  }

  // Destroys the entries; the memory goes back only when it is the heap's.
  static void Free(AttributeList* list) {
    for (uint32_t index = 0; index < list->count; ++index) {
      list->entries()[index].~AttributeEntry();
    }
    if (list->capacityAndPlace & kOnHeap) {
      ::operator delete(list);
    }
  }
};

struct XMLDocumentNode::DocumentFields {
  XMLText version;
  AttributeList* attributes = nullptr;
};

XMLDocumentNode::XMLDocumentNode(const std::string& node_name) : name(node_name) {}

XMLDocumentNode::XMLDocumentNode(XMLArena& arena, std::string_view node_name)
    : name(XMLName::Borrowing(arena.InternName(node_name))), extras_(kInArenaBit) {}

XMLDocumentNode::~XMLDocumentNode() {
  if (active_levels) {
    if (!children.empty()) {
      active_levels->push_back({std::move(children), 0});
    }
  } else if (!children.empty()) {
    PendingLevels own;
    PendingLevels* kept = KeptLevels();
    PendingLevels& levels = kept ? *kept : own;
    active_levels = &levels;
    levels.push_back({std::move(children), 0});
    while (!levels.empty()) {
      PendingLevel& level = levels.back();
      if (level.next == level.children.size()) {
        levels.pop_back();
        continue;
      }
      // Its own children, if any, become the new back before the next one.
      std::unique_ptr<XMLDocumentNode> child = std::move(level.children[level.next++]);
      child.reset();
    }
    active_levels = nullptr;
    if (levels.capacity() > kKeptLevels) {
      PendingLevels().swap(levels);
    }
  }
  DestroyAttributes();
  if (isDocument()) {
    delete documentFields();
  }
  // Last, so that no other node's deletion comes in between.
  arena_of_destroyed_node = (extras_ & kInArenaBit) ? XMLArena::Of(this) : nullptr;
}

void* XMLDocumentNode::operator new(size_t size) {
  return ::operator new(size);
}

static_assert(alignof(XMLDocumentNode) <= alignof(void*), "the arena aligns nodes as pointers");

void* XMLDocumentNode::operator new(size_t size, XMLArena& arena) {
  return arena.AllocateNode(size);
}

void XMLDocumentNode::operator delete(void* memory) noexcept {
  XMLArena* arena = arena_of_destroyed_node;
  arena_of_destroyed_node = nullptr;
  if (arena) {
    arena->Release();
  } else {
    ::operator delete(memory);
  }
}

// Only when a constructor throws: the memory was never a whole node.
void XMLDocumentNode::operator delete(void* /*memory*/, XMLArena& arena) noexcept {
  arena_of_destroyed_node = nullptr;
  arena.Release();
}

void XMLDocumentNode::ReserveDestructionDepth(size_t depth) {
  if (active_levels || kept_levels_gone) {
    return; // a tree being destroyed, or a thread ending: nothing is kept
  }
  PendingLevels* kept = KeptLevels();
  if (!kept) {
    throw std::bad_alloc();
  }
  if (kept->capacity() < depth) {
    kept->reserve(2 * depth);
  }
}

XMLArena* XMLDocumentNode::fillingArena() const {
  if (!(extras_ & kInArenaBit)) {
    return nullptr;
  }
  XMLArena* arena = XMLArena::Of(this);
  return arena->filling() ? arena : nullptr;
}

XMLDocumentNode::DocumentFields* XMLDocumentNode::documentFields() const {
  return isDocument() ? reinterpret_cast<DocumentFields*>(extras_ & ~kTagBits) : nullptr;
}

XMLDocumentNode::AttributeList* XMLDocumentNode::attributeList() const {
  if (const DocumentFields* fields = documentFields()) {
    return fields->attributes;
  }
  if (extras_ & kSingleAttributeBit) {
    return nullptr;
  }
  return reinterpret_cast<AttributeList*>(extras_ & ~kTagBits);
}

XMLDocumentNode::AttributeSpan XMLDocumentNode::attributeSpan() const {
  if (!isDocument() && (extras_ & kSingleAttributeBit)) {
    return {reinterpret_cast<AttributeEntry*>(extras_ & ~kTagBits), 1};
  }
  AttributeList* list = attributeList();
  return list ? AttributeSpan{list->entries(), list->count} : AttributeSpan{nullptr, 0};
}

// A single attribute is always in the arena: only its strings may need freeing.
void XMLDocumentNode::DestroyAttributes() {
  if (AttributeList* list = attributeList()) {
    AttributeList::Free(list);
  } else if (const AttributeSpan single = attributeSpan(); single.count == 1) {
    single.first->~AttributeEntry();
  }
}

void XMLDocumentNode::SetAttributeList(AttributeList* list) {
  if (DocumentFields* fields = documentFields()) {
    fields->attributes = list;
    return;
  }
  extras_ = reinterpret_cast<uintptr_t>(list) | (extras_ & kInArenaBit);
}

void XMLDocumentNode::SetData(const std::string& text) {
  if (XMLArena* arena = fillingArena()) {
    data = XMLText();
    data.AppendIn(*arena, text);
    return;
  }
  data.assign(text);
}

void XMLDocumentNode::AppendData(const std::string& text) {
  if (XMLArena* arena = fillingArena()) {
    data.AppendIn(*arena, text);
    return;
  }
  data.append(text);
}

void XMLDocumentNode::SetAttributeData(const std::string& attribute, const std::string& value) {
  if (DocumentFields* fields = documentFields(); fields && attribute == "version") {
    fields->version.assign(value);
    return;
  }
  InsertAttribute(attribute, value);
}

void XMLDocumentNode::InsertAttribute(std::string_view attribute, std::string_view value) {
  XMLArena* arena = fillingArena();
  const AttributeSpan held = attributeSpan();
  AttributeEntry* first = held.first;
  const size_t count = held.count;
  AttributeEntry* place =
      std::lower_bound(first, first + count, attribute, [](const AttributeEntry& entry, auto name) {
        return entry.name.view() < name;
      });
  if (place != first + count && place->name.view() == attribute) {
    XMLText replaced;
    if (arena) {
      replaced.AppendIn(*arena, value);
    } else {
      replaced.assign(value);
    }
    place->value = std::move(replaced);
    return;
  }
  AttributeEntry added{
      arena ? XMLName::Borrowing(arena->InternName(attribute)) : XMLName(attribute), XMLText()};
  if (arena) {
    added.value.AppendIn(*arena, value);
  } else {
    added.value.assign(value);
  }
  if (count == 0 && arena && !isDocument()) {
    void* memory = arena->Allocate(sizeof(AttributeEntry), alignof(AttributeEntry));
    auto* single = new (memory) AttributeEntry(std::move(added));
    extras_ = reinterpret_cast<uintptr_t>(single) | (extras_ & kInArenaBit) | kSingleAttributeBit;
    return;
  }
  const size_t offset = static_cast<size_t>(place - first);
  AttributeList* list = attributeList();
  const size_t capacity = list ? list->capacity() : count;
  if (count == capacity) {
    AttributeList* grown = AttributeList::Make(capacity == 0 ? 1 : 2 * capacity, arena);
    for (size_t index = 0; index < count; ++index) {
      new (&grown->entries()[index]) AttributeEntry(std::move(first[index]));
    }
    grown->count = static_cast<uint32_t>(count);
    DestroyAttributes();
    SetAttributeList(grown);
    list = grown;
    first = list->entries();
  }
  new (&first[count]) AttributeEntry(std::move(added));
  list->count = static_cast<uint32_t>(count + 1);
  std::rotate(first + offset, first + count, first + count + 1);
}

void XMLDocumentNode::AddChild(XMLDocumentNode* child) {
  if (child) {
    children.emplace_back(child);
  }
}

bool XMLDocumentNode::RemoveChild(XMLDocumentNode* child) {
  const auto found = std::find_if(children.begin(), children.end(),
                                  [child](const auto& owned) { return owned.get() == child; });
  if (found == children.end()) {
    return false;
  }
  // Taken out of the list first, so the tree is consistent while it goes.
  std::unique_ptr<XMLDocumentNode> removed = std::move(*found);
  children.erase(found);
  return true;
}

void XMLDocumentNode::Complete() {}

std::string XMLDocumentNode::GetData() const {
  return data.str();
}

std::string XMLDocumentNode::GetName() const {
  return name.str();
}

std::vector<XMLDocumentNode::Attribute> XMLDocumentNode::GetAttributes() const {
  const AttributeSpan held = attributeSpan();
  std::vector<Attribute> all;
  all.reserve(held.count);
  for (size_t index = 0; index < held.count; ++index) {
    all.emplace_back(held.first[index].name.str(), held.first[index].value.str());
  }
  return all;
}

std::string XMLDocumentNode::version() const {
  const DocumentFields* fields = documentFields();
  return fields ? fields->version.str() : std::string();
}

XMLDocumentNode::AttributeMap XMLDocumentNode::attributes() const {
  const std::vector<Attribute> all = GetAttributes();
  return AttributeMap(all.begin(), all.end());
}

std::optional<std::string_view> XMLDocumentNode::AttributeValue(std::string_view attribute) const {
  const AttributeSpan held = attributeSpan();
  const AttributeEntry* first = held.first;
  const AttributeEntry* last = first + held.count;
  const AttributeEntry* place = std::lower_bound(
      first, last, attribute,
      [](const AttributeEntry& entry, std::string_view name) { return entry.name.view() < name; });
  if (place == last || place->name.view() != attribute) {
    return std::nullopt;
  }
  return place->value.view();
}

void XMLDocumentNode::MarkAsDocument() {
  if (isDocument()) {
    return;
  }
  auto fields = std::make_unique<DocumentFields>();
  if (extras_ & kSingleAttributeBit) {
    AttributeEntry* single = attributeSpan().first;
    AttributeList* list = AttributeList::Make(1, nullptr);
    new (&list->entries()[0]) AttributeEntry(std::move(*single));
    list->count = 1;
    single->~AttributeEntry();
    fields->attributes = list;
  } else {
    fields->attributes = attributeList();
  }
  extras_ = reinterpret_cast<uintptr_t>(fields.release()) | (extras_ & kInArenaBit) | kDocumentBit;
}

} // namespace esd
