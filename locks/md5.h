// MD5 digests (RFC 1321) from a system library (libmd on Linux).
#ifndef ORU_LOCKS_MD5_H
#define ORU_LOCKS_MD5_H

#include <array>
#include <string>

namespace oru_locks {

using Md5Digest = std::array<unsigned char, 16>;

// False only when the library cannot compute the digest.
bool ComputeMd5(const std::string& text, Md5Digest& digest);

} // namespace oru_locks

#endif // ORU_LOCKS_MD5_H
