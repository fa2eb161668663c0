#include "esd/xml_writer.h"

#include <string>
#include <vector>

namespace esd {

namespace {

// Every program sharing the preferences writes attribute values as they
// are and a CR in data as itself: a value holding a double quote, "<" or
// "&" then gives a file that does not parse (and every preference is lost
// when it is next read), and the reader turns a CR into LF and a tab or
// line break in an attribute into a blank. Only those six are written as
// references, so that every value reads back as it was; everything else,
// ">" included (an attribute value carries it as it is), is written byte
// for byte as the other programs write it.
std::string EscapeAttributeValue(const std::string& value) {
  if (value.find_first_of("\"<&\t\n\r") == std::string::npos) {
    return value;
  }
  std::string escaped;
  for (const char c : value) {
    switch (c) {
    case '"':
      escaped += "&quot;";
      break;
    case '<':
      escaped += "&lt;";
      break;
    case '&':
      escaped += "&amp;";
      break;
    case '\t':
      escaped += "&#9;";
      break;
    case '\n':
      escaped += "&#10;";
      break;
    case '\r':
      escaped += "&#13;";
      break;
    default:
      escaped += c;
    }
  }
  return escaped;
}

// Element data through EscapeXML, with a CR as a reference (see above).
std::string EscapeData(const std::string& data) {
  std::string escaped = XMLEscaping::EscapeXML(data.begin(), data.end());
  for (size_t at = escaped.find('\r'); at != std::string::npos; at = escaped.find('\r', at)) {
    escaped.replace(at, 1, "&#13;");
  }
  return escaped;
}

void NewLine(std::ostream& out) {
  out << '\n' << std::flush;
}

// The declaration line, or a start tag followed by the element's data.
void WriteOpening(std::ostream& out, const XMLDocumentNode& node) {
  if (node.isDocument()) {
    out << "<?xml version=\"" << node.version() << "\" ";
    for (const auto& [name, value] : node.GetAttributes()) {
      out << name << "=\"" << EscapeAttributeValue(value) << "\" ";
    }
    out << "?>";
    NewLine(out);
    return;
  }
  out << '<' << node.GetName();
  for (const auto& [name, value] : node.GetAttributes()) {
    out << ' ' << name << "=\"" << EscapeAttributeValue(value) << '"';
  }
  out << '>';
  const std::string data = node.GetData();
  if (!data.empty()) {
    out << EscapeData(data);
  } else if (!node.children.empty()) {
    NewLine(out);
  }
}

void WriteClosing(std::ostream& out, const XMLDocumentNode& node) {
  if (!node.isDocument()) {
    out << "</" << node.GetName() << '>';
  }
}

// One node being written: a copy of its child list and the next child.
struct Frame {
  const XMLDocumentNode* node;
  std::vector<const XMLDocumentNode*> children;
  size_t next = 0;
};

Frame Enter(std::ostream& out, const XMLDocumentNode* node) {
  WriteOpening(out, *node);
  Frame frame{node, {}, 0};
  frame.children.reserve(node->children.size());
  for (const auto& child : node->children) {
    frame.children.push_back(child.get());
  }
  return frame;
}

} // namespace

std::string XMLEscaping::EscapeXML(std::string::const_iterator first,
                                   std::string::const_iterator last) {
  std::string escaped;
  escaped.reserve(static_cast<size_t>(last - first));
  for (; first != last; ++first) {
    switch (*first) {
    case '"':
      escaped += "&quot;";
      break;
    case '&':
      escaped += "&amp;";
      break;
    case '\'':
      escaped += "&apos;";
      break;
    case '<':
      escaped += "&lt;";
      break;
    case '>':
      escaped += "&gt;";
      break;
    default:
      escaped += *first;
    }
  }
  return escaped;
}

std::ostream& WriteXMLNode(std::ostream& out, const XMLDocumentNode* node) {
  if (!node) {
    return out;
  }
  std::vector<Frame> frames;
  frames.push_back(Enter(out, node));
  while (!frames.empty()) {
    Frame& top = frames.back();
    if (top.next < top.children.size()) {
      const XMLDocumentNode* child = top.children[top.next++];
      frames.push_back(Enter(out, child));
      continue;
    }
    WriteClosing(out, *top.node);
    frames.pop_back();
    // A child is followed by a newline in its parent's listing.
    if (!frames.empty()) {
      NewLine(out);
    }
  }
  return out;
}

} // namespace esd
