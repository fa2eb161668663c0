// The user's preferred languages on Linux come from the locale variables:
// LANGUAGE (a colon-separated list, most preferred first), then LC_ALL,
// LC_MESSAGES and LANG.
#if !defined(__linux__)
#error "locale_linux.cpp is the Linux backend; macOS uses mac/locale_mac.mm (NSLocale)"
#endif

#include "platform/identity.h"
#include "platform/locale.h"

namespace platform {

namespace {

// "de_DE.UTF-8@euro" -> "de_DE".
std::string WithoutEncodingOrModifier(const std::string& locale_name) {
  return locale_name.substr(0, locale_name.find_first_of(".@"));
}

bool IsPlainCLocale(const std::string& language) {
  return language == "C" || language == "POSIX";
}

void AddLanguage(const std::string& raw, std::vector<std::string>& languages) {
  const std::string language = WithoutEncodingOrModifier(raw);
  if (!language.empty() && !IsPlainCLocale(language)) {
    languages.push_back(language);
  }
}

} // namespace

std::vector<std::string> PreferredLanguages() {
  std::vector<std::string> languages;
  const std::string list = EnvironmentVariable("LANGUAGE");
  size_t start = 0;
  while (start < list.size()) {
    const size_t colon = list.find(':', start);
    const size_t end = colon == std::string::npos ? list.size() : colon;
    AddLanguage(list.substr(start, end - start), languages);
    start = end + 1;
  }
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    AddLanguage(EnvironmentVariable(name), languages);
  }
  return languages;
}

std::string CurrentLocaleIdentifier() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const std::string value = EnvironmentVariable(name);
    if (!value.empty()) {
      return WithoutEncodingOrModifier(value);
    }
  }
  return std::string();
}

} // namespace platform
