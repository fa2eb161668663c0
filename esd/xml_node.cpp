#include "esd/xml_node.h"

#include <algorithm>

namespace esd {

namespace {

// Nodes waiting to be destroyed by the outermost destructor running on this
// thread, the next one at the back. Nested destructors only hand their
// children over, so destruction never recurses.
thread_local std::vector<XMLDocumentNode*>* pending_destruction = nullptr;

void HandOverChildren(std::vector<std::unique_ptr<XMLDocumentNode>>& children,
                      std::vector<XMLDocumentNode*>& pending) {
  // Reversed, so that the first child is destroyed first.
  for (auto child = children.rbegin(); child != children.rend(); ++child) {
    pending.push_back(child->release());
  }
  children.clear();
}

} // namespace

XMLDocumentNode::XMLDocumentNode(const std::string& node_name) : name(node_name) {}

XMLDocumentNode::~XMLDocumentNode() {
  if (pending_destruction) {
    HandOverChildren(children, *pending_destruction);
    return;
  }
  std::vector<XMLDocumentNode*> pending;
  pending_destruction = &pending;
  HandOverChildren(children, pending);
  while (!pending.empty()) {
    XMLDocumentNode* next = pending.back();
    pending.pop_back();
    delete next;
  }
  pending_destruction = nullptr;
}

void XMLDocumentNode::SetData(const std::string& text) {
  data = text;
}

void XMLDocumentNode::AppendData(const std::string& text) {
  data += text;
}

void XMLDocumentNode::SetAttributeData(const std::string& attribute, const std::string& value) {
  RareFields& rare = rareToChange();
  if (rare.isDocument && attribute == "version") {
    rare.version = value;
    return;
  }
  rare.attributes[attribute] = value;
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
  return data;
}

std::string XMLDocumentNode::GetName() const {
  return name;
}

std::vector<XMLDocumentNode::Attribute> XMLDocumentNode::GetAttributes() const {
  const AttributeMap& all = attributes();
  return std::vector<Attribute>(all.begin(), all.end());
}

const std::string& XMLDocumentNode::version() const {
  return rare().version;
}

const XMLDocumentNode::AttributeMap& XMLDocumentNode::attributes() const {
  return rare().attributes;
}

bool XMLDocumentNode::isDocument() const {
  return rare().isDocument;
}

void XMLDocumentNode::MarkAsDocument() {
  rareToChange().isDocument = true;
}

const XMLDocumentNode::RareFields& XMLDocumentNode::rare() const {
  static const RareFields kNone;
  return rare_ ? *rare_ : kNone;
}

XMLDocumentNode::RareFields& XMLDocumentNode::rareToChange() {
  if (!rare_) {
    rare_ = std::make_unique<RareFields>();
  }
  return *rare_;
}

} // namespace esd
