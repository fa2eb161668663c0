// Path strings and small file queries.
//
// Paths are UTF-8 byte strings with "/" as separator. The first group below
// is plain byte manipulation; the second group follows the documented rules
// of the Foundation path methods they stand for (slashes collapsed, a
// trailing slash dropped, text that is not valid UTF-8 refused), so that the
// product behaves the same on every system.
#ifndef ORU_PLATFORM_PATHS_H
#define ORU_PLATFORM_PATHS_H

#include <cstdint>
#include <string>

namespace platform {

// base + "/" + component, with one leading "/" of the component dropped and
// no "/" doubled where the base already ends in one.
std::string JoinPath(const std::string& base, const std::string& component);

// Appends component to base with exactly one "/" between them, skipping all
// leading "/" of the component. Does nothing when either is empty.
void AppendPathComponent(std::string& base, const std::string& component);

// The text before the last "/"; "/" when that is the first character; the
// empty string when there is no "/".
std::string DirName(const std::string& path);

// The text after the last "/"; the whole path when there is none.
std::string BaseName(const std::string& path);

// The text after the last "." anywhere in the path. Returns false and leaves
// `ext` untouched when there is no ".".
bool GetPathExtension(const std::string& path, std::string& ext);

// Foundation-rule operations; each returns false (path untouched) where the
// Foundation method would give no string.
bool ReplacePathExtension(std::string& path, const std::string& ext);
bool AppendPathComponentNS(std::string& path, const std::string& component);
bool DeleteLastPathComponent(std::string& path);
bool AppendPathExtension(std::string& path, const std::string& ext);
bool DeletePathExtension(std::string& path);
bool IsBareName(const std::string& path);

// File queries. Symbolic links are followed except by `GetFileSize`, which
// reports the link itself.
bool PathExists(const std::string& path);
bool IsFile(const std::string& path);
bool IsDirectory(const std::string& path);
bool GetFileSize(const std::string& path, uint64_t& size);

// Creates the folder and every missing parent. An existing folder succeeds.
bool CreateDirectoryTree(const std::string& path);

} // namespace platform

#endif // ORU_PLATFORM_PATHS_H
