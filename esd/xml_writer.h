// Prints a node tree as XML text.
//
// Element data is escaped through EscapeXML, with a CR as a reference.
// Names are written as they are. Attribute values are written as they are
// except for what an attribute value cannot carry and read back (double
// quote, "<", "&", tab, LF, CR), which become references. Every newline is
// "\n" followed by a flush of the stream.
#ifndef ORU_ESD_XML_WRITER_H
#define ORU_ESD_XML_WRITER_H

#include "esd/xml_node.h"

#include <ostream>
#include <string>

namespace esd {

struct XMLEscaping {
  // Replaces " & ' < > by their entities in one pass; an "&" that already
  // begins an entity is escaped again.
  static std::string EscapeXML(std::string::const_iterator first, std::string::const_iterator last);
};

// Writes `node` and its whole subtree; returns `out`.
std::ostream& WriteXMLNode(std::ostream& out, const XMLDocumentNode* node);

} // namespace esd

#endif // ORU_ESD_XML_WRITER_H
