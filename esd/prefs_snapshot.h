// A look at a preferences file that changes nothing: parsed once, with no
// lock taken and nothing moved, created or saved, for tools that only
// look. A file another process is saving is seen old or new, whole, since
// saves replace the file by renaming.
#ifndef ORU_ESD_PREFS_SNAPSHOT_H
#define ORU_ESD_PREFS_SNAPSHOT_H

#include "esd/child_index.h"
#include "esd/expat_dom_builder.h"
#include "esd/xml_node.h"

#include <string>

namespace esd {

class PrefsSnapshot {
public:
  enum class State {
    kParsed,     // read whole; its elements are there to find
    kNoFile,     // nothing at the path (or an empty file): every key is missing
    kUnreadable, // something is there that cannot be read as a file
    kMalformed,  // not well-formed XML; a writer would move it aside
    kOverLimit,  // past the reader's limits
  };

  // Reads the file at `path` once; `root_name` is the root element's name.
  PrefsSnapshot(const std::string& path, const std::string& root_name);
  PrefsSnapshot(const PrefsSnapshot&) = delete;
  PrefsSnapshot& operator=(const PrefsSnapshot&) = delete;

  State state() const { return state_; }
  // Whether the keys can be read: a parsed file or no file at all.
  bool readable() const { return state_ == State::kParsed || state_ == State::kNoFile; }
  // The root's first child named `key`, or null. A document without the
  // root element holds no key, as every reader of the file takes it.
  const XMLDocumentNode* Find(const std::string& key);

private:
  ExpatDOMBuilder<XMLDocumentNode> reader_;
  ChildIndex preferences_;
  bool hasRoot_ = false;
  State state_ = State::kNoFile;
};

// The text of the first element `key` under the root element `root_name`;
// false when the file cannot be parsed or holds no such element.
bool ReadStoredText(const std::string& path, const std::string& root_name, const std::string& key,
                    std::string& text);

} // namespace esd

#endif // ORU_ESD_PREFS_SNAPSHOT_H
