#include "esd/change_type.h"

#include <climits>
#include <gtest/gtest.h>

namespace esd {
namespace {

template <typename From, typename To> bool Convert(const From& from, To& to) {
  return ChangeDiffTypeImpl<From, To>::ChangeType(from, to);
}

TEST(ChangeTypeTest, BoolToStringIsOneOrZero) {
  std::string text;
  ASSERT_TRUE(Convert(true, text));
  EXPECT_EQ(text, "1");
  ASSERT_TRUE(Convert(false, text));
  EXPECT_EQ(text, "0");
}

TEST(ChangeTypeTest, StringToBoolAcceptsOneAndZeroAsNumbers) {
  for (const char* text : {"1", "+1", " 1", "1 ", "01"}) {
    bool value = false;
    ASSERT_TRUE(Convert(std::string(text), value)) << text;
    EXPECT_TRUE(value) << text;
  }
  bool value = true;
  ASSERT_TRUE(Convert(std::string("0"), value));
  EXPECT_FALSE(value);
}

TEST(ChangeTypeTest, StringToBoolRefusesWordsAndOtherNumbers) {
  for (const char* text : {"true", "false", "yes", "2", "-1", "", " ", "1x"}) {
    bool value = false;
    EXPECT_FALSE(Convert(std::string(text), value)) << text;
  }
}

TEST(ChangeTypeTest, IntToStringIsPlainDecimal) {
  std::string text;
  ASSERT_TRUE(Convert(-42, text));
  EXPECT_EQ(text, "-42");
  ASSERT_TRUE(Convert(7, text));
  EXPECT_EQ(text, "7");
  ASSERT_TRUE(Convert(INT_MIN, text));
  EXPECT_EQ(text, "-2147483648");
}

TEST(ChangeTypeTest, IntSurroundedByWhiteSpaceReads) {
  int value = 0;
  ASSERT_TRUE(Convert(std::string(" 7 "), value));
  EXPECT_EQ(value, 7);
  ASSERT_TRUE(Convert(std::string("\t-7\n"), value));
  EXPECT_EQ(value, -7);
  ASSERT_TRUE(Convert(std::string("007"), value));
  EXPECT_EQ(value, 7);
}

TEST(ChangeTypeTest, IntWithTrailingTextFails) {
  int value = 5;
  EXPECT_FALSE(Convert(std::string("7x"), value));
  EXPECT_FALSE(Convert(std::string("7 x"), value));
  EXPECT_FALSE(Convert(std::string(""), value));
  EXPECT_FALSE(Convert(std::string("x7"), value));
  EXPECT_EQ(value, 5);
}

TEST(ChangeTypeTest, IntOutsideThirtyTwoBitsFails) {
  int value = 5;
  EXPECT_FALSE(Convert(std::string("2147483648"), value));
  EXPECT_FALSE(Convert(std::string("-2147483649"), value));
  ASSERT_TRUE(Convert(std::string("2147483647"), value));
  EXPECT_EQ(value, INT_MAX);
}

TEST(ChangeTypeTest, UnsignedLongRoundTripsSixtyFourBits) {
  std::string text;
  ASSERT_TRUE(Convert(18446744073709551615ul, text));
  EXPECT_EQ(text, "18446744073709551615");
  unsigned long value = 0;
  ASSERT_TRUE(Convert(text, value));
  EXPECT_EQ(value, 18446744073709551615ul);
}

TEST(ChangeTypeTest, UnsignedLongBeyondSixtyFourBitsOrWithTrailingTextFails) {
  unsigned long value = 0;
  EXPECT_FALSE(Convert(std::string("18446744073709551616"), value));
  EXPECT_FALSE(Convert(std::string("12ab"), value));
}

TEST(ChangeTypeTest, UnsignedLongReadsANegativeNumberAsTheStreamDoes) {
  // The stream applies the strtoul rule, so "-1" wraps around; every program
  // sharing the file reads it that way.
  unsigned long value = 0;
  ASSERT_TRUE(Convert(std::string("-1"), value));
  EXPECT_EQ(value, ULONG_MAX);
}

TEST(ChangeTypeTest, NameConversionTakesOneWord) {
  std::string word;
  ASSERT_TRUE((ChangeDiffTypeImpl<const std::string, std::string>::ChangeType("AutoCheck", word)));
  EXPECT_EQ(word, "AutoCheck");
  ASSERT_TRUE((ChangeDiffTypeImpl<const std::string, std::string>::ChangeType(" A ", word)));
  EXPECT_EQ(word, "A");
}

TEST(ChangeTypeTest, NameConversionFailsForEmptyTextAndInnerWhiteSpace) {
  std::string word = "kept";
  EXPECT_FALSE((ChangeDiffTypeImpl<const std::string, std::string>::ChangeType("", word)));
  EXPECT_FALSE((ChangeDiffTypeImpl<const std::string, std::string>::ChangeType("a b", word)));
  EXPECT_FALSE((ChangeDiffTypeImpl<const std::string, std::string>::ChangeType("   ", word)));
  EXPECT_EQ(word, "kept");
}

} // namespace
} // namespace esd
