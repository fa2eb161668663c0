#include "esd/prefs_snapshot.h"

namespace esd {

namespace {

using FileResult = ExpatDOMBuilder<XMLDocumentNode>::FileResult;

PrefsSnapshot::State StateOf(FileResult result) {
  switch (result) {
  case FileResult::kParsed:
    return PrefsSnapshot::State::kParsed;
  case FileResult::kNoData:
    return PrefsSnapshot::State::kNoFile;
  case FileResult::kUnreadable:
    return PrefsSnapshot::State::kUnreadable;
  case FileResult::kMalformed:
    return PrefsSnapshot::State::kMalformed;
  case FileResult::kOverLimit:
    break;
  }
  return PrefsSnapshot::State::kOverLimit;
}

} // namespace

PrefsSnapshot::PrefsSnapshot(const std::string& path, const std::string& root_name) {
  if (!reader_.Create(nullptr, nullptr)) {
    state_ = State::kOverLimit; // no memory for a parser
    return;
  }
  state_ = StateOf(reader_.ReadFile(path, nullptr));
  if (state_ != State::kParsed) {
    return;
  }
  ChildIndex top;
  top.Reset(reader_.GetDocument());
  XMLDocumentNode* root = top.Find(root_name);
  hasRoot_ = root != nullptr;
  if (hasRoot_) {
    preferences_.Reset(root);
  }
}

const XMLDocumentNode* PrefsSnapshot::Find(const std::string& key) {
  return state_ == State::kParsed && hasRoot_ ? preferences_.Find(key) : nullptr;
}

bool ReadStoredText(const std::string& path, const std::string& root_name, const std::string& key,
                    std::string& text) {
  PrefsSnapshot snapshot(path, root_name);
  const XMLDocumentNode* element = snapshot.Find(key);
  if (!element) {
    return false;
  }
  text = element->GetData();
  return true;
}

} // namespace esd
