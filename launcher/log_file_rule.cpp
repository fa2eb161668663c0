#include "launcher/log_file_rule.h"

#include "launcher/user_local_path.h"
#include "platform/folders.h"
#include "platform/foundation_path_rules.h"
#include "platform/identity.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"

#include <algorithm>

namespace {

bool HasControlCharacter(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

// How the folders the rule compares with are found: made when missing (the
// launcher), or only looked up (the tools).
struct FolderLookups {
  bool (*userLocalPath)(std::string&);
  bool (*userLogsFolder)(std::string&);
};

const FolderLookups kMaking = {&GetUserLocalPath, &platform::GetUserLogsFolder};
const FolderLookups kLooking = {&LookUpUserLocalPath, &platform::LookUpUserLogsFolder};

// The updater's folder handed to Zelto: the parent of the folder that holds
// the preferences and the default log files.
bool UpdaterFolder(const FolderLookups& lookups, std::string& out) {
  std::string user_local;
  if (!lookups.userLocalPath(user_local)) {
    return false;
  }
  out = platform::DirName(user_local);
  return true;
}

bool InUpdaterFolder(const FolderLookups& lookups, const std::string& path) {
  std::string folder;
  return UpdaterFolder(lookups, folder) && PathIsInside(path, folder);
}

bool InLogsFolder(const FolderLookups& lookups, const std::string& path) {
  std::string logs;
  return lookups.userLogsFolder(logs) && PathIsInside(path, logs);
}

bool WorksForAnotherUserBy(const FolderLookups& lookups) {
  std::string folder;
  platform::FolderHandle handle;
  return platform::IsPrivileged() && UpdaterFolder(lookups, folder) &&
         platform::OpenFolder(folder, handle) && handle.owner() != 0;
}

std::string Refusal(const FolderLookups& lookups, const std::string& path) {
  if (HasControlCharacter(path)) {
    return "Oru Launcher : WARNING - LogFile preference refused: it holds a control character. "
           "Using the default log file.";
  }
  if (WorksForAnotherUserBy(lookups) && !InUpdaterFolder(lookups, path) &&
      !InLogsFolder(lookups, path)) {
    return "Oru Launcher : WARNING - LogFile preference refused: it lies outside the user's "
           "updater and logs folders. Using the default log file.";
  }
  return std::string();
}

} // namespace

bool WorksForAnotherUser() {
  return WorksForAnotherUserBy(kMaking);
}

bool PathIsInside(const std::string& path, const std::string& folder) {
  if (path.empty() || path.front() != '/' || folder.empty() || folder.front() != '/') {
    return false;
  }
  // Lexical: the walk that later opens the file follows no link a user
  // could have made, so what is inside by name is inside on disk.
  const std::string standard_path = platform::foundation::StandardizingPath(path);
  std::string standard_folder = platform::foundation::StandardizingPath(folder);
  if (standard_path == standard_folder) {
    return true;
  }
  if (standard_folder.back() != '/') {
    standard_folder += '/';
  }
  return standard_path.compare(0, standard_folder.size(), standard_folder) == 0;
}

std::string LogFileRefusal(const std::string& path) {
  return Refusal(kMaking, path);
}

std::string LogFileRefusalLookingOnly(const std::string& path) {
  return Refusal(kLooking, path);
}
