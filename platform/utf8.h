// UTF-8 validity, the condition under which the platform's string APIs accept
// a byte string at all.
#ifndef ORU_PLATFORM_UTF8_H
#define ORU_PLATFORM_UTF8_H

#include <string>

namespace platform {

// True for well-formed UTF-8: shortest forms only, no surrogates, nothing
// above U+10FFFF.
bool IsValidUtf8(const std::string& text);

} // namespace platform

#endif // ORU_PLATFORM_UTF8_H
