#include "launcher/zelto.h"

#include "platform/folders.h"
#include "platform/launch.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"

bool FindZeltoExecutable(std::string& path) {
  path.clear();
  std::string folder;
  if (!platform::FindSystemFolder(platform::SystemFolderKind::kLocalSupport, folder, false)) {
    return false;
  }
  for (const char* component :
       {"Nuvex", "OOBE", "Zelto", "core", "Zelto.app/Contents/MacOS/Zelto"}) {
    folder = platform::JoinPath(folder, component);
  }
  path = folder;
  return true;
}

bool LaunchZelto(const std::string& path, char* const* arguments,
                 const platform::Credentials* as_user) {
  return platform::LaunchApplication(path, arguments, as_user);
}

bool ZeltoUserFor(const std::string& handed_folder, platform::Credentials& out) {
  if (!platform::IsPrivileged()) {
    return false;
  }
  // The handed folder's owner; when that is root (the user's own folders
  // could not be used and the machine's temporary folder served) or there
  // is none, the owner of the home folder, so that a user cannot get Zelto
  // started as root by breaking their own folders.
  for (const std::string& path : {handed_folder, platform::HomeDirectory()}) {
    platform::FolderHandle folder;
    if (!path.empty() && platform::OpenFolder(path, folder) && folder.owner() != 0) {
      out = platform::CredentialsOf(folder.owner(), folder.info().st_gid);
      return true;
    }
  }
  return false;
}
