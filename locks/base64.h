// Standard base64 (RFC 4648: A-Z a-z 0-9 + /, "=" padding).
#ifndef ORU_LOCKS_BASE64_H
#define ORU_LOCKS_BASE64_H

#include <string>

namespace esd {

std::string Base64Encode(const unsigned char* bytes, size_t length);

} // namespace esd

#endif // ORU_LOCKS_BASE64_H
