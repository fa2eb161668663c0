#include "esd/expat_dom_builder.h"
#include "esd/xml_arena.h"
#include "esd/xml_writer.h"
#include "testing/child_process.h"
#include "testing/sandbox.h"
#include "testing/xml_test_support.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <sys/resource.h>

namespace esd {
namespace {

using Builder = ExpatDOMBuilder<XMLDocumentNode>;
using oru_testing::Sandbox;
using oru_testing::WriteFile;
using testing::WriteToString;

// Nodes read from a file live in the document's arena; these tests hold
// each operation on them to what it does on nodes made by code.
class ArenaTreeTest : public ::testing::Test {
protected:
  XMLDocumentNode& Read(const std::string& text) {
    WriteFile(path_, text);
    EXPECT_TRUE(builder_.Create(nullptr, nullptr));
    EXPECT_TRUE(builder_.ParseFile(path_, false));
    return *builder_.GetDocument();
  }

  Sandbox sandbox_;
  std::string path_ = sandbox_.Path("file.xml");
  Builder builder_;
};

TEST_F(ArenaTreeTest, ANodeTakenOutOfItsTreeOutlivesTheDocument) {
  XMLDocumentNode& root = *Read("<R><A k=\"v\">text</A><B/></R>").children.at(0);
  std::unique_ptr<XMLDocumentNode> kept = std::move(root.children.at(0));
  root.children.erase(root.children.begin());
  builder_.Clear();
  EXPECT_EQ(kept->GetName(), "A");
  EXPECT_EQ(kept->GetData(), "text");
  EXPECT_EQ(kept->attributes().at("k"), "v");
  kept->AppendData(" and more");
  kept->SetAttributeData("k", "w");
  EXPECT_EQ(kept->GetData(), "text and more");
  EXPECT_EQ(kept->attributes().at("k"), "w");
}

TEST_F(ArenaTreeTest, ReadNodesAreChangedRemovedAndReplacedLikeAnyOther) {
  XMLDocumentNode& root = *Read("<R><A>1</A><B z=\"1\" a=\"2\">2</B><C>3</C></R>").children.at(0);
  XMLDocumentNode* b = root.children.at(1).get();
  b->SetData("changed");
  b->AppendData("!");
  b->SetAttributeData("m", "middle");
  b->SetAttributeData("z", "last");
  EXPECT_EQ(b->GetData(), "changed!");
  EXPECT_EQ(b->GetAttributes(),
            (std::vector<XMLDocumentNode::Attribute>{{"a", "2"}, {"m", "middle"}, {"z", "last"}}));
  ASSERT_TRUE(root.RemoveChild(root.children.at(0).get()));
  auto replacement = std::make_unique<XMLDocumentNode>("A");
  replacement->SetData("new");
  root.AddChild(replacement.release());
  EXPECT_EQ(WriteToString(root), "<R>\n<B a=\"2\" m=\"middle\" z=\"last\">changed!</B>\n"
                                 "<C>3</C>\n<A>new</A>\n</R>");
}

TEST_F(ArenaTreeTest, LongTextInManyRunsIsReadWhole) {
  // Entities split the text into runs the reader appends one by one, and
  // the text outgrows any shared piece of the arena.
  std::string file = "<A>";
  std::string expected;
  for (int run = 0; run < 20000; ++run) {
    file += "abcdefgh&amp;";
    expected += "abcdefgh&";
  }
  XMLDocumentNode& document = Read(file + "</A>");
  EXPECT_EQ(document.children.at(0)->GetData(), expected);
}

TEST_F(ArenaTreeTest, ElementNamesAreSharedAndStillEachNodesOwn) {
  XMLDocumentNode& root = *Read("<R><E>1</E><E>2</E><F>3</F></R>").children.at(0);
  EXPECT_EQ(root.children[0]->name.view().data(), root.children[1]->name.view().data());
  EXPECT_EQ(root.children[2]->GetName(), "F");
  // A name copied out of the tree is a copy: it survives the tree.
  XMLName copied = root.children[0]->name;
  builder_.Clear();
  EXPECT_EQ(copied.view(), "E");
}

TEST_F(ArenaTreeTest, EveryNodeIsFoundInItsArenaAcrossEveryBlock) {
  std::string file = "<R>";
  for (int index = 0; index < 100000; ++index) {
    file += "<E k=\"" + std::to_string(index) + "\">" + std::to_string(index % 7) + "</E>";
  }
  XMLDocumentNode& root = *Read(file + "</R>").children.at(0);
  ASSERT_EQ(root.children.size(), 100000u);
  std::set<XMLArena*> arenas;
  for (const auto& child : root.children) {
    arenas.insert(XMLArena::Of(child.get()));
  }
  EXPECT_EQ(arenas.size(), 1u);
  EXPECT_EQ(root.children[98765]->AttributeValue("k"), std::optional<std::string_view>("98765"));
  EXPECT_EQ(root.children[98765]->GetData(), "2");
}

TEST_F(ArenaTreeTest, AnElementReadWithOneAttributeTakesMoreLikeAnyOther) {
  XMLDocumentNode& root = *Read("<R><A m=\"1\"/><B/></R>").children.at(0);
  XMLDocumentNode& a = *root.children.at(0);
  a.SetAttributeData("z", "3");
  a.SetAttributeData("b", "2");
  a.SetAttributeData("m", "one");
  EXPECT_EQ(a.GetAttributes(),
            (std::vector<XMLDocumentNode::Attribute>{{"b", "2"}, {"m", "one"}, {"z", "3"}}));
  XMLDocumentNode& b = *root.children.at(1);
  b.SetAttributeData("k", "v");
  EXPECT_EQ(b.AttributeValue("k"), std::optional<std::string_view>("v"));
  EXPECT_EQ(b.AttributeValue("j"), std::nullopt);
}

long VirtualMemoryKib() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmSize:", 0) == 0) {
      return std::stol(line.substr(7));
    }
  }
  return -1;
}

// Memory running out part way through a large file, at many different
// points: the read ends as over a limit (so the file is never taken for a
// malformed one and put aside), and nothing crashes.
TEST_F(ArenaTreeTest, RunningOutOfMemoryWhileReadingIsOverALimitNeverMalformed) {
#if defined(ORU_SANITIZE_BUILD)
  GTEST_SKIP() << "the address sanitizer reserves more address space than any such limit leaves";
#endif
  std::string file = "<R>";
  for (int index = 0; index < 120000; ++index) {
    file += "<E k=\"{9F0B2C4E-" + std::to_string(index) + "-product}\">" +
            std::to_string(index % 2) + "</E>\n";
  }
  WriteFile(path_, file + "</R>");
  enum Outcome { kParsed, kOverLimit, kMalformed, kOther };
  int over_limit = 0;
  for (long headroom_kib = 0; headroom_kib <= 24 * 1024;
       headroom_kib += (headroom_kib < 2048 ? 16 : 1024)) {
    const int outcome = oru_testing::RunInChild([&] {
      struct rlimit limit;
      getrlimit(RLIMIT_AS, &limit);
      limit.rlim_cur = static_cast<rlim_t>(VirtualMemoryKib() + headroom_kib) * 1024;
      if (setrlimit(RLIMIT_AS, &limit) != 0) {
        return static_cast<int>(kOther);
      }
      Builder builder;
      if (!builder.Create(nullptr, nullptr)) {
        return static_cast<int>(kOverLimit); // nothing read, nothing judged
      }
      switch (builder.ReadFile(path_, nullptr)) {
      case Builder::FileResult::kParsed:
        return static_cast<int>(kParsed);
      case Builder::FileResult::kOverLimit:
        return static_cast<int>(kOverLimit);
      case Builder::FileResult::kMalformed:
        return static_cast<int>(kMalformed);
      default:
        return static_cast<int>(kOther);
      }
    });
    ASSERT_TRUE(outcome == kParsed || outcome == kOverLimit)
        << "with " << headroom_kib << " KiB to spare the read ended " << outcome;
    over_limit += outcome == kOverLimit;
  }
  EXPECT_GT(over_limit, 0) << "no limit was tight enough to stage the fault";
}

TEST(XMLArenaTest, ExtendsOnlyItsNewestAllocation) {
  XMLArena* arena = XMLArena::Create();
  char* first = static_cast<char*>(arena->Allocate(10, 1));
  char* second = static_cast<char*>(arena->Allocate(10, 1));
  EXPECT_FALSE(arena->Extend(first, 10, 20));
  EXPECT_TRUE(arena->Extend(second, 10, 20));
  char* third = static_cast<char*>(arena->Allocate(1, 1));
  EXPECT_EQ(third, second + 20);
  EXPECT_FALSE(arena->Extend(third, 1, 2 * XMLArena::kGranuleBytes));
  arena->Release();
}

TEST(XMLArenaTest, LivesAsLongAsItsLastNode) {
  XMLArena* arena = XMLArena::Create();
  auto* node = new (*arena) XMLDocumentNode(*arena, "n");
  arena->Release(); // the maker's reference; the node's remains
  EXPECT_EQ(XMLArena::Of(node), arena);
  EXPECT_EQ(node->GetName(), "n");
  delete node; // and the arena with it (a leak checker would say otherwise)
}

TEST(XMLArenaTest, StringsGivenAfterReadingGoToTheHeap) {
  XMLArena* arena = XMLArena::Create();
  auto* node = new (*arena) XMLDocumentNode(*arena, "n");
  arena->StartFilling();
  node->AppendData("read");
  node->SetAttributeData("only", "one");
  node->MarkAsDocument();
  node->SetAttributeData("version", "1.0");
  arena->StopFilling();
  EXPECT_EQ(node->attributes(), (XMLDocumentNode::AttributeMap{{"only", "one"}}));
  EXPECT_EQ(node->version(), "1.0");
  const char* arena_bytes = node->data.view().data();
  EXPECT_EQ(XMLArena::Of(arena_bytes), arena);
  node->AppendData(" later");
  EXPECT_EQ(node->GetData(), "read later");
  EXPECT_NE(node->data.view().data(), arena_bytes);
  arena->Release();
  delete node;
}

} // namespace
} // namespace esd
