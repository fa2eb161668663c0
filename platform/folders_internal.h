// Shared between the portable folder code and its system backend. Internal to
// platform/.
#ifndef ORU_PLATFORM_FOLDERS_INTERNAL_H
#define ORU_PLATFORM_FOLDERS_INTERNAL_H

#include "platform/folders.h"

#include <string>

namespace platform {
namespace internal {

// `FindFolder` as the console user: under that user's identity, and with
// that user's folders when the console user is not the current user.
bool FindFolderAsConsoleUser(FolderDomain domain, FolderType type, bool create, std::string& out);

// The console user's logs folder with its missing levels created while the
// console user's identity is in force. True only if it exists afterwards.
bool MakeConsoleUserLogsFolderAsConsoleUser(std::string& out);

// The bundle that holds an executable: the "Name.app" folder for an
// executable at "Name.app/Contents/MacOS/Name", else the executable's folder.
std::string BundlePathForExecutable(const std::string& executable_path);

// The bundle folder rule: for a bare executable (its folder is the bundle
// path) the executable path exactly as given, otherwise the standardised
// bundle path.
std::string SelectBundleFolder(const std::string& executable_path, const std::string& bundle_path);

} // namespace internal
} // namespace platform

#endif // ORU_PLATFORM_FOLDERS_INTERNAL_H
