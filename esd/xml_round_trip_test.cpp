// Whatever tree the writer prints reads back the same.
#include "esd/expat_dom_builder.h"
#include "testing/sandbox.h"
#include "testing/xml_test_support.h"

#include <gtest/gtest.h>

namespace esd {
namespace {

TEST(XmlRoundTripTest, EveryWritableTreeReadsBackWithTheSameNamesAttributesAndData) {
  constexpr int kCases = 10000;
  oru_testing::Sandbox sandbox;
  const std::string path = sandbox.Path("round-trip.xml");
  std::mt19937 random(20261122);
  ExpatDOMBuilder<XMLDocumentNode> builder;
  for (int i = 0; i < kCases; ++i) {
    const auto written = testing::RandomWritableDocument(random, 12);
    const std::string text = testing::WriteToString(*written);
    oru_testing::WriteFile(path, text);
    ASSERT_TRUE(builder.Create(nullptr, nullptr));
    ASSERT_TRUE(builder.ParseFile(path, false)) << "case " << i << ":\n" << text;
    bool equal = false;
    std::string difference;
    testing::ExpectRoundTripOf(*written, *builder.GetDocument(), &equal, &difference);
    ASSERT_TRUE(equal) << "case " << i << ": " << difference << "\n" << text;
    // Written again, the file is byte for byte what it was.
    ASSERT_EQ(testing::WriteToString(*builder.GetDocument()), text) << "case " << i;
  }
}

} // namespace
} // namespace esd
