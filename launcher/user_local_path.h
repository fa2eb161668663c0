// The user's updater folder, as the launcher and its log find it.
#ifndef ORU_LAUNCHER_USER_LOCAL_PATH_H
#define ORU_LAUNCHER_USER_LOCAL_PATH_H

#include <string>

// The process-wide cache: when set (non-empty) it wins over any lookup.
void SetUserLocalPathCache(const std::string& path);

// The cache if set; otherwise the updater folder under the user's
// application support folder (folder kind 7), else under kind 2.
bool GetUserLocalPath(std::string& out);

// Where GetUserLocalPath finds or makes the folder, with nothing made: for
// tools that only look.
bool LookUpUserLocalPath(std::string& out);

#endif // ORU_LAUNCHER_USER_LOCAL_PATH_H
