#include "esd/child_index.h"

#include <functional>

namespace esd {

namespace {

// The white space a formatted stream extraction skips in the "C" locale.
bool IsStreamSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

} // namespace

bool ChildIndex::LookupName(std::string_view name, std::string_view& out) {
  size_t begin = 0;
  while (begin < name.size() && IsStreamSpace(name[begin])) {
    ++begin;
  }
  size_t end = begin;
  while (end < name.size() && !IsStreamSpace(name[end])) {
    ++end;
  }
  for (size_t rest = end; rest < name.size(); ++rest) {
    if (!IsStreamSpace(name[rest])) {
      return false; // two words
    }
  }
  if (end == begin) {
    return false;
  }
  out = name.substr(begin, end - begin);
  return true;
}

void ChildIndex::Reset(XMLDocumentNode* parent) {
  parent_ = parent;
  built_ = false;
  used_ = 0;
  indexedChildren_ = 0;
  slots_.clear();
  slots_.shrink_to_fit();
}

XMLDocumentNode* ChildIndex::Find(std::string_view wanted) {
  if (!parent_) {
    return nullptr;
  }
  // A child added or removed past the writer (through the tree itself)
  // makes the count differ: the index is then built again, never trusted.
  if (!built_ || indexedChildren_ != parent_->children.size()) {
    Build();
  }
  if (slots_.empty()) {
    return nullptr;
  }
  const size_t mask = slots_.size() - 1;
  for (size_t slot = SlotOf(wanted);; slot = (slot + 1) & mask) {
    XMLDocumentNode* node = slots_[slot];
    if (!node) {
      return nullptr;
    }
    std::string_view name;
    if (LookupName(node->name, name) && name == wanted) {
      return node;
    }
  }
}

void ChildIndex::Appended(XMLDocumentNode* child) {
  std::string_view name;
  if (!built_ || !child) {
    return;
  }
  ++indexedChildren_;
  if (LookupName(child->name, name)) {
    Insert(child, name);
  }
}

void ChildIndex::Removed() {
  // The next child of the removed one's name takes its place; finding it
  // takes a scan, so the index is built again when next asked.
  built_ = false;
}

void ChildIndex::Build() {
  // Sized by the names found, not by the children: a large file is mostly
  // many children of a few names.
  used_ = 0;
  slots_.assign(kFirstCapacity, nullptr);
  built_ = true;
  indexedChildren_ = parent_->children.size();
  for (const auto& child : parent_->children) {
    std::string_view name;
    if (LookupName(child->name, name)) {
      Insert(child.get(), name);
    }
  }
}

void ChildIndex::Grow() {
  std::vector<XMLDocumentNode*> held(slots_.size() * 2, nullptr);
  held.swap(slots_);
  const size_t mask = slots_.size() - 1;
  for (XMLDocumentNode* node : held) {
    std::string_view name;
    if (node && LookupName(node->name, name)) {
      size_t slot = SlotOf(name);
      while (slots_[slot]) {
        slot = (slot + 1) & mask;
      }
      slots_[slot] = node;
    }
  }
}

void ChildIndex::Insert(XMLDocumentNode* child, std::string_view name) {
  if ((used_ + 1) * 2 > slots_.size()) {
    Grow();
  }
  const size_t mask = slots_.size() - 1;
  for (size_t slot = SlotOf(name);; slot = (slot + 1) & mask) {
    XMLDocumentNode*& held = slots_[slot];
    if (!held) {
      held = child;
      ++used_;
      return;
    }
    std::string_view held_name;
    if (LookupName(held->name, held_name) && held_name == name) {
      return; // an earlier child of this name stays the one found
    }
  }
}

size_t ChildIndex::SlotOf(std::string_view name) const {
  return std::hash<std::string_view>()(name) & (slots_.size() - 1);
}

} // namespace esd
