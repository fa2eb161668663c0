#include "platform/locale.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <set>
#include <thread>

namespace platform {
namespace {

using oru_testing::ScopedEnv;

std::string Resolve(const std::vector<std::string>& preferred, const std::string& current = "") {
  std::string locale;
  EXPECT_TRUE(ResolveLocaleFrom(preferred, current, locale));
  return locale;
}

struct TableRow {
  std::vector<std::string> keys;
  const char* locale;
};

class LanguageLocaleTableRowTest : public ::testing::TestWithParam<TableRow> {};

TEST_P(LanguageLocaleTableRowTest, EveryKeyMapsToTheRowsCode) {
  const auto& table = LanguageLocaleTable();
  for (const std::string& key : GetParam().keys) {
    const auto found = table.find(key);
    ASSERT_NE(found, table.end()) << key;
    EXPECT_EQ(found->second, GetParam().locale) << key;
    std::string mapped;
    ASSERT_TRUE(MapLanguageToLocale(key, mapped)) << key;
    EXPECT_EQ(mapped, GetParam().locale) << key;
  }
}

const TableRow kTableRows[] = {
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
    {{"zh-hk", "zh_HK"}, "zh_TW"},
    {{"zh-Hant", "zh-tw", "zh_TW", "zh_tw"}, "zh_TW"},
};

INSTANTIATE_TEST_SUITE_P(EveryRow, LanguageLocaleTableRowTest, ::testing::ValuesIn(kTableRows),
                         [](const ::testing::TestParamInfo<TableRow>& info) {
                           return std::string(info.param.locale) + "_row" +
                                  std::to_string(info.index);
                         });

TEST(LanguageLocaleTableTest, HoldsExactlyTheRowsKeys) {
  std::set<std::string> keys;
  for (const TableRow& row : kTableRows) {
    keys.insert(row.keys.begin(), row.keys.end());
  }
  EXPECT_EQ(LanguageLocaleTable().size(), keys.size());
  EXPECT_EQ(keys.size(), 107u); // 21 rows of 4, 4 of 3, 5 + 2 + 4
}

TEST(LanguageLocaleTableTest, IsBuiltOnceEvenWhenManyThreadsAskFirst) {
  std::vector<const void*> seen(8);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&seen, i] { seen[i] = &LanguageLocaleTable(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const void* table : seen) {
    EXPECT_EQ(table, seen.front());
  }
}

TEST(MapLanguageToLocaleTest, EnGbMatchesAfterLowerCasing) {
  std::string locale;
  ASSERT_TRUE(MapLanguageToLocale("en-GB", locale));
  EXPECT_EQ(locale, "en_GB");
}

TEST(MapLanguageToLocaleTest, EnAuFallsBackToTheTwoLetterLanguage) {
  std::string locale;
  ASSERT_TRUE(MapLanguageToLocale("en-AU", locale));
  EXPECT_EQ(locale, "en_US");
}

TEST(MapLanguageToLocaleTest, ZhHansCnMatchesThroughTheSevenCharacterCut) {
  std::string locale;
  ASSERT_TRUE(MapLanguageToLocale("zh-Hans-CN", locale));
  EXPECT_EQ(locale, "zh_CN");
  ASSERT_TRUE(MapLanguageToLocale("zh-Hant-TW", locale));
  EXPECT_EQ(locale, "zh_TW");
}

TEST(MapLanguageToLocaleTest, LowerCaseZhHantOnlyMatchesTheTwoLetterStepAndGivesZhCn) {
  std::string locale;
  ASSERT_TRUE(MapLanguageToLocale("zh-hant", locale));
  EXPECT_EQ(locale, "zh_CN");
}

TEST(MapLanguageToLocaleTest, PtPtGivesPtBr) {
  std::string locale;
  ASSERT_TRUE(MapLanguageToLocale("pt-PT", locale));
  EXPECT_EQ(locale, "pt_BR");
}

TEST(MapLanguageToLocaleTest, Es419GivesEsEs) {
  std::string locale;
  ASSERT_TRUE(MapLanguageToLocale("es-419", locale));
  EXPECT_EQ(locale, "es_ES");
}

TEST(MapLanguageToLocaleTest, FiveCharacterCutCatchesALongerRegion) {
  std::string locale;
  ASSERT_TRUE(MapLanguageToLocale("fr-ca-x", locale));
  EXPECT_EQ(locale, "fr_CA");
}

TEST(MapLanguageToLocaleTest, UpperCaseCodeIsFoundAfterLowerCasing) {
  std::string locale;
  ASSERT_TRUE(MapLanguageToLocale("DE-DE", locale));
  EXPECT_EQ(locale, "de_DE");
}

TEST(MapLanguageToLocaleTest, MissLeavesTheOutputUntouched) {
  for (const char* language : {"is", "hr", "x", "", "xx-YY-zz-long"}) {
    std::string locale = "untouched";
    EXPECT_FALSE(MapLanguageToLocale(language, locale)) << language;
    EXPECT_EQ(locale, "untouched");
  }
}

TEST(ResolveLocaleTest, ArSaIsNotBareArabicAndTheNextLanguageIsTried) {
  EXPECT_EQ(Resolve({"ar-SA", "de"}, "ar_DZ"), "de_DE");
}

TEST(ResolveLocaleTest, BareArabicGivesEnAe) {
  EXPECT_EQ(Resolve({"ar", "de"}, "ar_SA"), "en_AE");
}

TEST(ResolveLocaleTest, BareArabicInTheMaghrebGivesFrMa) {
  EXPECT_EQ(Resolve({"ar"}, "ar_DZ"), "fr_MA");
  EXPECT_EQ(Resolve({"AR"}, "ar_tn"), "fr_MA");
  EXPECT_EQ(Resolve({"ar"}, "AR_MA"), "fr_MA");
  EXPECT_EQ(Resolve({"ar"}, "ar_MAX"), "en_AE");
}

TEST(ResolveLocaleTest, HebrewWinsOverAnyLaterLanguage) {
  EXPECT_EQ(Resolve({"he", "de", "en"}), "en_IL");
  EXPECT_EQ(Resolve({"HE"}), "en_IL");
}

TEST(ResolveLocaleTest, FirstSupportedLanguageWins) {
  EXPECT_EQ(Resolve({"is", "fr-CA", "de"}), "fr_CA");
}

TEST(ResolveLocaleTest, OnlyUnsupportedLanguagesGiveEnUs) {
  EXPECT_EQ(Resolve({"is", "hr"}), "en_US");
}

TEST(ResolveLocaleTest, OneCharacterEntryMissesAndIsSkipped) {
  EXPECT_EQ(Resolve({"d", "it"}), "it_IT");
}

TEST(ResolveLocaleTest, NoLanguagesGiveEnUs) {
  EXPECT_EQ(Resolve({}), "en_US");
}

TEST(ResolveLocaleTest, OutputSetOnEntryIsKeptWhenNothingMatches) {
  std::string locale = "xx_XX";
  ASSERT_TRUE(ResolveLocaleFrom({"is"}, "", locale));
  EXPECT_EQ(locale, "xx_XX");
  ASSERT_TRUE(ResolveLocaleFrom({"ja"}, "", locale));
  EXPECT_EQ(locale, "ja_JP");
}

class LocaleEnvironmentTest : public ::testing::Test {
protected:
  ScopedEnv language_{"LANGUAGE"};
  ScopedEnv lc_all_{"LC_ALL"};
  ScopedEnv lc_messages_{"LC_MESSAGES"};
  ScopedEnv lang_{"LANG"};
};

TEST_F(LocaleEnvironmentTest, PreferredLanguagesComeFromLanguageThenTheLocaleVariables) {
  ScopedEnv language("LANGUAGE", "sv:de_DE.UTF-8::C");
  ScopedEnv lc_all("LC_ALL", "fr_FR.ISO-8859-1@euro");
  ScopedEnv messages("LC_MESSAGES", "POSIX");
  ScopedEnv lang("LANG", "C.UTF-8");
  EXPECT_EQ(PreferredLanguages(), (std::vector<std::string>{"sv", "de_DE", "fr_FR"}));
}

TEST_F(LocaleEnvironmentTest, CurrentLocaleIsTheFirstSetOfLcAllLcMessagesLang) {
  EXPECT_EQ(CurrentLocaleIdentifier(), "");
  ScopedEnv lang("LANG", "ar_SA.UTF-8");
  EXPECT_EQ(CurrentLocaleIdentifier(), "ar_SA");
  ScopedEnv messages("LC_MESSAGES", "ar_MA");
  EXPECT_EQ(CurrentLocaleIdentifier(), "ar_MA");
  ScopedEnv lc_all("LC_ALL", "ar_DZ.UTF-8");
  EXPECT_EQ(CurrentLocaleIdentifier(), "ar_DZ");
}

TEST_F(LocaleEnvironmentTest, ResolveLocaleUsesTheEnvironment) {
  ScopedEnv language("LANGUAGE", "is:nb_NO");
  std::string locale;
  ASSERT_TRUE(ResolveLocale(locale));
  EXPECT_EQ(locale, "nb_NO");
}

TEST_F(LocaleEnvironmentTest, ResolveLocaleWithoutAnyVariableGivesEnUs) {
  std::string locale;
  ASSERT_TRUE(ResolveLocale(locale));
  EXPECT_EQ(locale, "en_US");
}

TEST_F(LocaleEnvironmentTest, ArabicRuleReadsTheCurrentLocale) {
  ScopedEnv language("LANGUAGE", "ar");
  ScopedEnv lang("LANG", "ar_TN.UTF-8");
  std::string locale;
  ASSERT_TRUE(ResolveLocale(locale));
  EXPECT_EQ(locale, "fr_MA");
}

} // namespace
} // namespace platform
