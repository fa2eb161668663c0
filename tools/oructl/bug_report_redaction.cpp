#include "oobe/redaction.h"
#include "tools/oructl/bug_report.h"

namespace oructl {

namespace {

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end;
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

// A line with its part from `from` on redacted as a message.
std::string RedactFrom(const std::string& line, size_t from, size_t to, int& redacted) {
  std::string message = line.substr(from, to - from);
  if (RedactMessage(message)) {
    ++redacted;
  }
  return line.substr(0, from) + message + line.substr(to);
}

} // namespace

bool RedactMessage(std::string& message) {
  if (oobe::ContainsWebToken(message.c_str())) {
    message = oobe::kTokenReplacement;
    return true;
  }
  std::string masked;
  oobe::RedactCredentials(oobe::DefaultCredentialKeys(), message, masked);
  const bool changed = masked != message;
  message = std::move(masked);
  return changed;
}

std::string RedactLogText(const std::string& text, int& redacted) {
  constexpr char kSeparator[] = " | ";
  constexpr int kSeparatorsBeforeMessage = 9;
  std::string out;
  for (const std::string& line : LinesOf(text)) {
    size_t at = 0;
    int seen = 0;
    while (seen < kSeparatorsBeforeMessage &&
           (at = line.find(kSeparator, at)) != std::string::npos) {
      at += sizeof kSeparator - 1;
      ++seen;
    }
    // A continued message line holds no separators: all of it is message.
    const size_t message = seen == kSeparatorsBeforeMessage ? at : 0;
    out += RedactFrom(line, message, line.size(), redacted) + "\n";
  }
  return out;
}

std::string RedactPrefsText(const std::string& text, int& redacted) {
  std::string out;
  for (const std::string& line : LinesOf(text)) {
    const size_t open_end = line.find('>');
    const size_t close = line.rfind("</");
    const bool one_element =
        open_end != std::string::npos && close != std::string::npos && close > open_end;
    out += (one_element ? RedactFrom(line, open_end + 1, close, redacted)
                        : RedactFrom(line, 0, line.size(), redacted)) +
           "\n";
  }
  return out;
}

void RedactJson(oru_tools::Json& json, int& redacted) {
  if (json.is_string()) {
    std::string text = json.get<std::string>();
    if (RedactMessage(text)) {
      ++redacted;
      json = text;
    }
    return;
  }
  if (json.is_structured()) {
    for (auto& value : json) {
      RedactJson(value, redacted);
    }
  }
}

} // namespace oructl
