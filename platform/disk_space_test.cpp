#include "platform/disk_space.h"
#include "testing/sandbox.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace platform {
namespace {

TEST(DiskSpaceTest, APathNotMadeYetIsOnTheDiskOfItsNearestFolder) {
  oru_testing::Sandbox sandbox;
  struct stat root;
  ASSERT_EQ(stat(sandbox.root().c_str(), &root), 0);
  DiskSpace space;
  ASSERT_TRUE(GetDiskSpace(sandbox.Path("not/made/yet.dat"), space));
  EXPECT_EQ(space.device, root.st_dev);
  EXPECT_GT(space.freeBytes, 0u);
}

TEST(DiskSpaceTest, AFileIsOnItsFoldersDisk) {
  oru_testing::Sandbox sandbox;
  oru_testing::WriteFile(sandbox.Path("file"), "x");
  struct stat file;
  ASSERT_EQ(stat(sandbox.Path("file").c_str(), &file), 0);
  DiskSpace space;
  ASSERT_TRUE(GetDiskSpace(sandbox.Path("file"), space));
  EXPECT_EQ(space.device, file.st_dev);
}

} // namespace
} // namespace platform
