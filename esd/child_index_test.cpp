#include "esd/child_index.h"

#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>

namespace esd {
namespace {

XMLDocumentNode* Add(XMLDocumentNode& parent, const std::string& name) {
  parent.AddChild(new XMLDocumentNode(name));
  return parent.children.back().get();
}

// What the name predicate finds by scanning: the first child of that name.
XMLDocumentNode* FirstByScan(XMLDocumentNode& parent, const std::string& name) {
  const SearchResult<XMLDocumentNode> found =
      SearchResult<XMLDocumentNode>(&parent).Children(NodeName(name));
  return found.empty() ? nullptr : found.front();
}

TEST(ChildIndexTest, FindsTheFirstChildOfEachOfTenThousandNames) {
  XMLDocumentNode parent("Preferences");
  std::vector<XMLDocumentNode*> first;
  for (int copy = 0; copy < 3; ++copy) {
    for (int i = 0; i < 10000; ++i) {
      XMLDocumentNode* child = Add(parent, "k" + std::to_string(i));
      if (copy == 0) {
        first.push_back(child);
      }
    }
  }
  ChildIndex index;
  index.Reset(&parent);
  for (int i = 0; i < 10000; ++i) {
    ASSERT_EQ(index.Find("k" + std::to_string(i)), first[static_cast<size_t>(i)]) << i;
  }
  EXPECT_EQ(index.Find("k10000"), nullptr);
}

TEST(ChildIndexTest, AChildAppendedThroughTheIndexIsFoundAndAnEarlierOneOfItsNameStays) {
  XMLDocumentNode parent("Preferences");
  XMLDocumentNode* a = Add(parent, "a");
  ChildIndex index;
  index.Reset(&parent);
  EXPECT_EQ(index.Find("a"), a);
  for (int i = 0; i < 100; ++i) {
    index.Appended(Add(parent, "n" + std::to_string(i)));
  }
  index.Appended(Add(parent, "a"));
  EXPECT_EQ(index.Find("a"), a);
  EXPECT_EQ(index.Find("n99"), parent.children[100].get());
}

TEST(ChildIndexTest, AfterARemovalTheNextChildOfThatNameIsFound) {
  XMLDocumentNode parent("Preferences");
  XMLDocumentNode* first = Add(parent, "a");
  Add(parent, "b");
  XMLDocumentNode* second = Add(parent, "a");
  ChildIndex index;
  index.Reset(&parent);
  ASSERT_EQ(index.Find("a"), first);
  ASSERT_TRUE(parent.RemoveChild(first));
  index.Removed();
  EXPECT_EQ(index.Find("a"), second);
}

TEST(ChildIndexTest, AChildAddedPastTheIndexIsFoundAllTheSame) {
  XMLDocumentNode parent("Preferences");
  Add(parent, "a");
  ChildIndex index;
  index.Reset(&parent);
  ASSERT_EQ(index.Find("late"), nullptr);
  XMLDocumentNode* late = Add(parent, "late");
  EXPECT_EQ(index.Find("late"), late);
}

TEST(ChildIndexTest, FindsWhatTheNamePredicateFindsForNamesWithAndWithoutWhiteSpace) {
  const std::vector<std::string> names = {"a", " a", "a ", "\ta\n", "a b", "",
                                          " ", "b",  "ab", "a\v",   "\fb", "b\r"};
  std::mt19937 random(7);
  XMLDocumentNode parent("Preferences");
  for (int i = 0; i < 200; ++i) {
    Add(parent, names[random() % names.size()]);
  }
  ChildIndex index;
  index.Reset(&parent);
  for (const std::string wanted : {"a", "b", "ab", "c"}) {
    EXPECT_EQ(index.Find(wanted), FirstByScan(parent, wanted)) << wanted;
  }
  EXPECT_EQ(index.Find("a b"), nullptr);
}

} // namespace
} // namespace esd
