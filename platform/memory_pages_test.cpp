#include "platform/memory_pages.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(MemoryPagesTest, MapsZeroedWritableMemoryAtTheAlignmentAsked) {
  for (const size_t alignment : {size_t{4096}, size_t{128} << 10, LargePageBytes()}) {
    const size_t size = 3 * alignment;
    auto* pages = static_cast<unsigned char*>(MapPages(size, alignment));
    ASSERT_NE(pages, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(pages) % alignment, 0u);
    for (size_t offset = 0; offset < size; offset += 4096) {
      ASSERT_EQ(pages[offset], 0);
    }
    std::memset(pages, 0xA5, size);
    EXPECT_EQ(pages[size - 1], 0xA5);
    UnmapPages(pages, size);
  }
}

TEST(MemoryPagesTest, PrefaultedPagesKeepWhatIsWrittenAndStartZeroed) {
  const size_t size = 2 * LargePageBytes();
  auto* pages = static_cast<unsigned char*>(MapPages(size, LargePageBytes()));
  ASSERT_NE(pages, nullptr);
  PrefaultWholePages(pages, size);
  EXPECT_EQ(pages[0], 0);
  EXPECT_EQ(pages[size - 1], 0);
  pages[size / 2] = 7;
  EXPECT_EQ(pages[size / 2], 7);
  UnmapPages(pages, size);
}

TEST(MemoryPagesTest, AnImpossibleSizeGivesNull) {
  EXPECT_EQ(MapPages(~size_t{0} & ~size_t{0xFFFFF}, 4096), nullptr);
}

} // namespace
} // namespace platform
