#include "esd/xml_writer.h"
#include "testing/xml_test_support.h"

#include <gtest/gtest.h>
#include <sstream>

namespace esd {
namespace {

using testing::NewDocument;

XMLDocumentNode* Add(XMLDocumentNode* parent, const std::string& name,
                     const std::string& data = "") {
  auto* node = new XMLDocumentNode(name);
  node->SetData(data);
  parent->AddChild(node);
  return node;
}

std::string Write(const XMLDocumentNode* node) {
  std::ostringstream out;
  WriteXMLNode(out, node);
  return out.str();
}

std::string Escape(const std::string& text) {
  return XMLEscaping::EscapeXML(text.begin(), text.end());
}

// Counts flushes, to check that every newline flushes the stream.
class CountingBuffer : public std::stringbuf {
public:
  int syncs = 0;

protected:
  int sync() override {
    ++syncs;
    return std::stringbuf::sync();
  }
};

TEST(EscapeXMLTest, ReplacesTheFiveSpecialCharacters) {
  EXPECT_EQ(Escape("\"&'<>"), "&quot;&amp;&apos;&lt;&gt;");
}

TEST(EscapeXMLTest, AnExistingEntityIsEscapedAgain) {
  EXPECT_EQ(Escape("&amp;"), "&amp;amp;");
  EXPECT_EQ(Escape("&amp;").size(), std::string("&amp;").size() + 4);
}

TEST(EscapeXMLTest, EmptyRangeGivesEmptyString) {
  EXPECT_EQ(Escape(""), "");
}

TEST(EscapeXMLTest, OtherBytesPassUnchanged) {
  EXPECT_EQ(Escape("caf\xC3\xA9 \t\n\x01"), "caf\xC3\xA9 \t\n\x01");
}

TEST(EscapeXMLTest, EscapesOnlyTheGivenRange) {
  const std::string text = "<a&b>";
  EXPECT_EQ(XMLEscaping::EscapeXML(text.begin() + 1, text.end() - 1), "a&amp;b");
}

TEST(WriteXMLNodeTest, DocumentWithoutChildrenPrintsTheDeclarationLineOnly) {
  EXPECT_EQ(Write(NewDocument().get()), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n");
}

TEST(WriteXMLNodeTest, PreferencesFileHasOneLinePerElement) {
  auto document = NewDocument();
  XMLDocumentNode* root = Add(document.get(), "Preferences");
  Add(root, "AutoCheck", "1");
  Add(root, "LogFile", "/tmp/a b.log");
  EXPECT_EQ(Write(document.get()), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                                   "<Preferences>\n"
                                   "<AutoCheck>1</AutoCheck>\n"
                                   "<LogFile>/tmp/a b.log</LogFile>\n"
                                   "</Preferences>\n");
}

TEST(WriteXMLNodeTest, MapElementTakesAStartLineOneLinePerEntryAndAnEndLine) {
  auto document = NewDocument();
  XMLDocumentNode* root = Add(document.get(), "Preferences");
  XMLDocumentNode* map = Add(root, "Map");
  XMLDocumentNode* a = Add(map, "MapPrefEntry", "0");
  a->SetAttributeData("MapPrefKey", "a");
  XMLDocumentNode* b = Add(map, "MapPrefEntry", "1");
  b->SetAttributeData("MapPrefKey", "b");
  EXPECT_EQ(Write(document.get()), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
                                   "<Preferences>\n"
                                   "<Map>\n"
                                   "<MapPrefEntry MapPrefKey=\"a\">0</MapPrefEntry>\n"
                                   "<MapPrefEntry MapPrefKey=\"b\">1</MapPrefEntry>\n"
                                   "</Map>\n"
                                   "</Preferences>\n");
}

TEST(WriteXMLNodeTest, EmptyElementWithoutChildrenPrintsBothTagsOnOneLine) {
  XMLDocumentNode node("Empty");
  EXPECT_EQ(Write(&node), "<Empty></Empty>");
}

TEST(WriteXMLNodeTest, DataWithLessThanIsEscaped) {
  XMLDocumentNode node("A");
  node.SetData("a<b");
  EXPECT_EQ(Write(&node), "<A>a&lt;b</A>");
}

TEST(WriteXMLNodeTest, LineBreakDataWithChildrenAddsNoBlankLine) {
  XMLDocumentNode node("Root");
  node.SetData("\n");
  Add(&node, "A", "1");
  EXPECT_EQ(Write(&node), "<Root>\n<A>1</A>\n</Root>");
}

TEST(WriteXMLNodeTest, TextDataBeforeChildrenIsFollowedDirectlyByTheFirstChild) {
  XMLDocumentNode node("Root");
  node.SetData("text");
  Add(&node, "A");
  EXPECT_EQ(Write(&node), "<Root>text<A></A>\n</Root>");
}

// Other programs print attribute values as they are, which for these gives
// a file that does not parse; this writer escapes them so that it reads back.
TEST(WriteXMLNodeTest, AttributeValueWithMarkupOrLineBreaksIsEscapedToReadBack) {
  XMLDocumentNode node("A");
  node.SetAttributeData("k", "x&y\"<z>\t\n\r");
  EXPECT_EQ(Write(&node), "<A k=\"x&amp;y&quot;&lt;z>&#9;&#10;&#13;\"></A>");
}

// An attribute value carries ">" as it is, and the other programs write it
// so; only what it cannot carry becomes a reference.
TEST(WriteXMLNodeTest, AttributeValueWithGreaterThanIsWrittenAsItIs) {
  XMLDocumentNode node("MapPrefEntry");
  node.SetAttributeData("MapPrefKey", "a>b");
  EXPECT_EQ(Write(&node), "<MapPrefEntry MapPrefKey=\"a>b\"></MapPrefEntry>");
}

TEST(WriteXMLNodeTest, AttributeValueOfEveryPrintableAsciiCharacterEscapesOnlyQuoteLessThanAndAmp) {
  std::string every_printable;
  for (char c = 0x20; c <= 0x7E; ++c) {
    every_printable += c;
  }
  XMLDocumentNode node("A");
  node.SetAttributeData("k", every_printable);
  EXPECT_EQ(Write(&node), "<A k=\" !&quot;#$%&amp;'()*+,-./0123456789:;&lt;=>?@"
                          "ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~\">"
                          "</A>");
}

TEST(WriteXMLNodeTest, AttributeValueWithoutMarkupIsPrintedByteForByteAsBefore) {
  XMLDocumentNode node("A");
  node.SetAttributeData("k", "plain 'value' é");
  EXPECT_EQ(Write(&node), "<A k=\"plain 'value' é\"></A>");
}

TEST(WriteXMLNodeTest, CarriageReturnInDataIsAReferenceSoItDoesNotReadBackAsLineFeed) {
  XMLDocumentNode node("A");
  node.SetData("a\r\nb");
  EXPECT_EQ(Write(&node), "<A>a&#13;\nb</A>");
}

TEST(WriteXMLNodeTest, AttributesSetAsBThenAPrintInNameOrder) {
  XMLDocumentNode node("A");
  node.SetAttributeData("b", "2");
  node.SetAttributeData("a", "1");
  EXPECT_EQ(Write(&node), "<A a=\"1\" b=\"2\"></A>");
}

TEST(WriteXMLNodeTest, DocumentAttributesPrintInNameOrderInTheDeclaration) {
  auto document = NewDocument();
  document->SetAttributeData("standalone", "yes");
  EXPECT_EQ(Write(document.get()),
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n");
}

TEST(WriteXMLNodeTest, EveryNewlineFlushesTheStream) {
  auto document = NewDocument();
  XMLDocumentNode* root = Add(document.get(), "Preferences");
  Add(root, "A", "1");
  Add(root, "B", "2");
  CountingBuffer buffer;
  std::ostream out(&buffer);
  WriteXMLNode(out, document.get());
  EXPECT_EQ(buffer.str(), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<Preferences>\n"
                          "<A>1</A>\n<B>2</B>\n</Preferences>\n");
  EXPECT_EQ(buffer.syncs, 5);
}

TEST(WriteXMLNodeTest, ReturnsTheSameStream) {
  XMLDocumentNode node("A");
  std::ostringstream out;
  EXPECT_EQ(&WriteXMLNode(out, &node), &out);
}

TEST(WriteXMLNodeTest, HundredThousandLevelsDeepTreeIsWrittenWithoutRecursion) {
  constexpr int kDepth = 100000;
  auto root = std::make_unique<XMLDocumentNode>("d");
  XMLDocumentNode* tip = root.get();
  for (int level = 1; level < kDepth; ++level) {
    tip = Add(tip, "d");
  }
  const std::string text = Write(root.get());
  // Every level but the innermost opens with "<d>\n" and closes with
  // "</d>\n" (the last closing tag has no newline after it).
  std::string expected;
  for (int level = 1; level < kDepth; ++level) {
    expected += "<d>\n";
  }
  expected += "<d></d>";
  for (int level = 1; level < kDepth; ++level) {
    expected += "\n</d>";
  }
  EXPECT_EQ(text, expected);
}

} // namespace
} // namespace esd
