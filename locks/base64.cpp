#include "locks/base64.h"

namespace esd {

std::string Base64Encode(const unsigned char* bytes, size_t length) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  encoded.reserve((length + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= length; i += 3) {
    const unsigned group = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    encoded += kAlphabet[(group >> 18) & 63];
    encoded += kAlphabet[(group >> 12) & 63];
    encoded += kAlphabet[(group >> 6) & 63];
    encoded += kAlphabet[group & 63];
  }
  const size_t rest = length - i;
  if (rest > 0) {
    const unsigned group = (bytes[i] << 16) | (rest == 2 ? bytes[i + 1] << 8 : 0);
    encoded += kAlphabet[(group >> 18) & 63];
    encoded += kAlphabet[(group >> 12) & 63];
    encoded += rest == 2 ? kAlphabet[(group >> 6) & 63] : '=';
    encoded += '=';
  }
  return encoded;
}

} // namespace esd
