// A look at a preferences file that changes nothing: parsed once, with no
// lock taken and nothing moved, created or saved, for tools that only
// look. A file another process is saving is seen old or new, whole, since
// saves replace the file by renaming.
#ifndef ORU_ESD_PREFS_SNAPSHOT_H
#define ORU_ESD_PREFS_SNAPSHOT_H

#include <string>

namespace esd {

// The text of the first element `key` under the root element `root_name`;
// false when the file cannot be parsed or holds no such element.
bool ReadStoredText(const std::string& path, const std::string& root_name, const std::string& key,
                    std::string& text);

} // namespace esd

#endif // ORU_ESD_PREFS_SNAPSHOT_H
