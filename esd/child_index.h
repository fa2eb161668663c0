// Finds a node's first child of a given name without scanning the children:
// a preferences file may hold a million elements, and every preference
// lookup asks for one of them by name.
//
// A child is found under its name as the name predicate sees it (NodeName):
// white space around a single word does not count, and a name that is empty
// or holds inner white space is never found.
#ifndef ORU_ESD_CHILD_INDEX_H
#define ORU_ESD_CHILD_INDEX_H

#include "esd/xml_node.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace esd {

class ChildIndex {
public:
  // Indexes nothing; the first Find builds the index of `parent`.
  void Reset(XMLDocumentNode* parent);
  // The first child of the parent named `wanted`, or null.
  XMLDocumentNode* Find(std::string_view wanted);
  // Tells the index that `child` was appended to the parent.
  void Appended(XMLDocumentNode* child);
  // Tells the index that a child of the parent was removed.
  void Removed();

  // The name a child is found under; false when it can never be found.
  static bool LookupName(std::string_view name, std::string_view& out);

private:
  void Build();
  void Grow();
  void Insert(XMLDocumentNode* child, std::string_view name);
  size_t SlotOf(std::string_view name) const;

  static constexpr size_t kFirstCapacity = 16;

  XMLDocumentNode* parent_ = nullptr;
  bool built_ = false;
  size_t used_ = 0;
  size_t indexedChildren_ = 0;
  // Open addressing, first child per name; the name is read from the node.
  std::vector<XMLDocumentNode*> slots_;
};

} // namespace esd

#endif // ORU_ESD_CHILD_INDEX_H
