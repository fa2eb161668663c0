// Test support for the XML tree: random trees that the writer can print
// faithfully, and structural comparison. Test-only.
#ifndef ORU_TESTING_XML_TEST_SUPPORT_H
#define ORU_TESTING_XML_TEST_SUPPORT_H

#include "esd/xml_node.h"

#include <memory>
#include <random>
#include <string>

namespace esd {
namespace testing {

// A document node as the reader makes it: version "1.0", encoding "UTF-8".
std::unique_ptr<XMLDocumentNode> NewDocument();

// A document with one root element and a random tree under it, using only
// what the writer prints faithfully: one-word element and attribute names,
// attribute values without '"', '<', '&' or white space other than blanks,
// and element data of any XML text (markup characters, non-ASCII) but
// without carriage returns.
std::unique_ptr<XMLDocumentNode> RandomWritableDocument(std::mt19937& random, int max_nodes);

// Whether a parsed tree can be written and read back faithfully (as above).
bool IsFaithfullyWritable(const XMLDocumentNode& document);

// The tree that reading back the writer's output of `written` must give:
// the same tree, except that an element with children and no data comes
// back with the data "\n" (the line break the writer puts after its tag).
void ExpectRoundTripOf(const XMLDocumentNode& written, const XMLDocumentNode& read, bool* equal,
                       std::string* difference);

std::string WriteToString(const XMLDocumentNode& node);

} // namespace testing
} // namespace esd

#endif // ORU_TESTING_XML_TEST_SUPPORT_H
