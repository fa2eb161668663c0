#include "esd/format_string.h"

#include "esd/change_type.h"

#include <cctype>

namespace esd {

bool FormatString(std::string& out, const std::string& format, const std::string& value0,
                  int value1, const std::string& value2, const std::string& value3,
                  const std::string& value4, const std::string& value5, const std::string& value6,
                  const std::string& value7, const std::string& value8, const std::string& value9) {
  const std::string* strings[10] = {&value0, nullptr, &value2, &value3, &value4,
                                    &value5, &value6, &value7, &value8, &value9};
  out.clear();
  size_t i = 0;
  while (i < format.size()) {
    const char c = format[i];
    if (c != '%' || i + 1 == format.size()) {
      out += c;
      ++i;
      continue;
    }
    const char next = format[i + 1];
    if (next == '%') {
      out += '%';
      i += 2;
      continue;
    }
    if (!std::isdigit(static_cast<unsigned char>(next))) {
      out += '%';
      out += next;
      i += 2;
      continue;
    }
    size_t end = i + 1;
    unsigned long number = 0;
    while (end < format.size() && std::isdigit(static_cast<unsigned char>(format[end]))) {
      number = number > 100 ? number : number * 10 + static_cast<unsigned long>(format[end] - '0');
      ++end;
    }
    if (number > 9) {
      return false;
    }
    if (number == 1) {
      std::string text;
      if (!ChangeDiffTypeImpl<int, std::string>::ChangeType(value1, text)) {
        return false;
      }
      out += text;
    } else {
      out += *strings[number];
    }
    i = end;
  }
  return true;
}

} // namespace esd
