// Feeds arbitrary language lists to the locale choice. Whatever comes out
// must be one of the product's locale codes, or one of the special codes.
#include "platform/locale.h"

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace {

bool IsKnownCode(const std::string& code) {
  static const std::set<std::string> codes = [] {
    std::set<std::string> all{"en_IL", "en_AE", "fr_MA"};
    for (const auto& entry : platform::LanguageLocaleTable()) {
      all.insert(entry.second);
    }
    return all;
  }();
  return codes.count(code) != 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);

  std::string mapped;
  if (platform::MapLanguageToLocale(input, mapped) && !IsKnownCode(mapped)) {
    std::abort();
  }

  // First line: the current locale; the rest: preferred languages.
  std::vector<std::string> lines;
  size_t start = 0;
  while (start <= input.size()) {
    const size_t end = input.find('\n', start);
    lines.push_back(
        input.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) {
      break;
    }
    start = end + 1;
  }
  const std::string current = lines.front();
  lines.erase(lines.begin());
  std::string locale;
  platform::ResolveLocaleFrom(lines, current, locale);
  if (!IsKnownCode(locale)) {
    std::abort();
  }
  return 0;
}
