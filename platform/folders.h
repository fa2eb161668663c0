// Well-known folders of the machine and of the logged-in (console) user.
//
// Folders are named the way the macOS Folder Manager names them: a domain
// (the user's or the machine's) and a four-character folder type. Two small
// numbering schemes on top of that, `FindSystemFolder` kinds and
// `GetStandardPath` kinds, are what the rest of the product passes around.
//
// Nothing here throws or logs; every lookup reports success as a bool and
// leaves its output untouched on failure unless a kind says otherwise.
#ifndef ORU_PLATFORM_FOLDERS_H
#define ORU_PLATFORM_FOLDERS_H

#include <cstdint>
#include <string>

namespace platform {

enum class FolderDomain : int16_t {
  kUser = -32763,
  kLocal = -32765,
};

// A Folder Manager folder type: four bytes, most significant first.
using FolderType = uint32_t;

constexpr FolderType MakeFolderType(unsigned char a, unsigned char b, unsigned char c,
                                    unsigned char d) {
  return (FolderType{a} << 24) | (FolderType{b} << 16) | (FolderType{c} << 8) | FolderType{d};
}

constexpr FolderType kApplicationsFolderType = MakeFolderType('a', 'p', 'p', 's');
constexpr FolderType kApplicationSupportFolderType = MakeFolderType('a', 's', 'u', 'p');
constexpr FolderType kCachesFolderType = MakeFolderType('c', 'a', 'c', 'h');
constexpr FolderType kDesktopFolderType = MakeFolderType('d', 'e', 's', 'k');
constexpr FolderType kDocumentsFolderType = MakeFolderType('d', 'o', 'c', 's');
constexpr FolderType kFlntFolderType = MakeFolderType('f', 'l', 'n', 't');
constexpr FolderType kTemporaryFolderType = MakeFolderType('u', 't', 'm', 'p');
constexpr FolderType kFontsFolderType = MakeFolderType('f', 'o', 'n', 't');
constexpr FolderType kSystemFolderType = MakeFolderType('m', 'a', 'c', 's');
constexpr FolderType kPreferencesFolderType = MakeFolderType('p', 'r', 'e', 'f');
constexpr FolderType kSharedUserDataFolderType = MakeFolderType('s', 'd', 'a', 't');
constexpr FolderType kDomainTopLevelFolderType = MakeFolderType('r', 'o', 'o', 't');
constexpr FolderType kUtilitiesFolderType = MakeFolderType('u', 't', 'i', 0xC4);

// Longest path a folder lookup hands out, including the terminating NUL of
// the platform buffer it is copied from.
constexpr size_t kMaxFolderPathBytes = 1024;

// Finds (and with `create`, makes) a folder of the given domain and type.
bool FindFolder(FolderDomain domain, FolderType type, bool create, std::string& out);

// `FindFolder` with `create` set.
bool FindFolderPath(FolderDomain domain, FolderType type, std::string& out);

// Where `FindFolder` with `create` set would find or make the folder,
// whether it is there or not; nothing is made or changed. For tools that
// only look.
bool FolderPathOf(FolderDomain domain, FolderType type, std::string& out);

// The older numbering of well-known folders. The numbers are what other
// programs of the product pass around, so they are fixed; several name the
// same folder.
enum class SystemFolderKind : int {
  kUserFonts = 0,          // "flnt", user
  kUserTemporary = 1,      // "utmp", user
  kLocalTemporary = 2,     // "utmp", machine
  kUserDesktop = 3,        // "desk", user
  kUserDocuments = 4,      // "docs", user
  kUserCaches = 5,         // "cach", user
  kUserPreferences = 6,    // "pref", user
  kUserSupport = 7,        // "asup", user
  kLocalSupportKind8 = 8,  // "asup", machine
  kLocalSupportKind9 = 9,  // "asup", machine
  kLocalFonts = 10,        // "font", machine
  kLocalSystemKind11 = 11, // "macs", machine
  kLocalSystemKind12 = 12, // "macs", machine
  kLocalSupport = 13,      // "asup", machine
  kRoot = 14,              // "/", no lookup
};

// Kind 14 is "/" and needs no lookup; any other number fails.
bool FindSystemFolder(SystemFolderKind kind, std::string& out, bool create);
// The path `FindSystemFolder` with `create` would find or make; see
// `FolderPathOf`.
bool SystemFolderPathOf(SystemFolderKind kind, std::string& out);

// The product numbering of its own folders; numbers not named here mean
// nothing and fail.
enum class StandardPathKind : int {
  kLocalApplications = 0,
  kLocalSupportKind2 = 2,
  kLocalSupportKind3 = 3,
  kHome = 9,
  kConsoleDocuments = 10,
  kConsoleSupport = 12,
  kLocalSharedData = 13,
  kTmp = 15,
  kBundleFolder = 16,
  kBundleParent = 17,
  kLocalNuvex = 18,
  kConsoleNuvex = 19,
  kSharedNuvex = 20,
  kLocalOobe = 21,
  kConsoleOobe = 22,
  kSharedOobe = 23,
  kApplicationManager = 24,
  kLocalZelto = 25,
  kConsoleZelto = 26,
  kOruRefs = 27,
  kNdcRefs = 28,
  kDesktopCommon = 29,
  kVornica = 30,
  kLocalPreferences = 31,
  kConsoleLogs = 32,
};

// Kinds 18-30 append their suffix to whatever `out` holds and return true
// even when the base lookup failed; callers take true to mean the path is
// known.
bool GetStandardPath(StandardPathKind kind, std::string& out);

// The console user's application support folder followed by "/Nuvex".
void GetUserNuvexSupportFolder(std::string& out);

// The folder the running program was started from: its bundle folder, or,
// for a bare executable that is not inside a bundle, the executable's own
// path (not its folder).
bool GetBundleFolder(std::string& out);

// Appends "/Contents/Info.plist" to `bundle_path` in place, reads that
// property list and copies out its "CFBundleShortVersionString".
bool GetBundleShortVersion(std::string& bundle_path, std::string& version);

// The home folder of the current process (never fails when one is known).
std::string HomeDirectory();

// The current process's home folder. Returns true always; `out` is left
// untouched when no home folder is known.
bool GetHomeFolder(std::string& out);

// The home folder of the console user (the current user's when there is no
// console user or it is the current user).
bool GetConsoleUserHome(std::string& out);

// The console user's logs folder, created (mode 0700) when missing.
bool GetUserLogsFolder(std::string& out);
// The same folder's path, with nothing made.
bool LookUpUserLogsFolder(std::string& out);

} // namespace platform

#endif // ORU_PLATFORM_FOLDERS_H
