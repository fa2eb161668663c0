#include "esd/prefs_snapshot.h"

#include "esd/child_index.h"
#include "esd/expat_dom_builder.h"

namespace esd {

bool ReadStoredText(const std::string& path, const std::string& root_name, const std::string& key,
                    std::string& text) {
  ExpatDOMBuilder<XMLDocumentNode> reader;
  if (!reader.Create(nullptr, nullptr) ||
      reader.ReadFile(path, nullptr) != ExpatDOMBuilder<XMLDocumentNode>::FileResult::kParsed) {
    return false;
  }
  ChildIndex top;
  top.Reset(reader.GetDocument());
  XMLDocumentNode* root = top.Find(root_name);
  if (!root) {
    return false;
  }
  ChildIndex preferences;
  preferences.Reset(root);
  const XMLDocumentNode* element = preferences.Find(key);
  if (!element) {
    return false;
  }
  text = element->GetData();
  return true;
}

} // namespace esd
