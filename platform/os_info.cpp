#include "platform/os_info.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace platform {

namespace {

// Reads a decimal number at `text`; false when there is none.
bool ReadNumber(const char*& text, int64_t& number) {
  if (*text < '0' || *text > '9') {
    return false;
  }
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(text, &end, 10);
  if (errno == ERANGE) {
    return false;
  }
  number = value;
  text = end;
  return true;
}

} // namespace

void FormatOSNameAs(const char* display_name, const OSVersion& version, std::string& text) {
  char numbers[96];
  std::snprintf(numbers, sizeof numbers, "%ld.%ld.%ld", static_cast<long>(version.major),
                static_cast<long>(version.minor), static_cast<long>(version.patch));
  text = std::string(display_name) + " " + numbers;
}

bool FormatOSName(const OSVersion& version, std::string& text) {
  FormatOSNameAs(kOSDisplayName, version, text);
  return true;
}

bool FormatVersionTriple(const OSVersion& version, std::string& text) {
  char part[32];
  std::string triple;
  for (const int64_t number : {version.major, version.minor, version.patch}) {
    std::snprintf(part, sizeof part, "%lld", static_cast<long long>(number));
    if (!triple.empty()) {
      triple += '.';
    }
    triple += part;
  }
  text = triple;
  return true;
}

bool ThreadIdsShownOnMacVersion(bool version_known, const OSVersion& version) {
  return !(version_known && version.major <= 10 && version.minor <= 5);
}

uint32_t BitnessForMachine(const char* machine) {
  return std::strcmp(machine, "i386") == 0 ? 32 : 64;
}

bool ParseReleaseVersion(const char* release, OSVersion& version) {
  OSVersion parsed;
  const char* cursor = release;
  if (!ReadNumber(cursor, parsed.major)) {
    return false;
  }
  if (*cursor == '.' && ReadNumber(++cursor, parsed.minor) && *cursor == '.') {
    (void)ReadNumber(++cursor, parsed.patch); // a missing patch level stays 0
  }
  version = parsed;
  return true;
}

} // namespace platform
