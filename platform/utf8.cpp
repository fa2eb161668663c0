#include "platform/utf8.h"

#include <cstddef>
#include <cstdint>

namespace platform {

namespace {

bool IsContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// Length of the sequence that starts with `lead`, and the smallest and
// largest allowed second byte, or 0 when `lead` cannot start a sequence.
size_t SequenceShape(unsigned char lead, unsigned char& second_min, unsigned char& second_max) {
  second_min = 0x80;
  second_max = 0xBF;
  if (lead < 0x80) {
    return 1;
  }
  if (lead >= 0xC2 && lead <= 0xDF) {
    return 2;
  }
  if (lead >= 0xE0 && lead <= 0xEF) {
    if (lead == 0xE0) {
      second_min = 0xA0; // no overlong forms
    } else if (lead == 0xED) {
      second_max = 0x9F; // no surrogates
    }
    return 3;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    if (lead == 0xF0) {
      second_min = 0x90;
    } else if (lead == 0xF4) {
      second_max = 0x8F; // nothing above U+10FFFF
    }
    return 4;
  }
  return 0;
}

} // namespace

bool IsValidUtf8(const std::string& text) {
  const size_t size = text.size();
  size_t i = 0;
  while (i < size) {
    unsigned char second_min;
    unsigned char second_max;
    const size_t length =
        SequenceShape(static_cast<unsigned char>(text[i]), second_min, second_max);
    if (length == 0 || size - i < length) {
      return false;
    }
    if (length > 1) {
      const auto second = static_cast<unsigned char>(text[i + 1]);
      if (second < second_min || second > second_max) {
        return false;
      }
      for (size_t k = 2; k < length; ++k) {
        if (!IsContinuation(static_cast<unsigned char>(text[i + k]))) {
          return false;
        }
      }
    }
    i += length;
  }
  return true;
}

} // namespace platform
