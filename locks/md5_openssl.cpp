// MD5 through OpenSSL's EVP interface (macOS uses CommonCrypto instead).
#if defined(__APPLE__)
#error "md5_openssl.cpp is for systems with OpenSSL; macOS uses mac/md5_mac.cpp"
#endif

#include "locks/md5.h"

#include <openssl/evp.h>

namespace oru_locks {

bool ComputeMd5(const std::string& text, Md5Digest& digest) {
  unsigned int length = 0;
  Md5Digest computed{};
  if (EVP_Digest(text.data(), text.size(), computed.data(), &length, EVP_md5(), nullptr) != 1 ||
      length != computed.size()) {
    return false;
  }
  digest = computed;
  return true;
}

} // namespace oru_locks
