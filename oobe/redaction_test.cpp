#include "oobe/redaction.h"

#include <gtest/gtest.h>

namespace oobe {
namespace {

// What a log line's message becomes: the replacement for a token, else the
// masked message.
std::string Redacted(const std::string& message) {
  if (ContainsWebToken(message.c_str())) {
    return kTokenReplacement;
  }
  std::string output;
  RedactCredentials(DefaultCredentialKeys(), message, output);
  return output;
}

struct Case {
  const char* message;
  const char* expected;
};

class RedactionTableTest : public ::testing::TestWithParam<Case> {};

TEST_P(RedactionTableTest, GivesTheExpectedMessage) {
  EXPECT_EQ(Redacted(GetParam().message), GetParam().expected);
}

const Case kCases[] = {
    // Tokens.
    {"a eyJhbGciOi.eyJzdWIi b", "Found access/device token. Log skipped."},
    {"eyJ.eyJ", "Found access/device token. Log skipped."},
    {"x.eyJ", "x.eyJ"},
    {".eyJ then eyJ", ".eyJ then eyJ"},
    {"eyJ and later .eyJ", "Found access/device token. Log skipped."},
    {"EYJ.EYJ", "EYJ.EYJ"},
    {"eyj.eyj", "eyj.eyj"},
    {"<password>x</password> eyJa.eyJb", "Found access/device token. Log skipped."},
    // Every credential key, in several letter cases.
    {"<proxyusername>alice</proxyusername>", "<proxyusername>****</proxyusername>"},
    {"<proxyUserName>alice</proxyUserName>", "<proxyUserName>****</proxyUserName>"},
    {"<proxy-user>bob</proxy-user>", "<proxy-user>****</proxy-user>"},
    {"<PROXY-USER>bob</PROXY-USER>", "<PROXY-USER>****</PROXY-USER>"},
    {"<proxyuser>carol</proxyuser>", "<proxyuser>****</proxyuser>"},
    {"<ProxyUser>carol</proxyuser>", "<ProxyUser>****</proxyuser>"},
    {"<user>dave</user>", "<user>****</user>"},
    {"<User>dave</USER>", "<User>****</USER>"},
    {"<username>erin</username>", "<username>****</username>"},
    {"<UserName>erin</UserName>", "<UserName>****</UserName>"},
    {"<proxy-password>s3cret</proxy-password>", "<proxy-password>****</proxy-password>"},
    {"<Proxy-Password>s3cret</Proxy-Password>", "<Proxy-Password>****</Proxy-Password>"},
    {"<proxypassword>s3cret</proxypassword>", "<proxypassword>****</proxypassword>"},
    {"<password>hunter2</password>", "<password>****</password>"},
    {"<PASSWORD>hunter2</PASSWORD>", "<PASSWORD>****</PASSWORD>"},
    {"<Password>a much longer secret value</Password>", "<Password>****</Password>"},
    // Empty values stay as they are.
    {"<password></password>", "<password></password>"},
    {"<user></user> and <password>p</password>", "<user></user> and <password>****</password>"},
    // Only the first element of a key is masked.
    {"<user>bob</user><user>eve</user>", "<user>****</user><user>eve</user>"},
    // A username element is not a user element, and both are masked.
    {"<username>u1</username><user>u2</user>", "<username>****</username><user>****</user>"},
    // A closing tag before the opening tag: positions are used as they are.
    {"</password>x<password>y", "</password>x<password>****</password>x<password>y"},
    // Opening tag without closing tag, closing without opening.
    {"<password>never closed", "<password>never closed"},
    {"no opening </password>", "no opening </password>"},
    // Text around the element keeps its case and bytes.
    {"Proxy: <password>pw</password> END", "Proxy: <password>****</password> END"},
    {"caf\xC3\xA9 <user>\xC3\xA9l\xC3\xA8ve</user> \xE2\x82\xAC",
     "caf\xC3\xA9 <user>****</user> \xE2\x82\xAC"},
    // Other notations are not masked.
    {"password=hunter2", "password=hunter2"},
    {"{\"password\": \"hunter2\"}", "{\"password\": \"hunter2\"}"},
    {"<passwd>x</passwd>", "<passwd>x</passwd>"},
    // No "<" at all.
    {"plain message without markup", "plain message without markup"},
    {"", ""},
};

INSTANTIATE_TEST_SUITE_P(Messages, RedactionTableTest, ::testing::ValuesIn(kCases));

TEST(RedactionTest, TableHasAtLeastThirtyMessages) {
  EXPECT_GE(sizeof kCases / sizeof kCases[0], 30u);
}

TEST(RedactionTest, KeysAreTheEightCredentialNamesInOrder) {
  EXPECT_EQ(DefaultCredentialKeys(),
            (std::vector<std::string>{"proxyusername", "proxy-user", "proxyuser", "user",
                                      "username", "proxy-password", "proxypassword", "password"}));
}

TEST(RedactionTest, ReplacementIsThirtyNineCharacters) {
  EXPECT_EQ(std::string(kTokenReplacement).size(), 39u);
  EXPECT_STREQ(kMask, "****");
}

TEST(RedactionTest, MaskValueKeepsTheOpeningTagAndEverythingFromTheClosePosition) {
  std::string text = "<a>value</a>tail";
  MaskValue(text, 0, 8, 3);
  EXPECT_EQ(text, "<a>****</a>tail");
}

TEST(RedactionTest, NullMessageHoldsNoToken) {
  EXPECT_FALSE(ContainsWebToken(nullptr));
}

} // namespace
} // namespace oobe
