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

TEST(XmlRoundTripTest, AttributeValueOfEveryPrintableAsciiCharacterReadsBackAsItWas) {
  std::string every_printable;
  for (char c = 0x20; c <= 0x7E; ++c) {
    every_printable += c;
  }
  auto written = testing::NewDocument();
  auto* entry = new XMLDocumentNode("MapPrefEntry");
  entry->SetAttributeData("MapPrefKey", every_printable);
  written->AddChild(entry);
  oru_testing::Sandbox sandbox;
  const std::string path = sandbox.Path("printable.xml");
  oru_testing::WriteFile(path, testing::WriteToString(*written));
  ExpatDOMBuilder<XMLDocumentNode> builder;
  ASSERT_TRUE(builder.Create(nullptr, nullptr));
  ASSERT_TRUE(builder.ParseFile(path, false));
  ASSERT_EQ(builder.GetDocument()->children.size(), 1u);
  const auto read = builder.GetDocument()->children[0]->AttributeValue("MapPrefKey");
  EXPECT_EQ(std::string(read.value_or("(none)")), every_printable);
}

} // namespace
} // namespace esd
