// One XML preferences file, in memory and on disk.
//
// Every preference is an element directly under the root element, its value
// the element's text. The file is rewritten whole after every change. Access
// is guarded by an inter-process lock policy when one is set: an operation
// that takes the lock itself first re-reads the file if another process has
// changed it since this one last read or wrote it.
//
// Nothing stored is ever lost here: a file that does not parse is moved
// aside (see corrupt_file.h), never deleted, whoever holds the lock; a file
// that cannot be read, or is well-formed but past the reader's limits, is
// left exactly as it is and the store is read-only in this process.
#ifndef ORU_ESD_PREFS_WRITER_H
#define ORU_ESD_PREFS_WRITER_H

#include "esd/change_type.h"
#include "esd/child_index.h"
#include "esd/expat_dom_builder.h"
#include "esd/xml_node.h"
#include "locks/resource_locker.h"

#include <boost/noncopyable.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <type_traits>

namespace esd {

// Whether text can be stored in the preferences file and read back exactly:
// valid UTF-8, no control character other than tab, line feed and carriage
// return (XML 1.0 cannot carry them), and short enough for the reader's
// limits. Other programs of the product write such text all the same and
// leave a file that does not read back; the setters here refuse it.
bool IsStorableText(const std::string& text);

// Where the store sends its log lines (facade level, message); the program
// that owns a log installs it. Without one the lines go nowhere.
using PrefsLogHook = void (*)(int level, const std::string& message);
void SetPrefsLogHook(PrefsLogHook hook);

// What the store made of its file at the last read.
enum class PrefsFileState {
  kNotRead,    // not read yet: no path, or the lock could not be had for it
  kRead,       // read (or there is no file yet); the store is writable
  kMovedAside, // did not parse and was moved aside; the store starts empty
  kUnreadable, // something is there that cannot be read; read-only
  kOverLimit,  // past the reader's limits, or memory ran out; read-only
  kNotMoved,   // did not parse and could not be moved aside; read-only
};

class PrefsWriter : private boost::noncopyable {
public:
  // Takes the lock policy for the length of one operation unless the caller
  // holds it already; see the class comment.
  class ScopedLock {
  public:
    explicit ScopedLock(PrefsWriter& writer);
    ~ScopedLock();
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

    // Whether the operation may go on: no policy, or the lock is held.
    bool held() const;
    bool taken() const { return taken_; }
    // Releases a lock taken here; true when there was none to release.
    bool Release();
    // Leaves a lock taken here held after this scope ends.
    void Keep() { taken_ = false; }

  private:
    PrefsWriter& writer_;
    bool taken_ = false;
  };

  PrefsWriter(const std::string& path, std::string root_name);
  virtual ~PrefsWriter();

  // Switches to (or re-reads) the file at `path`; see the file comment for
  // a file that does not parse or cannot be read. Throws std::runtime_error
  // for an empty path.
  void SetPrefsPath(const std::string& path);
  // Takes the lock policy (if any) and re-reads a changed file.
  bool LockPrefs();
  bool RefreshIfModified();
  // A fresh, empty root element in memory; the file is not touched.
  void EmptyDOM();
  // Deletes the file and starts over with an empty root element. Refused
  // while the store is read-only: the file is then left as it is.
  bool DeleteAllPrefs();
  // Writes the whole file; refused while the store is read-only.
  bool Save();

  // Why the last change could not be saved: its lock could not be had, or
  // writing the file failed with the system's `error` (errno); both clear
  // after a save that succeeds.
  struct SaveFailure {
    bool lockNotHad = false;
    int error = 0;
  };
  const SaveFailure& lastSaveFailure() const { return saveFailure_; }

  PrefsFileState fileState() const { return fileState_; }
  // Where a file that did not parse went, for kMovedAside.
  const std::string& movedAsideTo() const { return movedAsideTo_; }
  // Whether a save may replace the file.
  bool IsWritable() const;

  // The root's first child named `name` (created when missing and `create`).
  // Takes no lock.
  XMLDocumentNode* GetPrefsNode(const std::string& name, bool create);
  bool GetPref(const std::string& name, XMLDocumentNode*& node);
  // Replaces the element `name` by `node`, which moves to the end of the
  // root, and saves. The node is owned from here on; one that could not be
  // put in place is destroyed.
  bool SetPref(const std::string& name, std::unique_ptr<XMLDocumentNode> node);

  // Typed values, for bool, int, unsigned long and std::string. A missing
  // element or empty text gives `default_value`; text that does not convert
  // gives false.
  template <typename T> bool GetPref(const std::string& name, T& out, const T& default_value);
  template <typename T> bool SetPref(const std::string& name, const T& value);

  LockPolicyInterface* lockPolicy() const { return lockPolicy_; }
  void setLockPolicy(LockPolicyInterface* policy) { lockPolicy_ = policy; }
  const std::string& prefsPath() const { return prefsPath_; }
  const std::string& rootName() const { return rootName_; }
  // Names the file without reading it, so that the first read can happen
  // under a lock policy set afterwards (see SetPrefsPath).
  void NamePrefsPath(const std::string& path);
  uint64_t lastModified() const { return lastModified_; }
  XMLDocumentNode* prefsRoot() const { return prefsRoot_; }

private:
  template <typename T>
  static constexpr bool kSupported =
      std::is_same_v<T, bool> || std::is_same_v<T, int> || std::is_same_v<T, unsigned long> ||
      std::is_same_v<T, std::string>;

  void LoadParsedDocument(const struct stat& info);
  // Acts on a file that did not parse: moves it aside or leaves the store
  // read-only.
  void PutMalformedFileAside(const struct stat& info);
  // Sets the state, with one log line when it is news.
  void SetFileState(PrefsFileState state, const std::string& detail);
  // Records the date of the file just written, making sure it is later than
  // the date this process last saw, so that every other process notices.
  void RecordSavedDate();

  // The file whose bytes the tree holds, as it was last read or saved.
  struct KnownFile {
    bool known = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified = {};
    struct timespec changed = {};
  };
  void RememberFile(const struct stat& info);
  // Whether the path names that very file, unchanged since (one look).
  bool KnownFileIsUnchanged() const;

  ExpatDOMBuilder<XMLDocumentNode> domBuilder_;
  XMLDocumentNode* prefsRoot_ = nullptr;
  std::string prefsPath_;
  std::string rootName_;
  LockPolicyInterface* lockPolicy_ = nullptr;
  uint64_t lastModified_ = 0;
  KnownFile knownFile_;
  PrefsFileState fileState_ = PrefsFileState::kNotRead;
  std::string movedAsideTo_;
  SaveFailure saveFailure_;
  // The path whose dead saves' temporaries this writer has looked for.
  std::string deadSavesLookedFor_;
  ChildIndex rootIndex_;
};

// The typed value of a preference's element (null when it is missing), as
// every reader takes it: a missing element or empty text gives
// `default_value`; text that does not convert gives false.
template <typename T>
bool ValueOfElement(const XMLDocumentNode* node, T& out, const T& default_value) {
  if (!node || node->GetData().empty()) {
    out = default_value;
    return true;
  }
  if constexpr (std::is_same_v<T, std::string>) {
    out = node->GetData();
    return true;
  } else {
    return ChangeDiffTypeImpl<std::string, T>::ChangeType(node->GetData(), out);
  }
}

template <typename T>
bool PrefsWriter::GetPref(const std::string& name, T& out, const T& default_value) {
  static_assert(kSupported<T>, "preferences hold bool, int, unsigned long or std::string");
  ScopedLock lock(*this);
  if (!lock.held()) {
    return false;
  }
  return ValueOfElement(GetPrefsNode(name, false), out, default_value);
}

template <typename T> bool PrefsWriter::SetPref(const std::string& name, const T& value) {
  static_assert(kSupported<T>, "preferences hold bool, int, unsigned long or std::string");
  if constexpr (std::is_same_v<T, std::string>) {
    if (!IsStorableText(value)) {
      return false; // nothing changes, in memory or on disk
    }
  }
  ScopedLock lock(*this);
  if (!lock.held()) {
    return false;
  }
  XMLDocumentNode* node = GetPrefsNode(name, true);
  if (!node) {
    return false;
  }
  if constexpr (std::is_same_v<T, std::string>) {
    node->SetData(value);
  } else {
    std::string text;
    if (!ChangeDiffTypeImpl<T, std::string>::ChangeType(value, text)) {
      return false;
    }
    node->SetData(text);
  }
  return Save();
}

} // namespace esd

#endif // ORU_ESD_PREFS_WRITER_H
