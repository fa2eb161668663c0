// Keeping secrets out of log lines: a message that holds a web token is
// dropped whole; the text of proxy-credential elements (<password>...) is
// masked. Both work on the fully formatted message.
#ifndef ORU_OOBE_REDACTION_H
#define ORU_OOBE_REDACTION_H

#include <string>
#include <string_view>
#include <vector>

namespace oobe {

extern const char kTokenReplacement[]; // "Found access/device token. Log skipped."
extern const char kMask[];             // "****"

// The credential element names, in the order they are tried.
const std::vector<std::string>& DefaultCredentialKeys();

// True when the message holds "eyJ" and, from there on, ".eyJ": the shape of
// a JSON web token.
bool ContainsWebToken(const char* message);

// `output` becomes the message with the text of the first element of each
// key masked (tags matched without regard to case).
void RedactCredentials(const std::vector<std::string>& keys, std::string_view message,
                       std::string& output);

// The first open + length characters, the mask, then everything from close.
void MaskValue(std::string& text, size_t open, size_t close, size_t length);

} // namespace oobe

#endif // ORU_OOBE_REDACTION_H
