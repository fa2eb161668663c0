// Puts a preferences file that does not parse out of the way without
// losing it: it keeps its bytes under a dated name beside the original
// ("NuvexUpdaterPrefs.dat.corrupt-20261123-141502"), and only the newest
// few such copies are kept.
#ifndef ORU_ESD_CORRUPT_FILE_H
#define ORU_ESD_CORRUPT_FILE_H

#include <ctime>
#include <string>

namespace esd {

constexpr int kCorruptCopiesKept = 3;
constexpr const char* kCorruptInfix = ".corrupt-";

// The name a file `name` is moved to at local time `when`.
std::string CorruptCopyName(const std::string& name, std::time_t when);

// Renames the regular file at `path` to its dated name (with "-2", "-3"...
// when that name is taken), then removes all but the newest
// kCorruptCopiesKept copies of that file. `moved_to` gets the new path.
bool MoveCorruptFileAside(const std::string& path, std::string& moved_to);

} // namespace esd

#endif // ORU_ESD_CORRUPT_FILE_H
