#include "oobe/redaction.h"

#include <cctype>
#include <cstring>

namespace oobe {

const char kTokenReplacement[] = "Found access/device token. Log skipped.";
const char kMask[] = "****";

const std::vector<std::string>& DefaultCredentialKeys() {
  static const std::vector<std::string> keys = {"proxyusername", "proxy-user", "proxyuser",
                                                "user",          "username",   "proxy-password",
                                                "proxypassword", "password"};
  return keys;
}

bool ContainsWebToken(const char* message) {
  if (!message) {
    return false;
  }
  const char* header = std::strstr(message, "eyJ");
  return header && std::strstr(header, ".eyJ");
}

void MaskValue(std::string& text, size_t open, size_t close, size_t length) {
  std::string masked = text.substr(0, open + length);
  masked += kMask;
  masked.append(text, close, std::string::npos);
  text = std::move(masked);
}

void RedactCredentials(const std::vector<std::string>& keys, std::string_view message,
                       std::string& output) {
  output.assign(message.data(), message.size());
  // Without a "<" there is no element to mask; most lines end here.
  if (message.find('<') == std::string_view::npos) {
    return;
  }
  std::string lower(message);
  for (char& c : lower) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  for (const std::string& key : keys) {
    const std::string opening = "<" + key + ">";
    const std::string closing = "</" + key + ">";
    const size_t open = lower.find(opening);
    if (open == std::string::npos) {
      continue;
    }
    // Searched from the start, not after the opening tag: a closing tag
    // earlier in the text is used as it is.
    const size_t close = lower.find(closing);
    if (close == std::string::npos || close == open + opening.size()) {
      continue;
    }
    MaskValue(output, open, close, opening.size());
    MaskValue(lower, open, close, opening.size());
  }
}

} // namespace oobe
