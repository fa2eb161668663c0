// Facts about the running operating system for log headers and placement.
#ifndef ORU_PLATFORM_OS_INFO_H
#define ORU_PLATFORM_OS_INFO_H

#include <cstdint>
#include <string>

namespace platform {

struct OSVersion {
  int64_t major = 0;
  int64_t minor = 0;
  int64_t patch = 0;
};

// The name the product shows for this operating system ("Mac OS", "Linux").
extern const char kOSDisplayName[];

// Fills `version` from the running system. When the system cannot tell, the
// version is left exactly as passed in, so callers initialise it.
void GetOSVersion(OSVersion& version);

// kOSDisplayName + " " + "major.minor.patch". Always true.
bool FormatOSName(const OSVersion& version, std::string& text);

// The same with another display name.
void FormatOSNameAs(const char* display_name, const OSVersion& version, std::string& text);

// "major.minor.patch". Always true.
bool FormatVersionTriple(const OSVersion& version, std::string& text);

// 32 for an "i386" machine and 64 for anything else.
bool GetMachineBitness(uint32_t& bits);
uint32_t BitnessForMachine(const char* machine);

// The kernel's identifier of the calling thread.
uint64_t GetCurrentThreadId();

// Whether log lines show thread ids on this system. macOS 10.5 and older do
// not (ThreadIdsShownOnMacVersion); every other system does.
bool ThreadIdsShown();
// The macOS rule: hidden only when the version is known and is 10.5 or older
// (major at most 10 and minor at most 5).
bool ThreadIdsShownOnMacVersion(bool version_known, const OSVersion& version);

// Reads "major[.minor[.patch]]" from the start of a kernel release string
// ("6.1.0-18-amd64"); missing parts are 0. Leaves `version` untouched and
// returns false when the text does not start with a number.
bool ParseReleaseVersion(const char* release, OSVersion& version);

} // namespace platform

#endif // ORU_PLATFORM_OS_INFO_H
