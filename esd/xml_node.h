// The in-memory XML tree of the preferences store.
//
// A node owns its children. No operation on a tree recurses on its depth:
// destruction and the writer walk with explicit stacks, so a document of any
// depth cannot exhaust the process stack.
//
// A file is read into nodes and strings from one arena (see XMLArena); nodes
// made by code are on the heap. A tree may mix both, and every operation
// behaves the same on either.
#ifndef ORU_ESD_XML_NODE_H
#define ORU_ESD_XML_NODE_H

#include "esd/change_type.h"
#include "esd/xml_strings.h"

#include <boost/noncopyable.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

namespace esd {

class XMLArena;

class XMLDocumentNode : private boost::noncopyable {
public:
  using Attribute = std::pair<std::string, std::string>;
  using AttributeMap = std::map<std::string, std::string>;

  explicit XMLDocumentNode(const std::string& node_name);
  // A node made while reading a file, whose name and strings come from
  // `arena`. Only ever made as `new (arena) Node(arena, name)`.
  XMLDocumentNode(XMLArena& arena, std::string_view node_name);

  // Destroys the whole subtree, each node through its own (virtual)
  // destructor, parents before their children and children in order.
  // It allocates nothing for a tree no deeper than the depth reserved.
  virtual ~XMLDocumentNode();

  // Makes room, on this thread, for destroying a tree `depth` levels deep
  // without allocating (cheap when there is room already); throws
  // std::bad_alloc. The reader calls it as the
  // tree grows, so that a tree read until memory ran out can still go.
  static void ReserveDestructionDepth(size_t depth);

  // Nodes live on the heap or in the arena of the document they were read
  // into; deleting one returns its memory to whichever it came from.
  static void* operator new(size_t size);
  static void* operator new(size_t size, XMLArena& arena);
  static void operator delete(void* memory) noexcept;
  static void operator delete(void* memory, XMLArena& arena) noexcept;

  virtual void SetData(const std::string& text);
  virtual void AppendData(const std::string& text);
  // On a document node, "version" goes to the `version` field.
  virtual void SetAttributeData(const std::string& attribute, const std::string& value);
  // Takes ownership; a null node is ignored.
  virtual void AddChild(XMLDocumentNode* child);
  // Destroys the first child equal to `child`; false when it is no child.
  virtual bool RemoveChild(XMLDocumentNode* child);
  // An empty hook that nothing calls, kept so that every program sharing
  // these trees sees the same set of operations.
  virtual void Complete();
  virtual std::string GetData() const;
  virtual std::string GetName() const;
  // Every attribute, in ascending name order.
  virtual std::vector<Attribute> GetAttributes() const;

  // The declaration's version; set on a document node only.
  std::string version() const;
  // A copy of every attribute; they change only through SetAttributeData.
  AttributeMap attributes() const;
  // One attribute's value, without copying it.
  std::optional<std::string_view> AttributeValue(std::string_view attribute) const;
  bool isDocument() const { return (extras_ & kDocumentBit) != 0; }
  // Made the invisible top of a tree, once, right after construction.
  void MarkAsDocument();

  std::vector<std::unique_ptr<XMLDocumentNode>> children;
  XMLText data;
  XMLName name;

private:
  struct AttributeEntry;
  struct AttributeList;
  struct DocumentFields;

  // What a plain element never has is kept out of line, behind one word:
  // the attributes of an element, or the version and attributes of a
  // document. Its low bits say which, and whether the node is in an arena.
  // An element read with one attribute (most of a large file) points at
  // that attribute alone, without a list around it.
  static constexpr uintptr_t kDocumentBit = 1;
  static constexpr uintptr_t kInArenaBit = 2;
  static constexpr uintptr_t kSingleAttributeBit = 4;
  static constexpr uintptr_t kTagBits = kDocumentBit | kInArenaBit | kSingleAttributeBit;

  struct AttributeSpan {
    AttributeEntry* first;
    size_t count;
  };

  // The arena that takes this node's strings now, or null for the heap.
  XMLArena* fillingArena() const;
  AttributeList* attributeList() const;
  AttributeSpan attributeSpan() const;
  void DestroyAttributes();
  void SetAttributeList(AttributeList* list);
  DocumentFields* documentFields() const;
  void InsertAttribute(std::string_view attribute, std::string_view value);

  uintptr_t extras_ = 0;
};

// Answers whether a node has the wanted name. The node's name must be one
// word (see ChangeDiffTypeImpl<const std::string, std::string>), so a name
// that is empty or holds white space never matches.
template <typename Name, typename Equal> class NodeName_t {
public:
  explicit NodeName_t(Name wanted) : wanted_(std::move(wanted)) {}

  bool operator()(const XMLDocumentNode* node) const {
    if (!node) {
      return false;
    }
    std::string converted;
    if (!ChangeDiffTypeImpl<const std::string, std::string>::ChangeType(node->GetName(),
                                                                        converted)) {
      return false;
    }
    return equal_(converted, wanted_);
  }

private:
  Name wanted_;
  Equal equal_;
};

using NodeName = NodeName_t<std::string, std::equal_to<std::string>>;

// A list of nodes it does not own.
template <typename Node> class SearchResult {
public:
  explicit SearchResult(Node* node) : nodes_{node} {}
  virtual ~SearchResult() = default;

  // The direct children of every listed node that pass `predicate`, by
  // parent and then by position. A predicate that throws std::bad_cast for a
  // child counts as no match for it.
  template <typename Predicate> SearchResult Children(const Predicate& predicate) const {
    SearchResult found;
    for (Node* parent : nodes_) {
      if (!parent) {
        continue;
      }
      std::vector<Node*> candidates;
      candidates.reserve(parent->children.size());
      for (const auto& child : parent->children) {
        candidates.push_back(child.get());
      }
      for (Node* child : candidates) {
        try {
          if (predicate(child)) {
            found.nodes_.push_back(child);
          }
        } catch (const std::bad_cast&) {
          // No match for this child; the search goes on.
        }
      }
    }
    return found;
  }

  const std::vector<Node*>& nodes() const { return nodes_; }
  bool empty() const { return nodes_.empty(); }
  Node* front() const { return nodes_.front(); }

private:
  SearchResult() = default;

  std::vector<Node*> nodes_;
};

} // namespace esd

#endif // ORU_ESD_XML_NODE_H
