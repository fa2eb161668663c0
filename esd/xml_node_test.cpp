#include "esd/xml_node.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace esd {
namespace {

using Result = SearchResult<XMLDocumentNode>;

// A node that records when it is destroyed and how many children it still
// held at that moment.
struct Recorder {
  std::vector<std::string> destroyed;
};

class RecordingNode : public XMLDocumentNode {
public:
  RecordingNode(const std::string& name, Recorder& recorder)
      : XMLDocumentNode(name), recorder_(recorder) {}
  ~RecordingNode() override {
    recorder_.destroyed.push_back(name + ":" + std::to_string(children.size()));
  }

private:
  Recorder& recorder_;
};

TEST(XMLDocumentNodeTest, StartsEmpty) {
  XMLDocumentNode node("A");
  EXPECT_EQ(node.GetName(), "A");
  EXPECT_EQ(node.GetData(), "");
  EXPECT_TRUE(node.version().empty());
  EXPECT_TRUE(node.attributes().empty());
  EXPECT_TRUE(node.children.empty());
  EXPECT_FALSE(node.isDocument());
}

// A preferences file of a million elements is held in memory whole, so a
// plain element carries only its name, data and children inline; what only
// a document node or an element with attributes has is kept out of line.
TEST(XMLDocumentNodeTest, APlainElementHoldsOnlyItsNameDataAndChildrenInline) {
  static_assert(sizeof(XMLDocumentNode) <=
                    sizeof(void*) * 2 + sizeof(std::string) * 2 +
                        sizeof(std::vector<std::unique_ptr<XMLDocumentNode>>),
                "version, attributes and the document flag are out of line");
  XMLDocumentNode element("e");
  element.SetAttributeData("k", "v");
  XMLDocumentNode document("");
  document.MarkAsDocument();
  document.SetAttributeData("version", "1.0");
  EXPECT_EQ(element.attributes().at("k"), "v");
  EXPECT_FALSE(element.isDocument());
  EXPECT_TRUE(document.isDocument());
  EXPECT_EQ(document.version(), "1.0");
  EXPECT_TRUE(document.attributes().empty());
}

TEST(XMLDocumentNodeTest, SetAndAppendData) {
  XMLDocumentNode node("A");
  node.SetData("one");
  node.AppendData(" two");
  EXPECT_EQ(node.GetData(), "one two");
  node.SetData("x");
  EXPECT_EQ(node.GetData(), "x");
}

TEST(XMLDocumentNodeTest, VersionAttributeOnAnOrdinaryElementIsAnAttribute) {
  XMLDocumentNode node("A");
  node.SetAttributeData("version", "2.0");
  EXPECT_EQ(node.attributes().at("version"), "2.0");
  EXPECT_TRUE(node.version().empty());
}

TEST(XMLDocumentNodeTest, VersionAttributeOnADocumentGoesToTheVersionField) {
  XMLDocumentNode document("");
  document.MarkAsDocument();
  document.SetAttributeData("version", "1.0");
  document.SetAttributeData("encoding", "UTF-8");
  EXPECT_EQ(document.version(), "1.0");
  EXPECT_EQ(document.attributes().count("version"), 0u);
  EXPECT_EQ(document.attributes().at("encoding"), "UTF-8");
}

TEST(XMLDocumentNodeTest, SettingAnAttributeTwiceKeepsTheSecondValue) {
  XMLDocumentNode node("A");
  node.SetAttributeData("k", "1");
  node.SetAttributeData("k", "2");
  ASSERT_EQ(node.GetAttributes().size(), 1u);
  EXPECT_EQ(node.GetAttributes()[0].second, "2");
}

TEST(XMLDocumentNodeTest, AttributesComeBackInNameOrder) {
  XMLDocumentNode node("A");
  node.SetAttributeData("b", "2");
  node.SetAttributeData("a", "1");
  const auto attributes = node.GetAttributes();
  ASSERT_EQ(attributes.size(), 2u);
  EXPECT_EQ(attributes[0], XMLDocumentNode::Attribute("a", "1"));
  EXPECT_EQ(attributes[1], XMLDocumentNode::Attribute("b", "2"));
}

TEST(XMLDocumentNodeTest, AddChildOfNullLeavesTheChildrenUnchanged) {
  XMLDocumentNode node("A");
  node.AddChild(new XMLDocumentNode("B"));
  node.AddChild(nullptr);
  EXPECT_EQ(node.children.size(), 1u);
}

TEST(XMLDocumentNodeTest, RemoveChildOfAStrangerReturnsFalseAndChangesNothing) {
  XMLDocumentNode node("A");
  node.AddChild(new XMLDocumentNode("B"));
  XMLDocumentNode stranger("C");
  EXPECT_FALSE(node.RemoveChild(&stranger));
  EXPECT_FALSE(node.RemoveChild(nullptr));
  ASSERT_EQ(node.children.size(), 1u);
  EXPECT_EQ(node.children[0]->GetName(), "B");
}

TEST(XMLDocumentNodeTest, RemoveChildDestroysItsSubtreeAndKeepsTheOthersInOrder) {
  Recorder recorder;
  XMLDocumentNode node("A");
  auto* b = new RecordingNode("B", recorder);
  b->AddChild(new RecordingNode("B1", recorder));
  node.AddChild(new XMLDocumentNode("first"));
  node.AddChild(b);
  node.AddChild(new XMLDocumentNode("last"));
  EXPECT_TRUE(node.RemoveChild(b));
  EXPECT_EQ(recorder.destroyed, (std::vector<std::string>{"B:1", "B1:0"}));
  ASSERT_EQ(node.children.size(), 2u);
  EXPECT_EQ(node.children[0]->GetName(), "first");
  EXPECT_EQ(node.children[1]->GetName(), "last");
}

TEST(XMLDocumentNodeTest, DestructionGoesParentFirstThenChildrenInOrder) {
  Recorder recorder;
  {
    auto* root = new RecordingNode("root", recorder);
    auto* a = new RecordingNode("a", recorder);
    a->AddChild(new RecordingNode("a1", recorder));
    a->AddChild(new RecordingNode("a2", recorder));
    root->AddChild(a);
    root->AddChild(new RecordingNode("b", recorder));
    delete root;
  }
  // Each node is destroyed while it still holds its children, in the order
  // of a depth-first walk.
  EXPECT_EQ(recorder.destroyed, (std::vector<std::string>{"root:2", "a:2", "a1:0", "a2:0", "b:0"}));
}

TEST(XMLDocumentNodeTest, AMillionLevelsDeepTreeIsDestroyedWithoutRecursion) {
  auto* root = new XMLDocumentNode("root");
  XMLDocumentNode* tip = root;
  for (int level = 0; level < 1000000; ++level) {
    auto* child = new XMLDocumentNode("d");
    tip->AddChild(child);
    tip = child;
  }
  delete root;
  SUCCEED();
}

TEST(XMLDocumentNodeTest, CompleteDoesNothing) {
  XMLDocumentNode node("A");
  node.SetData("x");
  node.Complete();
  EXPECT_EQ(node.GetData(), "x");
}

TEST(NodeNameTest, NullNodeIsNoMatch) {
  EXPECT_FALSE(NodeName("A")(nullptr));
}

TEST(NodeNameTest, MatchesTheExactName) {
  XMLDocumentNode node("AutoCheck");
  EXPECT_TRUE(NodeName("AutoCheck")(&node));
  EXPECT_FALSE(NodeName("autocheck")(&node));
  EXPECT_FALSE(NodeName("Auto")(&node));
}

TEST(NodeNameTest, NameWithABlankIsNeverFoundNotEvenByItself) {
  XMLDocumentNode node("a b");
  EXPECT_FALSE(NodeName("a b")(&node));
  EXPECT_FALSE(NodeName("a")(&node));
}

TEST(NodeNameTest, EmptyNameIsNeverFound) {
  XMLDocumentNode node("");
  EXPECT_FALSE(NodeName("")(&node));
}

TEST(SearchResultTest, HoldsTheNodeItWasMadeWith) {
  XMLDocumentNode node("A");
  Result result(&node);
  ASSERT_EQ(result.nodes().size(), 1u);
  EXPECT_EQ(result.front(), &node);
  Result null_result(nullptr);
  ASSERT_EQ(null_result.nodes().size(), 1u);
  EXPECT_EQ(null_result.front(), nullptr);
}

TEST(SearchResultTest, ChildrenFindsEveryDirectChildOfThatNameInOrder) {
  XMLDocumentNode node("root");
  auto* first = new XMLDocumentNode("A");
  first->AddChild(new XMLDocumentNode("A")); // a grandchild is not searched
  node.AddChild(first);
  node.AddChild(new XMLDocumentNode("B"));
  auto* second = new XMLDocumentNode("A");
  node.AddChild(second);
  const Result found = Result(&node).Children(NodeName("A"));
  ASSERT_EQ(found.nodes().size(), 2u);
  EXPECT_EQ(found.nodes()[0], first);
  EXPECT_EQ(found.nodes()[1], second);
  EXPECT_TRUE(Result(&node).Children(NodeName("C")).empty());
}

TEST(SearchResultTest, ChildrenOfSeveralNodesAreOrderedByParentThenPosition) {
  XMLDocumentNode root("root");
  auto* p1 = new XMLDocumentNode("P");
  auto* p2 = new XMLDocumentNode("P");
  auto* c1 = new XMLDocumentNode("C");
  auto* c2 = new XMLDocumentNode("C");
  p1->AddChild(c1);
  p2->AddChild(c2);
  root.AddChild(p1);
  root.AddChild(p2);
  const Result found = Result(&root).Children(NodeName("P")).Children(NodeName("C"));
  ASSERT_EQ(found.nodes().size(), 2u);
  EXPECT_EQ(found.nodes()[0], c1);
  EXPECT_EQ(found.nodes()[1], c2);
}

TEST(SearchResultTest, PredicateThrowingBadCastCountsAsNoMatch) {
  XMLDocumentNode root("root");
  root.AddChild(new XMLDocumentNode("bad"));
  auto* good = new XMLDocumentNode("good");
  root.AddChild(good);
  const auto predicate = [](const XMLDocumentNode* node) {
    if (node->GetName() == "bad") {
      throw std::bad_cast();
    }
    return true;
  };
  const Result found = Result(&root).Children(predicate);
  ASSERT_EQ(found.nodes().size(), 1u);
  EXPECT_EQ(found.front(), good);
}

TEST(SearchResultTest, PredicateThrowingAnythingElseReachesTheCaller) {
  XMLDocumentNode root("root");
  root.AddChild(new XMLDocumentNode("x"));
  const auto predicate = [](const XMLDocumentNode*) -> bool { throw std::runtime_error("boom"); };
  EXPECT_THROW(Result(&root).Children(predicate), std::runtime_error);
}

} // namespace
} // namespace esd
