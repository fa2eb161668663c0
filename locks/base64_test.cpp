#include "locks/base64.h"

#include <gtest/gtest.h>

namespace esd {
namespace {

std::string Encode(const std::string& text) {
  return Base64Encode(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

TEST(Base64Test, MatchesTheStandardTestVectors) {
  EXPECT_EQ(Encode(""), "");
  EXPECT_EQ(Encode("f"), "Zg==");
  EXPECT_EQ(Encode("fo"), "Zm8=");
  EXPECT_EQ(Encode("foo"), "Zm9v");
  EXPECT_EQ(Encode("foob"), "Zm9vYg==");
  EXPECT_EQ(Encode("fooba"), "Zm9vYmE=");
  EXPECT_EQ(Encode("foobar"), "Zm9vYmFy");
}

TEST(Base64Test, UsesPlusAndSlash) {
  const unsigned char bytes[] = {0xFB, 0xFF, 0xBF};
  EXPECT_EQ(Base64Encode(bytes, sizeof bytes), "+/+/");
}

} // namespace
} // namespace esd
