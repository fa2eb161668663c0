// Where the maker's application Zelto is installed, and starting it.
#ifndef ORU_LAUNCHER_ZELTO_H
#define ORU_LAUNCHER_ZELTO_H

#include "platform/identity.h"

#include <string>

// The executable inside the machine-wide application support area:
// .../Nuvex/OOBE/Zelto/core/Zelto.app/Contents/MacOS/Zelto. Not tested for
// existence here; false only when the machine's folder is not found.
bool FindZeltoExecutable(std::string& path);

// Starts a new, detached instance with the arguments (null-terminated, or
// null for none). True only when it was started.
// Starts Zelto, detached, with the argument vector; with `as_user`, as that
// user (see platform::LaunchApplication).
bool LaunchZelto(const std::string& path, char* const* arguments,
                 const platform::Credentials* as_user = nullptr);

// Who Zelto runs as: Zelto is the user's application, so a privileged
// launcher that hands over a folder belonging to another user starts it as
// that user (its groups and gid, or the folder's group for a uid without a
// password-database entry). When the handed folder is root's or unknown
// (empty), the home folder's owner counts. False: start it as this process
// is.
bool ZeltoUserFor(const std::string& handed_folder, platform::Credentials& out);

#endif // ORU_LAUNCHER_ZELTO_H
