#include "testing/xml_test_support.h"

#include "esd/xml_writer.h"

#include <sstream>
#include <vector>

namespace esd {
namespace testing {

namespace {

const char kNameStart[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";
const char kNameRest[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789.-";

// Pieces of element data: markup characters, white space, an entity-looking
// text, and multi-byte UTF-8.
const char* const kDataPieces[] = {"a",
                                   "Z",
                                   "9",
                                   " ",
                                   "\t",
                                   "\n",
                                   "<",
                                   ">",
                                   "&",
                                   "\"",
                                   "'",
                                   "&amp;",
                                   "]]>",
                                   "\xC3\xA9",
                                   "\xE2\x82\xAC",
                                   "\xF0\x9F\x98\x80",
                                   "/tmp/a b",
                                   "--"};
const char* const kValuePieces[] = {"a", "Z", "0", " ", ">", "'", "=", "/", "\xC3\xA9", "-"};

size_t Pick(std::mt19937& random, size_t count) {
  return std::uniform_int_distribution<size_t>(0, count - 1)(random);
}

std::string RandomName(std::mt19937& random) {
  std::string name(1, kNameStart[Pick(random, sizeof kNameStart - 1)]);
  const size_t length = Pick(random, 8);
  for (size_t i = 0; i < length; ++i) {
    name += kNameRest[Pick(random, sizeof kNameRest - 1)];
  }
  return name;
}

template <size_t N>
std::string RandomText(std::mt19937& random, const char* const (&pieces)[N], size_t max_pieces) {
  std::string text;
  const size_t count = Pick(random, max_pieces + 1);
  for (size_t i = 0; i < count; ++i) {
    text += pieces[Pick(random, N)];
  }
  return text;
}

XMLDocumentNode* RandomElement(std::mt19937& random) {
  auto* node = new XMLDocumentNode(RandomName(random));
  const size_t attributes = Pick(random, 4);
  for (size_t i = 0; i < attributes; ++i) {
    node->SetAttributeData(RandomName(random), RandomText(random, kValuePieces, 6));
  }
  if (Pick(random, 3) != 0) {
    node->SetData(RandomText(random, kDataPieces, 8));
  }
  return node;
}

bool IsWritableValue(const std::string& value) {
  return value.find_first_of("\"<&\t\n\r") == std::string::npos;
}

void Compare(const XMLDocumentNode& written, const XMLDocumentNode& read, const std::string& where,
             std::string& difference) {
  if (!difference.empty()) {
    return;
  }
  std::string expected_data = written.GetData();
  if (!written.isDocument() && expected_data.empty() && !written.children.empty()) {
    expected_data = "\n";
  }
  if (written.isDocument()) {
    expected_data = read.GetData(); // a document's own data is never written
  }
  if (written.GetName() != read.GetName()) {
    difference = where + ": name " + written.GetName() + " read as " + read.GetName();
  } else if (written.GetAttributes() != read.GetAttributes()) {
    difference = where + ": attributes differ";
  } else if (expected_data != read.GetData()) {
    difference = where + ": data [" + expected_data + "] read as [" + read.GetData() + "]";
  } else if (written.version() != read.version() || written.isDocument() != read.isDocument()) {
    difference = where + ": declaration differs";
  } else if (written.children.size() != read.children.size()) {
    difference = where + ": " + std::to_string(written.children.size()) + " children read as " +
                 std::to_string(read.children.size());
  }
}

} // namespace

std::unique_ptr<XMLDocumentNode> NewDocument() {
  auto document = std::make_unique<XMLDocumentNode>("");
  document->MarkAsDocument();
  document->SetAttributeData("version", "1.0");
  document->SetAttributeData("encoding", "UTF-8");
  return document;
}

std::unique_ptr<XMLDocumentNode> RandomWritableDocument(std::mt19937& random, int max_nodes) {
  auto document = NewDocument();
  XMLDocumentNode* root = RandomElement(random);
  document->AddChild(root);
  std::vector<XMLDocumentNode*> elements{root};
  const size_t nodes = Pick(random, static_cast<size_t>(max_nodes));
  for (size_t i = 0; i < nodes; ++i) {
    XMLDocumentNode* parent = elements[Pick(random, elements.size())];
    XMLDocumentNode* child = RandomElement(random);
    parent->AddChild(child);
    elements.push_back(child);
  }
  return document;
}

bool IsFaithfullyWritable(const XMLDocumentNode& document) {
  std::vector<const XMLDocumentNode*> pending{&document};
  while (!pending.empty()) {
    const XMLDocumentNode* node = pending.back();
    pending.pop_back();
    if (node->GetData().find('\r') != std::string::npos) {
      return false;
    }
    for (const auto& [name, value] : node->GetAttributes()) {
      if (!IsWritableValue(value)) {
        return false;
      }
    }
    for (const auto& child : node->children) {
      pending.push_back(child.get());
    }
  }
  return true;
}

void ExpectRoundTripOf(const XMLDocumentNode& written, const XMLDocumentNode& read, bool* equal,
                       std::string* difference) {
  std::string found;
  std::vector<std::pair<const XMLDocumentNode*, const XMLDocumentNode*>> pending{{&written, &read}};
  while (!pending.empty() && found.empty()) {
    const auto [left, right] = pending.back();
    pending.pop_back();
    Compare(*left, *right, "<" + left->GetName() + ">", found);
    if (found.empty()) {
      for (size_t i = 0; i < left->children.size(); ++i) {
        pending.emplace_back(left->children[i].get(), right->children[i].get());
      }
    }
  }
  *equal = found.empty();
  if (difference) {
    *difference = found;
  }
}

std::string WriteToString(const XMLDocumentNode& node) {
  std::ostringstream out;
  WriteXMLNode(out, &node);
  return out.str();
}

} // namespace testing
} // namespace esd
