#include "launcher/zelto.h"

#include "platform/folders.h"
#include "platform/launch.h"
#include "platform/paths.h"

namespace {

constexpr int kLocalSupportKind = 13;

} // namespace

bool FindZeltoExecutable(std::string& path) {
  path.clear();
  std::string folder;
  if (!platform::FindSystemFolder(kLocalSupportKind, folder, false)) {
    return false;
  }
  for (const char* component :
       {"Nuvex", "OOBE", "Zelto", "core", "Zelto.app/Contents/MacOS/Zelto"}) {
    folder = platform::JoinPath(folder, component);
  }
  path = folder;
  return true;
}

bool LaunchZelto(const std::string& path, char* const* arguments) {
  return platform::LaunchApplication(path, arguments);
}
