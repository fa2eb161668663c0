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
  platform::FolderHandle folder;
  if (!platform::IsPrivileged() || !platform::OpenFolder(handed_folder, folder) ||
      folder.owner() == 0) {
    return false;
  }
  out = platform::CredentialsOf(folder.owner(), folder.info().st_gid);
  return true;
}
