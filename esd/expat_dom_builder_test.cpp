#include "esd/expat_dom_builder.h"
#include "testing/sandbox.h"
#include "testing/xml_test_support.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// Every call the builder makes into expat's buffer parser passes through
// here (the test program is linked with --wrap=XML_ParseBuffer).
namespace {
struct ParseCall {
  int length;
  bool final_chunk;
};
std::vector<ParseCall> parse_calls;
// When set, the parser fails at that call (counted from 0) as if it had run
// out of memory.
int fail_for_memory_at_call = -1;
} // namespace

extern "C" enum XML_Status __real_XML_ParseBuffer(XML_Parser parser, int length, int is_final);
extern "C" enum XML_Status __wrap_XML_ParseBuffer(XML_Parser parser, int length, int is_final) {
  parse_calls.push_back({length, is_final != 0});
  if (fail_for_memory_at_call >= 0 &&
      static_cast<int>(parse_calls.size()) > fail_for_memory_at_call) {
    return XML_STATUS_ERROR;
  }
  return __real_XML_ParseBuffer(parser, length, is_final);
}

extern "C" enum XML_Error __real_XML_GetErrorCode(XML_Parser parser);
extern "C" enum XML_Error __wrap_XML_GetErrorCode(XML_Parser parser) {
  if (fail_for_memory_at_call >= 0 &&
      static_cast<int>(parse_calls.size()) > fail_for_memory_at_call) {
    return XML_ERROR_NO_MEMORY;
  }
  return __real_XML_GetErrorCode(parser);
}

namespace esd {
namespace {

using Builder = ExpatDOMBuilder<XMLDocumentNode>;
using oru_testing::Sandbox;
using oru_testing::WriteFile;

class ExpatDOMBuilderTest : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(builder_.Create(nullptr, nullptr));
    parse_calls.clear();
  }

  bool Parse(const std::string& text) {
    WriteFile(path_, text);
    return builder_.ParseFile(path_, false);
  }

  XMLDocumentNode& Document() { return *builder_.GetDocument(); }
  XMLDocumentNode& Child(XMLDocumentNode& node, size_t index) { return *node.children.at(index); }

  Sandbox sandbox_;
  std::string path_ = sandbox_.Path("file.xml");
  Builder builder_;
};

TEST_F(ExpatDOMBuilderTest, CreateMakesAnEmptyDocumentWithTheDeclaration) {
  XMLDocumentNode& document = Document();
  EXPECT_TRUE(document.isDocument());
  EXPECT_EQ(document.GetName(), "");
  EXPECT_EQ(document.version(), "1.0");
  EXPECT_EQ(document.GetAttributes(),
            (std::vector<XMLDocumentNode::Attribute>{{"encoding", "UTF-8"}}));
  EXPECT_TRUE(document.children.empty());
}

TEST_F(ExpatDOMBuilderTest, MissingFileReturnsTheNoDataResultAndLeavesTheDeclarationOnly) {
  EXPECT_TRUE(builder_.ParseFile(sandbox_.Path("missing"), true));
  EXPECT_FALSE(builder_.ParseFile(sandbox_.Path("missing"), false));
  EXPECT_EQ(Document().version(), "1.0");
  EXPECT_EQ(Document().attributes().at("encoding"), "UTF-8");
  EXPECT_TRUE(Document().children.empty());
  EXPECT_TRUE(parse_calls.empty());
}

TEST_F(ExpatDOMBuilderTest, ZeroLengthFileBehavesLikeAMissingOne) {
  WriteFile(path_, "");
  EXPECT_TRUE(builder_.ParseFile(path_, true));
  EXPECT_FALSE(builder_.ParseFile(path_, false));
  EXPECT_TRUE(Document().children.empty());
  EXPECT_TRUE(parse_calls.empty());
}

TEST_F(ExpatDOMBuilderTest, FolderInsteadOfAFileReturnsTheNoDataResult) {
  EXPECT_TRUE(builder_.ParseFile(sandbox_.root(), true));
  EXPECT_FALSE(builder_.ParseFile(sandbox_.root(), false));
  EXPECT_TRUE(parse_calls.empty());
}

TEST_F(ExpatDOMBuilderTest, FifoInsteadOfAFileReturnsTheNoDataResultWithoutBlocking) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_TRUE(builder_.ParseFile(path_, true));
  EXPECT_TRUE(parse_calls.empty());
}

TEST_F(ExpatDOMBuilderTest, FileOfExactly1024BytesIsParsedInTwoCalls) {
  std::string text = "<Preferences><A>";
  const std::string tail = "</A></Preferences>";
  text += std::string(1024 - text.size() - tail.size(), 'x') + tail;
  ASSERT_EQ(text.size(), 1024u);
  ASSERT_TRUE(Parse(text));
  ASSERT_EQ(parse_calls.size(), 2u);
  EXPECT_EQ(parse_calls[0].length, 1024);
  EXPECT_FALSE(parse_calls[0].final_chunk);
  EXPECT_EQ(parse_calls[1].length, 0);
  EXPECT_TRUE(parse_calls[1].final_chunk);
}

TEST_F(ExpatDOMBuilderTest, ShortFileIsParsedInOneFinalCall) {
  ASSERT_TRUE(Parse("<Preferences/>"));
  ASSERT_EQ(parse_calls.size(), 1u);
  EXPECT_EQ(parse_calls[0].length, 14);
  EXPECT_TRUE(parse_calls[0].final_chunk);
}

TEST_F(ExpatDOMBuilderTest, LongerFileIsParsedIn1024ByteChunks) {
  ASSERT_TRUE(Parse("<P>" + std::string(2500, 'y') + "</P>"));
  ASSERT_EQ(parse_calls.size(), 3u);
  EXPECT_EQ(parse_calls[0].length, 1024);
  EXPECT_EQ(parse_calls[1].length, 1024);
  EXPECT_EQ(parse_calls[2].length, 2507 - 2048);
  EXPECT_TRUE(parse_calls[2].final_chunk);
}

TEST_F(ExpatDOMBuilderTest, TextAfterAStartTagBelongsToItAndTextAfterAnEndTagIsDropped) {
  ASSERT_TRUE(Parse("<Root>\n<A>1</A>\n</Root>"));
  XMLDocumentNode& root = Child(Document(), 0);
  EXPECT_EQ(root.GetName(), "Root");
  EXPECT_EQ(root.GetData(), "\n");
  ASSERT_EQ(root.children.size(), 1u);
  EXPECT_EQ(Child(root, 0).GetName(), "A");
  EXPECT_EQ(Child(root, 0).GetData(), "1");
}

TEST_F(ExpatDOMBuilderTest, TextSplitAcrossChunksAndEntitiesJoinsUp) {
  ASSERT_TRUE(
      Parse("<A>" + std::string(1500, 'v') + "&amp;&lt;&gt;" + std::string(600, 'w') + "</A>"));
  EXPECT_EQ(Child(Document(), 0).GetData(), std::string(1500, 'v') + "&<>" + std::string(600, 'w'));
}

TEST_F(ExpatDOMBuilderTest, DeclarationVersionIsKept) {
  ASSERT_TRUE(Parse("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<P/>"));
  EXPECT_EQ(Document().version(), "1.0");
}

TEST_F(ExpatDOMBuilderTest, DeclaredIso88591StillYieldsEncodingUtf8) {
  ASSERT_TRUE(Parse("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<P>caf\xE9</P>"));
  EXPECT_EQ(Document().attributes().at("encoding"), "UTF-8");
  // The parser hands out UTF-8 whatever the file's encoding.
  EXPECT_EQ(Child(Document(), 0).GetData(), "caf\xC3\xA9");
}

TEST_F(ExpatDOMBuilderTest, MalformedXmlReturnsFalse) {
  for (const char* text : {"<A>", "<A></B>", "<A x=1/>", "just text", "<A/><B/>", "<A>&bogus;</A>",
                           "<A>\x01</A>", "<A>\xFF</A>"}) {
    ASSERT_TRUE(builder_.Create(nullptr, nullptr));
    EXPECT_FALSE(Parse(text)) << text;
  }
}

TEST_F(ExpatDOMBuilderTest, TreeBuiltUpToAnErrorStaysUntilClear) {
  EXPECT_FALSE(Parse("<Root><A>1</A><B>"));
  ASSERT_EQ(Document().children.size(), 1u);
  EXPECT_EQ(Child(Document(), 0).children.size(), 2u);
  builder_.Clear();
  EXPECT_EQ(builder_.GetDocument(), nullptr);
}

TEST_F(ExpatDOMBuilderTest, AttributesAreKeptInNameOrderWhateverTheirOrderInTheFile) {
  ASSERT_TRUE(Parse("<A zeta=\"3\" alpha=\"1\" mid=\"2\"/>"));
  EXPECT_EQ(Child(Document(), 0).GetAttributes(),
            (std::vector<XMLDocumentNode::Attribute>{{"alpha", "1"}, {"mid", "2"}, {"zeta", "3"}}));
}

// The parser running out of memory says nothing about the file's bytes: a
// caller that puts malformed files aside must not be told they are.
TEST_F(ExpatDOMBuilderTest, AParserOutOfMemoryIsOverALimitNotMalformed) {
  WriteFile(path_, "<A>" + std::string(3000, 'v') + "</A>");
  fail_for_memory_at_call = 1;
  const Builder::FileResult result = builder_.ReadFile(path_, nullptr);
  fail_for_memory_at_call = -1;
  EXPECT_EQ(result, Builder::FileResult::kOverLimit);
  ASSERT_TRUE(builder_.Create(nullptr, nullptr));
  EXPECT_EQ(builder_.ReadFile(path_, nullptr), Builder::FileResult::kParsed);
}

TEST_F(ExpatDOMBuilderTest, ParsingWithoutCreateFails) {
  builder_.Clear();
  WriteFile(path_, "<A/>");
  EXPECT_FALSE(builder_.ParseFile(path_, true));
}

TEST_F(ExpatDOMBuilderTest, CreateAgainStartsAFreshDocument) {
  ASSERT_TRUE(Parse("<A/>"));
  ASSERT_TRUE(builder_.Create(nullptr, nullptr));
  EXPECT_TRUE(Document().children.empty());
  ASSERT_TRUE(Parse("<B/>"));
  EXPECT_EQ(Child(Document(), 0).GetName(), "B");
}

TEST_F(ExpatDOMBuilderTest, EntityExpansionAttackFails) {
  std::string text = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n<!ENTITY l0 \"lollollollol\">\n";
  for (int level = 1; level <= 9; ++level) {
    text += "<!ENTITY l" + std::to_string(level) + " \"";
    for (int i = 0; i < 10; ++i) {
      text += "&l" + std::to_string(level - 1) + ";";
    }
    text += "\">\n";
  }
  text += "]>\n<A>&l9;</A>";
  EXPECT_FALSE(Parse(text));
}

TEST_F(ExpatDOMBuilderTest, ExternalEntitiesAreNotLoaded) {
  WriteFile(sandbox_.Path("secret"), "secret");
  EXPECT_TRUE(Parse("<?xml version=\"1.0\"?>\n<!DOCTYPE A [<!ENTITY s SYSTEM \"file://" +
                    sandbox_.Path("secret") + "\">]>\n<A>&s;</A>"));
  EXPECT_EQ(Child(Document(), 0).GetData(), "");
}

TEST_F(ExpatDOMBuilderTest, FileLargerThanTheLimitFailsWithoutBeingParsed) {
  {
    std::ofstream out(path_, std::ios::binary);
    out << "<A>";
    out.seekp(100 * 1024 * 1024);
    out << "</A>";
  }
  EXPECT_FALSE(builder_.ParseFile(path_, true));
  EXPECT_TRUE(parse_calls.empty());
  EXPECT_TRUE(Document().children.empty());
}

TEST_F(ExpatDOMBuilderTest, FileJustUnderTheLimitParses) {
  const std::string head = "<A>";
  const std::string tail = "</A>";
  std::string text =
      head + std::string(Builder::kMaxFileBytes - head.size() - tail.size(), 'x') + tail;
  ASSERT_TRUE(Parse(text));
  EXPECT_EQ(Child(Document(), 0).GetData().size(), Builder::kMaxFileBytes - 7);
}

TEST_F(ExpatDOMBuilderTest, MoreElementsThanTheLimitFail) {
  std::string text = "<A>";
  for (size_t i = 0; i < Builder::kMaxNodes; ++i) {
    text += "<b/>";
  }
  text += "</A>";
  EXPECT_FALSE(Parse(text));
}

TEST_F(ExpatDOMBuilderTest, VeryLongElementDataIsRead) {
  const std::string value(8 << 20, 'v');
  ASSERT_TRUE(Parse("<A>" + value + "</A>"));
  EXPECT_EQ(Child(Document(), 0).GetData(), value);
}

TEST_F(ExpatDOMBuilderTest, NamesAndAttributeValuesUpToTheMarkupLimitAreRead) {
  const std::string name(20000, 'n');
  const std::string value(40000, 'v');
  ASSERT_TRUE(Parse("<" + name + " k=\"" + value + "\"></" + name + ">"));
  EXPECT_EQ(Child(Document(), 0).GetName(), name);
  EXPECT_EQ(Child(Document(), 0).attributes().at("k"), value);
}

TEST_F(ExpatDOMBuilderTest, VeryLongNameFailsAsSoonAsItPassesTheMarkupLimit) {
  const std::string name(8 << 20, 'n');
  EXPECT_FALSE(Parse("<" + name + "/>"));
  // The parse stopped right after the limit, not at the end of the file.
  EXPECT_LE(parse_calls.size(), static_cast<size_t>(Builder::kMaxMarkupBytes / 1024 + 2));
}

TEST_F(ExpatDOMBuilderTest, VeryLongAttributeValueFails) {
  EXPECT_FALSE(Parse("<A k=\"" + std::string(1 << 20, 'v') + "\"/>"));
}

TEST_F(ExpatDOMBuilderTest, VeryLongCommentFails) {
  EXPECT_FALSE(Parse("<A><!--" + std::string(1 << 20, 'c') + "--></A>"));
}

TEST_F(ExpatDOMBuilderTest, HundredThousandLevelsDeepAreReadWrittenAndDestroyed) {
  constexpr int kDepth = 100000;
  std::string text;
  for (int level = 0; level < kDepth; ++level) {
    text += "<d>";
  }
  for (int level = 0; level < kDepth; ++level) {
    text += "</d>";
  }
  ASSERT_TRUE(Parse(text));
  int depth = 0;
  for (XMLDocumentNode* node = &Document(); !node->children.empty();
       node = node->children.front().get()) {
    ++depth;
  }
  EXPECT_EQ(depth, kDepth);
  const std::string written = testing::WriteToString(Document());
  const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n";
  // "<d>\n" and "\n</d>" per outer level, "<d></d>" innermost, and the
  // newline after the top element.
  EXPECT_EQ(written.size(), declaration.size() + (kDepth - 1) * 9 + 7 + 1);
  builder_.Clear();
}

} // namespace
} // namespace esd
