// The freedesktop.org (XDG Base Directory) and FHS counterparts of the
// Folder Manager's folders. Pure: reads neither the environment nor the disk,
// so every row can be checked against any set of variables.
#ifndef ORU_PLATFORM_XDG_FOLDERS_LINUX_H
#define ORU_PLATFORM_XDG_FOLDERS_LINUX_H

#include "platform/folders.h"

#include <string>

namespace platform {

// The variables a folder lookup honours, as found (empty when unset).
struct XdgEnvironment {
  std::string home;
  std::string data_home;
  std::string cache_home;
  std::string config_home;
  std::string state_home;
  std::string data_dirs;
  std::string config_dirs;
  std::string tmpdir;

  // This process's variables; `home` from HOME, else the passwd entry of the
  // effective user.
  static XdgEnvironment FromProcess();

  // Another user's folders: the given home and the defaults under it.
  static XdgEnvironment ForHome(const std::string& home);
};

// The folder of the given domain and type; false for a folder that has no
// counterpart in that domain, or when the home folder is not known.
bool XdgFolderPath(FolderDomain domain, FolderType type, const XdgEnvironment& env,
                   std::string& out);

// The user's logs folder: $XDG_STATE_HOME, else ~/.local/state.
bool XdgUserLogsFolder(const XdgEnvironment& env, std::string& out);

} // namespace platform

#endif // ORU_PLATFORM_XDG_FOLDERS_LINUX_H
