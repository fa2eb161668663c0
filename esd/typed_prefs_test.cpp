#include "esd/typed_prefs.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>

namespace esd {
namespace {

using oru_testing::ReadFile;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

class TypedPrefsTest : public ::testing::Test {
protected:
  void Load(const std::string& body) {
    WriteFile(path_, "<Preferences>" + body + "</Preferences>");
    writer_.SetPrefsPath(path_);
  }

  Sandbox sandbox_;
  std::string path_ = sandbox_.Path("prefs.dat");
  PrefsWriter writer_{"", "Preferences"};
};

TEST_F(TypedPrefsTest, BoolStoredAsTrueFailsToRead) {
  Load("<AutoCheck>true</AutoCheck>");
  BasicPref<bool> pref("AutoCheck", true);
  pref.prefs = &writer_;
  bool value = false;
  EXPECT_FALSE(pref.Get(value));
}

TEST_F(TypedPrefsTest, IntWithBlanksReadsAndWithTrailingTextOrOutOfRangeFails) {
  Load("<A> 7 </A><B>7x</B><C>2147483648</C>");
  BasicPref<int> a("A", 0);
  BasicPref<int> b("B", 0);
  BasicPref<int> c("C", 0);
  a.prefs = b.prefs = c.prefs = &writer_;
  int value = 0;
  ASSERT_TRUE(a.Get(value));
  EXPECT_EQ(value, 7);
  EXPECT_FALSE(b.Get(value));
  EXPECT_FALSE(c.Get(value));
}

TEST_F(TypedPrefsTest, MissingElementGivesTheDefault) {
  Load("");
  BasicPref<std::string> pref("DisplayLang", "fr");
  pref.prefs = &writer_;
  std::string value;
  ASSERT_TRUE(pref.Get(value));
  EXPECT_EQ(value, "fr");
}

TEST_F(TypedPrefsTest, PreferenceWithoutAWriterFails) {
  BasicPref<int> pref("A", 1);
  int value = 0;
  EXPECT_FALSE(pref.Get(value));
  EXPECT_FALSE(pref.Set(2));
  MapPref<std::string, bool> map("M");
  std::map<std::string, bool> entries{{"x", true}};
  EXPECT_TRUE(map.Get(entries));
  EXPECT_TRUE(entries.empty());
  EXPECT_FALSE(map.Set({{"x", true}}));
}

TEST_F(TypedPrefsTest, IsDefaultComparesWithTheDefaultWhateverTheFileHolds) {
  Load("<AutoCheck>0</AutoCheck>");
  BasicPref<bool> pref("AutoCheck", true);
  pref.prefs = &writer_;
  EXPECT_TRUE(pref.IsDefault(true));
  EXPECT_FALSE(pref.IsDefault(false));
  BasicPref<std::string> text("T", "abc");
  EXPECT_TRUE(text.IsDefault("abc"));
  EXPECT_FALSE(text.IsDefault("ABC"));
}

TEST_F(TypedPrefsTest, SetSavesTheFile) {
  Load("");
  BasicPref<unsigned long> pref("WebFeedSeqNo", 0);
  pref.prefs = &writer_;
  ASSERT_TRUE(pref.Set(12));
  EXPECT_NE(ReadFile(path_).find("<WebFeedSeqNo>12</WebFeedSeqNo>"), std::string::npos);
}

TEST_F(TypedPrefsTest, MapIsWrittenInKeyOrderWithItsStoredForm) {
  Load("");
  MapPref<std::string, bool> map("ChannelsEnabled");
  map.prefs = &writer_;
  ASSERT_TRUE(map.Set({{"b", true}, {"a", false}}));
  EXPECT_EQ(ReadFile(path_), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<Preferences>\n"
                             "<ChannelsEnabled>\n"
                             "<MapPrefEntry MapPrefKey=\"a\">0</MapPrefEntry>\n"
                             "<MapPrefEntry MapPrefKey=\"b\">1</MapPrefEntry>\n"
                             "</ChannelsEnabled>\n</Preferences>\n");
  std::map<std::string, bool> read;
  ASSERT_TRUE(map.Get(read));
  EXPECT_EQ(read, (std::map<std::string, bool>{{"a", false}, {"b", true}}));
}

TEST_F(TypedPrefsTest, StringMapKeepsBlanksInValues) {
  Load("");
  MapPref<std::string, std::string> map("NotificationMessage");
  map.prefs = &writer_;
  ASSERT_TRUE(map.Set({{"k", " two words "}}));
  std::map<std::string, std::string> read;
  ASSERT_TRUE(map.Get(read));
  EXPECT_EQ(read.at("k"), " two words ");
}

TEST_F(TypedPrefsTest, EmptyMapIsStoredAsAnElementWithoutChildrenAndReadsBackEmpty) {
  Load("");
  MapPref<std::string, bool> map("MoxChannels");
  map.prefs = &writer_;
  ASSERT_TRUE(map.Set({}));
  EXPECT_NE(ReadFile(path_).find("<MoxChannels></MoxChannels>"), std::string::npos);
  std::map<std::string, bool> read{{"stale", true}};
  ASSERT_TRUE(map.Get(read));
  EXPECT_TRUE(read.empty());
}

TEST_F(TypedPrefsTest, MissingMapElementIsAnEmptyMap) {
  Load("");
  MapPref<std::string, bool> map("ChannelsInstalled");
  map.prefs = &writer_;
  std::map<std::string, bool> read{{"stale", true}};
  ASSERT_TRUE(map.Get(read));
  EXPECT_TRUE(read.empty());
}

TEST_F(TypedPrefsTest, MapEntryWithoutKeyMakesAnEmptyMapAndFalse) {
  Load("<M><MapPrefEntry MapPrefKey=\"a\">1</MapPrefEntry><MapPrefEntry>1</MapPrefEntry></M>");
  MapPref<std::string, bool> map("M");
  map.prefs = &writer_;
  std::map<std::string, bool> read;
  EXPECT_FALSE(map.Get(read));
  EXPECT_TRUE(read.empty());
}

TEST_F(TypedPrefsTest, MapEntryThatDoesNotConvertMakesAnEmptyMapAndFalse) {
  Load("<M><MapPrefEntry MapPrefKey=\"a\">yes</MapPrefEntry></M>");
  MapPref<std::string, bool> map("M");
  map.prefs = &writer_;
  std::map<std::string, bool> read;
  EXPECT_FALSE(map.Get(read));
  EXPECT_TRUE(read.empty());
}

TEST_F(TypedPrefsTest, MapEntriesOfAnyNameCountAndALaterDuplicateWins) {
  Load("<M><X MapPrefKey=\"a\">1</X><MapPrefEntry MapPrefKey=\"a\">0</MapPrefEntry></M>");
  MapPref<std::string, bool> map("M");
  map.prefs = &writer_;
  std::map<std::string, bool> read;
  ASSERT_TRUE(map.Get(read));
  EXPECT_EQ(read, (std::map<std::string, bool>{{"a", false}}));
}

// Other programs of the product write any value as it is, and some then
// leave a file that does not parse (and loses every preference when read
// again). Here a value either reads back exactly, in another reader of the
// file, or is refused with the file left as it was.
struct HostileValue {
  const char* what;
  std::string text;
  bool storable;
};

std::vector<HostileValue> HostileValues() {
  return {{"double quote", "say \"hi\"", true},
          {"markup", "<a href='x'>&amp;</a>", true},
          {"carriage return", "line\r\nnext\r", true},
          {"tab and line feed", "a\tb\nc", true},
          {"non-ASCII", "caf\xc3\xa9 \xe2\x82\xac", true},
          {"control character", std::string("bell\x07", 5), false},
          {"NUL", std::string("a\0b", 3), false},
          {"invalid UTF-8", "bad \xff\xfe", false},
          {"past the reader's limits", std::string(5 * 1024 * 1024, 'v'), false}};
}

TEST_F(TypedPrefsTest, EveryHostileStringReadsBackExactlyOrIsRefusedWithTheFileUnchanged) {
  Load("<Keep>kept</Keep>");
  BasicPref<std::string> pref("Value", "");
  pref.prefs = &writer_;
  for (const HostileValue& value : HostileValues()) {
    const std::string before = ReadFile(path_);
    const bool stored = pref.Set(value.text);
    EXPECT_EQ(stored, value.storable) << value.what;
    PrefsWriter other(path_, "Preferences");
    ASSERT_NE(other.prefsRoot(), nullptr) << value.what << ": the file does not parse";
    if (!stored) {
      EXPECT_EQ(ReadFile(path_), before) << value.what;
      continue;
    }
    std::string read;
    ASSERT_TRUE(other.GetPref<std::string>("Value", read, "")) << value.what;
    EXPECT_EQ(read, value.text) << value.what;
  }
}

TEST_F(TypedPrefsTest, EveryHostileMapKeyOrValueReadsBackExactlyOrIsRefusedWithTheFileUnchanged) {
  Load("<Keep>kept</Keep>");
  MapPref<std::string, std::string> map("NotificationMessage");
  map.prefs = &writer_;
  for (const HostileValue& value : HostileValues()) {
    const bool key_fits = value.text.size() < 16 * 1024;
    for (const bool as_key : {true, false}) {
      const std::map<std::string, std::string> entries =
          as_key ? std::map<std::string, std::string>{{value.text, "v"}}
                 : std::map<std::string, std::string>{{"k", value.text}};
      const std::string before = ReadFile(path_);
      const bool stored = map.Set(entries);
      EXPECT_EQ(stored, value.storable && (key_fits || !as_key)) << value.what;
      PrefsWriter other(path_, "Preferences");
      ASSERT_NE(other.prefsRoot(), nullptr) << value.what << ": the file does not parse";
      if (!stored) {
        EXPECT_EQ(ReadFile(path_), before) << value.what;
        continue;
      }
      MapPref<std::string, std::string> read_back("NotificationMessage");
      read_back.prefs = &other;
      std::map<std::string, std::string> read;
      ASSERT_TRUE(read_back.Get(read)) << value.what;
      EXPECT_EQ(read, entries) << value.what << (as_key ? " as a key" : " as a value");
    }
  }
}

} // namespace
} // namespace esd
