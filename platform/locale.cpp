#include "platform/locale.h"

#include <cctype>
#include <strings.h>

namespace platform {

namespace {

struct LanguageRow {
  // Up to five keys; null ends the list early.
  const char* keys[5];
  const char* locale;
};

// In table order; a key met twice keeps its first code.
constexpr LanguageRow kLanguageRows[] = {
    {{"cs", "cs-cz", "cs_CZ", "cs_cz"}, "cs_CZ"},
    {{"da", "da-dk", "da_DK", "da_dk"}, "da_DK"},
    {{"de", "de-de", "de_DE", "de_de"}, "de_DE"},
    {{"el", "el-gr", "el_GR", "el_gr"}, "el_GR"},
    {{"en", "en-us", "en_US", "en_us"}, "en_US"},
    {{"en-gb", "en_GB", "en_gb"}, "en_GB"},
    {{"es", "es-es", "es_ES", "es_es"}, "es_ES"},
    {{"es-la", "es_LA", "es_la"}, "es_LA"},
    {{"es-na", "es_NA", "es_na"}, "es_NA"},
    {{"fi", "fi-fi", "fi_FI", "fi_fi"}, "fi_FI"},
    {{"fr", "fr-fr", "fr_FR", "fr_fr"}, "fr_FR"},
    {{"fr-ca", "fr_CA", "fr_ca"}, "fr_CA"},
    {{"hu", "hu-hu", "hu_HU", "hu_hu"}, "hu_HU"},
    {{"it", "it-it", "it_IT", "it_it"}, "it_IT"},
    {{"ja", "ja-jp", "ja_JP", "ja_jp"}, "ja_JP"},
    {{"ko", "ko-kr", "ko_KR", "ko_kr"}, "ko_KR"},
    {{"nb", "nb-no", "nb_NO", "nb_no"}, "nb_NO"},
    {{"nl", "nl-nl", "nl_NL", "nl_nl"}, "nl_NL"},
    {{"pl", "pl-pl", "pl_PL", "pl_pl"}, "pl_PL"},
    {{"pt", "pt-br", "pt_BR", "pt_br"}, "pt_BR"},
    {{"ro", "ro-ro", "ro_RO", "ro_ro"}, "ro_RO"},
    {{"ru", "ru-ru", "ru_RU", "ru_ru"}, "ru_RU"},
    {{"sv", "sv-se", "sv_SE", "sv_se"}, "sv_SE"},
    {{"tr", "tr-tr", "tr_TR", "tr_tr"}, "tr_TR"},
    {{"uk", "uk-ua", "uk_UA", "uk_ua"}, "uk_UA"},
    {{"zh", "zh-cn", "zh_CN", "zh_cn", "zh-Hans"}, "zh_CN"},
    // Hong Kong Chinese deliberately reads as Taiwanese Chinese; the row is
    // entered twice, which changes nothing.
    {{"zh-hk", "zh_HK"}, "zh_TW"},
    {{"zh-hk", "zh_HK"}, "zh_TW"},
    {{"zh-Hant", "zh-tw", "zh_TW", "zh_tw"}, "zh_TW"},
};

std::map<std::string, std::string> BuildLanguageLocaleTable() {
  std::map<std::string, std::string> table;
  for (const LanguageRow& row : kLanguageRows) {
    for (const char* key : row.keys) {
      if (key) {
        table.emplace(key, row.locale); // keeps an earlier value
      }
    }
  }
  return table;
}

bool Find(const std::string& language, std::string& locale) {
  const auto& table = LanguageLocaleTable();
  const auto found = table.find(language);
  if (found == table.end()) {
    return false;
  }
  locale = found->second;
  return true;
}

bool EqualsIgnoringCase(const std::string& text, const char* word) {
  return strcasecmp(text.c_str(), word) == 0;
}

} // namespace

const std::map<std::string, std::string>& LanguageLocaleTable() {
  // A function-local static is built exactly once, also when several
  // threads ask first at the same time.
  static const std::map<std::string, std::string> table = BuildLanguageLocaleTable();
  return table;
}

bool MapLanguageToLocale(const std::string& language, std::string& locale) {
  std::string key = language;
  if (Find(key, locale)) {
    return true;
  }
  // "zh-Hans-CN" and "zh-Hant-TW" become "zh-Hans" / "zh-Hant".
  if (key.size() >= 8) {
    key.resize(7);
    if (Find(key, locale)) {
      return true;
    }
  }
  if (key.size() >= 6) {
    key.resize(5);
    if (Find(key, locale)) {
      return true;
    }
  }
  for (char& c : key) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  if (Find(key, locale)) {
    return true;
  }
  if (key.size() < 3) {
    return false;
  }
  key.resize(2);
  return Find(key, locale);
}

bool ResolveLocaleFrom(const std::vector<std::string>& preferred_languages,
                       const std::string& current_locale_identifier, std::string& locale) {
  for (const std::string& language : preferred_languages) {
    if (EqualsIgnoringCase(language, "he")) {
      locale = "en_IL";
      break;
    }
    if (EqualsIgnoringCase(language, "ar")) {
      const bool maghreb = EqualsIgnoringCase(current_locale_identifier, "ar_DZ") ||
                           EqualsIgnoringCase(current_locale_identifier, "ar_TN") ||
                           EqualsIgnoringCase(current_locale_identifier, "ar_MA");
      locale = maghreb ? "fr_MA" : "en_AE";
      break;
    }
    if (MapLanguageToLocale(language, locale)) {
      break;
    }
  }
  if (locale.empty()) {
    locale = "en_US";
  }
  return true;
}

bool ResolveLocale(std::string& locale) {
  return ResolveLocaleFrom(PreferredLanguages(), CurrentLocaleIdentifier(), locale);
}

} // namespace platform
