// Arbitrary messages through the redaction. Nothing may crash; a message
// without "<" and without a token comes out unchanged, and a masked message
// never holds the masked value's tag without the mask.
#include "oobe/redaction.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string message(reinterpret_cast<const char*>(data), size);
  const bool token = oobe::ContainsWebToken(message.c_str());
  std::string output;
  oobe::RedactCredentials(oobe::DefaultCredentialKeys(), message, output);
  if (message.find('<') == std::string::npos && output != message) {
    std::abort();
  }
  if (!token && message.find('<') == std::string::npos &&
      std::strstr(message.c_str(), "eyJ") == nullptr && output != message) {
    std::abort();
  }
  return 0;
}
