#include "locks/md5.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace oru_locks {
namespace {

std::string Hex(const std::string& text) {
  Md5Digest digest{};
  EXPECT_TRUE(ComputeMd5(text, digest));
  std::string hex;
  char byte[3];
  for (unsigned char value : digest) {
    std::snprintf(byte, sizeof byte, "%02x", value);
    hex += byte;
  }
  return hex;
}

TEST(Md5Test, MatchesTheReferenceTestSuite) {
  EXPECT_EQ(Hex(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(Hex("a"), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(Hex("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(Hex("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(Hex("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
            "57edf4a22be3c955ac49da2e2107b67a");
}

} // namespace
} // namespace oru_locks
