// Where the maker's application Zelto is installed, and starting it.
#ifndef ORU_LAUNCHER_ZELTO_H
#define ORU_LAUNCHER_ZELTO_H

#include <string>

// The executable inside the machine-wide application support area:
// .../Nuvex/OOBE/Zelto/core/Zelto.app/Contents/MacOS/Zelto. Not tested for
// existence here; false only when the machine's folder is not found.
bool FindZeltoExecutable(std::string& path);

// Starts a new, detached instance with the arguments (null-terminated, or
// null for none). True only when it was started.
bool LaunchZelto(const std::string& path, char* const* arguments);

#endif // ORU_LAUNCHER_ZELTO_H
