#include "platform/utf8.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(Utf8Test, AcceptsWellFormedText) {
  EXPECT_TRUE(IsValidUtf8(""));
  EXPECT_TRUE(IsValidUtf8("plain ascii"));
  EXPECT_TRUE(IsValidUtf8("\xC3\xA9"));         // U+00E9
  EXPECT_TRUE(IsValidUtf8("\xE2\x82\xAC"));     // U+20AC
  EXPECT_TRUE(IsValidUtf8("\xF0\x9F\x98\x80")); // U+1F600
  EXPECT_TRUE(IsValidUtf8("\xF4\x8F\xBF\xBF")); // U+10FFFF
  EXPECT_TRUE(IsValidUtf8(std::string("a\0b", 3)));
}

TEST(Utf8Test, RefusesMalformedText) {
  EXPECT_FALSE(IsValidUtf8("\x80"));             // lone continuation
  EXPECT_FALSE(IsValidUtf8("\xC3"));             // cut short
  EXPECT_FALSE(IsValidUtf8("\xC3\x28"));         // bad continuation
  EXPECT_FALSE(IsValidUtf8("\xC0\xAF"));         // overlong
  EXPECT_FALSE(IsValidUtf8("\xE0\x80\xAF"));     // overlong
  EXPECT_FALSE(IsValidUtf8("\xED\xA0\x80"));     // surrogate
  EXPECT_FALSE(IsValidUtf8("\xF4\x90\x80\x80")); // above U+10FFFF
  EXPECT_FALSE(IsValidUtf8("\xFF"));
}

} // namespace
} // namespace platform
