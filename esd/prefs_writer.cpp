#include "esd/prefs_writer.h"

#include "esd/xml_writer.h"
#include "platform/fs_ops.h"
#include "platform/safe_fs.h"
#include "platform/utf8.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace esd {

bool IsStorableText(const std::string& text) {
  // A quarter of the file limit: a preference is far smaller, and the file
  // holds every other preference besides.
  constexpr size_t kMaxTextBytes = ExpatDOMBuilder<XMLDocumentNode>::kMaxFileBytes / 4;
  if (text.size() > kMaxTextBytes || !platform::IsValidUtf8(text)) {
    return false;
  }
  return std::none_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
  });
}

PrefsWriter::ScopedLock::ScopedLock(PrefsWriter& writer) : writer_(writer) {
  LockPolicyInterface* policy = writer_.lockPolicy_;
  if (policy && !policy->IsLocked()) {
    taken_ = writer_.LockPrefs();
  }
}

PrefsWriter::ScopedLock::~ScopedLock() {
  (void)Release();
}

bool PrefsWriter::ScopedLock::held() const {
  return !writer_.lockPolicy_ || writer_.lockPolicy_->IsLocked();
}

bool PrefsWriter::ScopedLock::Release() {
  if (!taken_) {
    return true;
  }
  taken_ = false;
  return writer_.lockPolicy_->Unlock(false);
}

PrefsWriter::PrefsWriter(const std::string& path, std::string root_name)
    : rootName_(std::move(root_name)) {
  if (!path.empty()) {
    SetPrefsPath(path);
  }
}

PrefsWriter::~PrefsWriter() {
  domBuilder_.Clear();
  prefsRoot_ = nullptr;
}

void PrefsWriter::SetPrefsPath(const std::string& path) {
  ScopedLock lock(*this);
  if (!lock.held()) {
    return;
  }
  prefsPath_ = path;
  domBuilder_.Clear();
  prefsRoot_ = nullptr;
  domBuilder_.Create(nullptr, nullptr);
  if (path.empty()) {
    // Every program sharing the file leaves a lock taken here held on this
    // path; so does this one.
    lock.Keep();
    throw std::runtime_error("Prefs file unable to lock file for reading!");
  }
  if (domBuilder_.ParseFile(path, true)) {
    LoadParsedDocument();
    return;
  }
  // A file that does not parse is only removed under a lock this call took:
  // a caller holding the lock decides for itself.
  if (lock.taken()) {
    (void)platform::DeletePath(path); // EmptyDOM below starts over either way
    EmptyDOM();
  }
}

void PrefsWriter::LoadParsedDocument() {
  XMLDocumentNode* document = domBuilder_.GetDocument();
  const SearchResult<XMLDocumentNode> roots =
      SearchResult<XMLDocumentNode>(document).Children(NodeName(rootName_));
  if (roots.empty()) {
    auto root = std::make_unique<XMLDocumentNode>(rootName_);
    prefsRoot_ = root.get();
    document->AddChild(root.release());
    return;
  }
  prefsRoot_ = roots.front();
  uint64_t date = 0;
  if (platform::GetModificationDate(prefsPath_, date)) {
    lastModified_ = date;
  }
}

bool PrefsWriter::LockPrefs() {
  if (lockPolicy_ && !lockPolicy_->IsLocked() && !lockPolicy_->Lock()) {
    return false;
  }
  RefreshIfModified();
  return true;
}

bool PrefsWriter::RefreshIfModified() {
  uint64_t date = 0;
  if (platform::GetModificationDate(prefsPath_, date)) {
    if (date > lastModified_) {
      SetPrefsPath(prefsPath_);
    }
  } else if (lastModified_ != 0) {
    EmptyDOM();
    lastModified_ = 0;
  }
  return true;
}

void PrefsWriter::EmptyDOM() {
  ScopedLock lock(*this);
  if (!lock.held()) {
    return;
  }
  domBuilder_.Clear();
  prefsRoot_ = nullptr;
  if (domBuilder_.Create(nullptr, nullptr)) {
    try {
      auto root = std::make_unique<XMLDocumentNode>(rootName_);
      prefsRoot_ = root.get();
      domBuilder_.GetDocument()->AddChild(root.release());
    } catch (...) {
      // Out of memory: the store stays empty and every set fails.
      prefsRoot_ = nullptr;
    }
  }
}

bool PrefsWriter::DeleteAllPrefs() {
  ScopedLock lock(*this);
  if (!lock.held()) {
    return false;
  }
  if (!platform::DeletePath(prefsPath_)) {
    // As every program sharing the file does, a lock taken here stays held.
    lock.Keep();
    return false;
  }
  SetPrefsPath(prefsPath_);
  return true;
}

bool PrefsWriter::Save() {
  ScopedLock lock(*this);
  if (!lock.held()) {
    return false;
  }
  // Every program sharing the file truncates it and writes it again, which
  // a kill at the wrong moment leaves empty or half written, and every
  // preference of every program is then gone. This save writes the same
  // bytes to a new file beside it and renames that over it instead, so the
  // file is always the old one or the new one, whole. In a user's folder a
  // privileged process does that as the user.
  std::string bytes;
  if (const XMLDocumentNode* document = domBuilder_.GetDocument()) {
    std::ostringstream text;
    WriteXMLNode(text, document);
    bytes = text.str();
  }
  platform::EntryRef file;
  const bool written = platform::ResolveEntry(prefsPath_, /*follow_final_link=*/false, file) &&
                       platform::ReplaceFileContents(file.folder, file.name, bytes, 0666);
  if (!written) {
    return false; // the lock taken here is released on the way out
  }
  RecordSavedDate();
  const bool released = lock.Release();
  return written && released;
}

void PrefsWriter::RecordSavedDate() {
  uint64_t date = 0;
  if (!platform::GetModificationDate(prefsPath_, date)) {
    return;
  }
  // File times come from a coarse clock: two saves a few milliseconds apart
  // can carry the same time, and the second would go unnoticed by a process
  // that read the first. Moving the time on by a nanosecond keeps every
  // save later than the one before it.
  if (date <= lastModified_ && platform::SetModificationDate(prefsPath_, lastModified_ + 1)) {
    date = lastModified_ + 1;
  }
  lastModified_ = date;
}

XMLDocumentNode* PrefsWriter::GetPrefsNode(const std::string& name, bool create) {
  if (!prefsRoot_) {
    return nullptr;
  }
  const SearchResult<XMLDocumentNode> found =
      SearchResult<XMLDocumentNode>(prefsRoot_).Children(NodeName(name));
  if (!found.empty()) {
    return found.front();
  }
  if (!create) {
    return nullptr;
  }
  try {
    auto node = std::make_unique<XMLDocumentNode>(name);
    XMLDocumentNode* added = node.get();
    prefsRoot_->AddChild(node.release());
    return added;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

bool PrefsWriter::GetPref(const std::string& name, XMLDocumentNode*& node) {
  ScopedLock lock(*this);
  if (!lock.held()) {
    return false;
  }
  node = GetPrefsNode(name, false);
  return node != nullptr;
}

bool PrefsWriter::SetPref(const std::string& name, std::unique_ptr<XMLDocumentNode> node) {
  if (!prefsRoot_) {
    return false;
  }
  ScopedLock lock(*this);
  if (!lock.held() || !prefsRoot_) {
    return false;
  }
  if (XMLDocumentNode* existing = GetPrefsNode(name, false)) {
    if (!prefsRoot_->RemoveChild(existing)) {
      return false;
    }
  }
  prefsRoot_->AddChild(node.release());
  return Save();
}

} // namespace esd
