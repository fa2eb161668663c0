// The user's locale code ("de_DE"), chosen from the fixed set the product
// ships, from the user's ordered list of preferred languages.
#ifndef ORU_PLATFORM_LOCALE_H
#define ORU_PLATFORM_LOCALE_H

#include <map>
#include <string>
#include <vector>

namespace platform {

// Language string (exact bytes) -> five-character locale code. Built once,
// on first use, and never changed afterwards.
const std::map<std::string, std::string>& LanguageLocaleTable();

// One lookup with the trimming and lower-casing fallbacks. Leaves `locale`
// untouched when nothing matches.
bool MapLanguageToLocale(const std::string& language, std::string& locale);

// The locale code for the current user. Always true; falls back to "en_US"
// when `locale` is empty and nothing matched.
bool ResolveLocale(std::string& locale);

// The choice itself, given the preferred languages (most preferred first)
// and the current locale identifier that the Arabic rule consults.
bool ResolveLocaleFrom(const std::vector<std::string>& preferred_languages,
                       const std::string& current_locale_identifier, std::string& locale);

// What the system reports; see locale_<system> for where it comes from.
std::vector<std::string> PreferredLanguages();
std::string CurrentLocaleIdentifier();

} // namespace platform

#endif // ORU_PLATFORM_LOCALE_H
