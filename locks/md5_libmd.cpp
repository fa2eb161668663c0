// MD5 through libmd, the BSD message-digest library: a small library of its
// own, so that the launcher does not load all of a crypto library for one
// digest (macOS uses CommonCrypto instead).
#if defined(__APPLE__)
#error "md5_libmd.cpp is for systems with libmd; macOS uses mac/md5_mac.cpp"
#endif

#include "locks/md5.h"

#include <md5.h>

namespace oru_locks {

bool ComputeMd5(const std::string& text, Md5Digest& digest) {
  MD5_CTX context;
  MD5Init(&context);
  MD5Update(&context, reinterpret_cast<const uint8_t*>(text.data()), text.size());
  static_assert(MD5_DIGEST_LENGTH == sizeof(Md5Digest), "an MD5 digest is 16 bytes");
  MD5Final(digest.data(), &context);
  return true;
}

} // namespace oru_locks
