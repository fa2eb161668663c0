#include "oobe/levels.h"

#include <gtest/gtest.h>

namespace oobe {
namespace {

TEST(LevelsTest, NamesOfTheScale) {
  EXPECT_STREQ(LevelName(10), "TRACE");
  EXPECT_STREQ(LevelName(20), "DEBUG");
  EXPECT_STREQ(LevelName(30), "INFO");
  EXPECT_STREQ(LevelName(40), "WARN");
  EXPECT_STREQ(LevelName(50), "ERROR");
  EXPECT_STREQ(LevelName(60), "FATAL");
  EXPECT_STREQ(LevelName(70), "NONE");
}

TEST(LevelsTest, AnyOtherValueIsAll) {
  for (int level : {0, 1, 15, 35, 71, -10, 1000}) {
    EXPECT_STREQ(LevelName(level), "ALL") << level;
  }
}

} // namespace
} // namespace oobe
