#include "esd/prefs_writer.h"

#include "esd/corrupt_file.h"
#include "esd/xml_writer.h"
#include "platform/fs_ops.h"
#include "platform/safe_fs.h"
#include "platform/utf8.h"

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <stdexcept>

namespace esd {

namespace {

PrefsLogHook log_hook = nullptr;

} // namespace

void SetPrefsLogHook(PrefsLogHook hook) {
  log_hook = hook;
}

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
    if (!taken_) {
      writer_.saveFailure_ = SaveFailure{true, 0};
    }
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

void PrefsWriter::NamePrefsPath(const std::string& path) {
  prefsPath_ = path;
  fileState_ = PrefsFileState::kNotRead;
}

bool PrefsWriter::IsWritable() const {
  return fileState_ == PrefsFileState::kRead || fileState_ == PrefsFileState::kMovedAside ||
         fileState_ == PrefsFileState::kNotRead;
}

void PrefsWriter::SetPrefsPath(const std::string& path) {
  const bool first_read_of_named_path =
      fileState_ == PrefsFileState::kNotRead && !path.empty() && path == prefsPath_;
  ScopedLock lock(*this);
  if (!lock.held()) {
    return;
  }
  if (first_read_of_named_path && fileState_ != PrefsFileState::kNotRead) {
    return; // taking the lock has just read the file; a large one is not parsed twice
  }
  prefsPath_ = path;
  domBuilder_.Clear();
  prefsRoot_ = nullptr;
  rootIndex_.Reset(nullptr);
  domBuilder_.Create(nullptr, nullptr);
  if (path.empty()) {
    // Every program sharing the file leaves a lock taken here held on this
    // path; so does this one.
    lock.Keep();
    throw std::runtime_error("Prefs file unable to lock file for reading!");
  }
  struct stat info = {};
  knownFile_ = KnownFile();
  switch (domBuilder_.ReadFile(path, &info)) {
  case ExpatDOMBuilder<XMLDocumentNode>::FileResult::kParsed:
  case ExpatDOMBuilder<XMLDocumentNode>::FileResult::kNoData:
    LoadParsedDocument(info);
    SetFileState(PrefsFileState::kRead, std::string());
    return;
  case ExpatDOMBuilder<XMLDocumentNode>::FileResult::kMalformed:
    PutMalformedFileAside(info);
    return;
  case ExpatDOMBuilder<XMLDocumentNode>::FileResult::kUnreadable:
    // Other programs sharing the file would take it for a missing one and
    // save defaults over it. It is left as it is: the store answers with
    // defaults and saves nothing.
    lastModified_ = platform::ModificationDateOf(info);
    SetFileState(PrefsFileState::kUnreadable, "cannot be read; it is left as it is and nothing "
                                              "is saved over it");
    return;
  case ExpatDOMBuilder<XMLDocumentNode>::FileResult::kOverLimit:
    // Well-formed as far as it was read, only larger than this reader
    // takes: its bytes may be good, so it is never moved or deleted.
    lastModified_ = platform::ModificationDateOf(info);
    SetFileState(PrefsFileState::kOverLimit, "is larger than the reader's limits; it is left as "
                                             "it is and nothing is saved over it");
    return;
  }
}

void PrefsWriter::PutMalformedFileAside(const struct stat& info) {
  // Other programs sharing the file delete one that does not parse (and
  // only under a lock they took), which loses every preference it held.
  // Here it is moved aside, whoever holds the lock, so its bytes can still
  // be recovered, and the store starts over empty and writable.
  if (!MoveCorruptFileAside(prefsPath_, movedAsideTo_)) {
    lastModified_ = platform::ModificationDateOf(info);
    SetFileState(PrefsFileState::kNotMoved,
                 "does not parse and cannot be moved aside; it is left as it is and nothing is "
                 "saved over it");
    return;
  }
  EmptyDOM();
  lastModified_ = 0;
  SetFileState(PrefsFileState::kMovedAside, "does not parse; moved aside to " + movedAsideTo_);
}

void PrefsWriter::SetFileState(PrefsFileState state, const std::string& detail) {
  const bool news = state != fileState_ || state == PrefsFileState::kMovedAside;
  fileState_ = state;
  if (news && !detail.empty() && log_hook) {
    log_hook(2, "Preferences file " + prefsPath_ + " " + detail);
  }
}

void PrefsWriter::LoadParsedDocument(const struct stat& info) {
  XMLDocumentNode* document = domBuilder_.GetDocument();
  const SearchResult<XMLDocumentNode> roots =
      SearchResult<XMLDocumentNode>(document).Children(NodeName(rootName_));
  if (roots.empty()) {
    auto root = std::make_unique<XMLDocumentNode>(rootName_);
    prefsRoot_ = root.get();
    document->AddChild(root.release());
    rootIndex_.Reset(prefsRoot_);
    return;
  }
  prefsRoot_ = roots.front();
  rootIndex_.Reset(prefsRoot_);
  // The date of the very file that was parsed: a save by another process
  // between the read and a later look at the path must still count as
  // newer than what is in memory.
  lastModified_ = platform::ModificationDateOf(info);
  RememberFile(info);
}

void PrefsWriter::RememberFile(const struct stat& info) {
  knownFile_ = KnownFile();
  if (info.st_ino == 0 || !S_ISREG(info.st_mode)) {
    return; // nothing was there
  }
  knownFile_.known = true;
  knownFile_.device = info.st_dev;
  knownFile_.inode = info.st_ino;
  knownFile_.size = info.st_size;
  knownFile_.modified = info.st_mtim;
  knownFile_.changed = info.st_ctim;
}

bool PrefsWriter::KnownFileIsUnchanged() const {
  // One look, by the whole path. It may pass through links a user made in
  // the folders above the file, but it only decides whether to look
  // further: the same device and inode is the very file that was read or
  // saved, and the same size and times say nobody wrote to it since. Any
  // other answer takes the careful look of GetModificationDate, through
  // folders it has checked.
  struct stat seen;
  if (!knownFile_.known || !platform::StatUncheckedPath(prefsPath_, seen)) {
    return false;
  }
  return seen.st_dev == knownFile_.device && seen.st_ino == knownFile_.inode &&
         seen.st_size == knownFile_.size && seen.st_mtim.tv_sec == knownFile_.modified.tv_sec &&
         seen.st_mtim.tv_nsec == knownFile_.modified.tv_nsec &&
         seen.st_ctim.tv_sec == knownFile_.changed.tv_sec &&
         seen.st_ctim.tv_nsec == knownFile_.changed.tv_nsec;
}

bool PrefsWriter::LockPrefs() {
  if (lockPolicy_ && !lockPolicy_->IsLocked() && !lockPolicy_->Lock()) {
    return false;
  }
  RefreshIfModified();
  return true;
}

bool PrefsWriter::RefreshIfModified() {
  if (fileState_ == PrefsFileState::kNotRead && !prefsPath_.empty()) {
    SetPrefsPath(prefsPath_); // the first read, now that the lock is held
    return true;
  }
  if (KnownFileIsUnchanged()) {
    return true;
  }
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
  knownFile_ = KnownFile(); // the tree no longer holds any file's bytes
  prefsRoot_ = nullptr;
  rootIndex_.Reset(nullptr);
  if (domBuilder_.Create(nullptr, nullptr)) {
    try {
      auto root = std::make_unique<XMLDocumentNode>(rootName_);
      prefsRoot_ = root.get();
      domBuilder_.GetDocument()->AddChild(root.release());
      rootIndex_.Reset(prefsRoot_);
    } catch (...) {
      // Out of memory: the store stays empty and every set fails.
      prefsRoot_ = nullptr;
    }
  }
}

bool PrefsWriter::DeleteAllPrefs() {
  ScopedLock lock(*this);
  if (!lock.held() || !IsWritable()) {
    return false;
  }
  if (!platform::DeletePath(prefsPath_)) {
    saveFailure_ = SaveFailure{false, errno};
    // As every program sharing the file does, a lock taken here stays held.
    lock.Keep();
    return false;
  }
  SetPrefsPath(prefsPath_);
  return true;
}

bool PrefsWriter::Save() {
  ScopedLock lock(*this);
  if (!lock.held() || !IsWritable()) {
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
  // What a save that died left beside the file is looked for at the first
  // save of each path: it is rare, and a look through the folder at every
  // save would cost more than the save's own writes.
  const platform::DeadSaves dead_saves = deadSavesLookedFor_ == prefsPath_
                                             ? platform::DeadSaves::kLeave
                                             : platform::DeadSaves::kRemove;
  const bool written =
      platform::ResolveEntry(prefsPath_, /*follow_final_link=*/false, file) &&
      platform::ReplaceFileContents(file.folder, file.name, bytes, 0666, dead_saves);
  if (!written) {
    saveFailure_ = SaveFailure{false, errno};
    return false; // the lock taken here is released on the way out
  }
  saveFailure_ = SaveFailure();
  deadSavesLookedFor_ = prefsPath_;
  RecordSavedDate();
  const bool released = lock.Release();
  return written && released;
}

void PrefsWriter::RecordSavedDate() {
  knownFile_ = KnownFile();
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
  // The file now holds the tree; it is known from here on, through folders
  // that were checked.
  platform::EntryRef file;
  struct stat info;
  if (platform::ResolveEntry(prefsPath_, /*follow_final_link=*/false, file) &&
      platform::StatEntry(file.folder, file.name, info) &&
      platform::ModificationDateOf(info) == date) {
    RememberFile(info);
  } else {
    knownFile_ = KnownFile();
  }
}

XMLDocumentNode* PrefsWriter::GetPrefsNode(const std::string& name, bool create) {
  if (!prefsRoot_) {
    return nullptr;
  }
  // The first child of that name, as a search of the root's children with
  // NodeName finds it, through an index.
  if (XMLDocumentNode* found = rootIndex_.Find(name)) {
    return found;
  }
  if (!create) {
    return nullptr;
  }
  try {
    auto node = std::make_unique<XMLDocumentNode>(name);
    XMLDocumentNode* added = node.get();
    prefsRoot_->AddChild(node.release());
    rootIndex_.Appended(added);
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
    rootIndex_.Removed();
  }
  XMLDocumentNode* added = node.release();
  prefsRoot_->AddChild(added);
  rootIndex_.Appended(added);
  return Save();
}

} // namespace esd
