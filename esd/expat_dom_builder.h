// Reads an XML file into a tree of nodes with expat.
//
// Text between a start tag and the next tag of any kind belongs to the
// element that start tag opened; text after an end tag is dropped. The
// document node always claims encoding "UTF-8", whatever the file declares.
#ifndef ORU_ESD_EXPAT_DOM_BUILDER_H
#define ORU_ESD_EXPAT_DOM_BUILDER_H

#include "esd/xml_arena.h"
#include "esd/xml_node.h"

#include <boost/noncopyable.hpp>
#include <cstdint>
#include <deque>
#include <expat.h>
#include <memory>
#include <stack>
#include <string>
#include <sys/stat.h>

namespace esd {

template <typename Node> class ExpatDOMBuilder : private boost::noncopyable {
public:
  // Bytes read from the file per call to the parser.
  static constexpr size_t kChunkBytes = 1024;
  // Limits that keep a hostile or broken file from taking the process's
  // memory: a larger file, or one with more elements, does not parse.
  static constexpr uint64_t kMaxFileBytes = 16 * 1024 * 1024;
  static constexpr size_t kMaxNodes = 1000000;
  // Longest single piece of markup (a tag with its attributes, a comment, a
  // declaration). The parser scans an unfinished piece again with every
  // chunk, so without a bound one huge tag costs time quadratic in its
  // length. Character data is handed out piecewise and has no such bound.
  static constexpr int kMaxMarkupBytes = 64 * 1024;

  ExpatDOMBuilder() = default;
  virtual ~ExpatDOMBuilder();

  // Starts a new, empty document (version "1.0", encoding "UTF-8") and a
  // parser for it. Either argument may be null.
  bool Create(const char* encoding, const char* namespace_separator);

  // Parses the file into the document made by Create. A file that cannot be
  // opened, or is empty, gives `result_if_no_data`. On a parse error the
  // tree built so far stays until the next Clear.
  bool ParseFile(const std::string& path, bool result_if_no_data);

  // What reading a file came to, for a caller that must treat the cases
  // apart: a file that is not XML may be put aside, but a file that could
  // not be read, or was cut off at a limit, says nothing about its bytes.
  enum class FileResult {
    kParsed,     // the whole file parsed
    kNoData,     // nothing at the path, or an empty file
    kUnreadable, // something is there that cannot be read as a file
    kMalformed,  // the bytes are not well-formed XML
    kOverLimit,  // a limit above (or memory) ran out before the end
  };
  // ParseFile with the cases apart; `info`, when given, gets the status of
  // the very file that was read (for kParsed, kMalformed and kOverLimit).
  FileResult ReadFile(const std::string& path, struct stat* info);

  // Frees the parser and the document; nodes handed out before are gone.
  void Clear();

  Node* GetDocument() const { return document_.get(); }

private:
  static void XMLCALL OnStartElement(void* user_data, const XML_Char* name,
                                     const XML_Char** attributes);
  static void XMLCALL OnEndElement(void* user_data, const XML_Char* name);
  static void XMLCALL OnCharacterData(void* user_data, const XML_Char* text, int length);
  static void XMLCALL OnDeclarationInstruction(void* user_data, const XML_Char* version,
                                               const XML_Char* encoding, int standalone);

  void StartElement(const XML_Char* name, const XML_Char** attributes);
  // Bytes the parser holds of a piece of markup it has not finished.
  int PendingMarkupBytes() const;
  // Ends the parse with an error; callbacks that expat still delivers
  // afterwards are ignored.
  void Stop();

  // Where the nodes read from a file live; the builder holds one reference
  // from Create to Clear, and each node holds one.
  XMLArena* arena_ = nullptr;
  std::unique_ptr<Node> document_;
  std::stack<Node*, std::deque<Node*>> nodeStack_;
  bool inElement_ = false;
  XML_Parser parser_ = nullptr;
  size_t nodeCount_ = 0;
  bool stopped_ = false;
  // Why the parse was stopped: a limit or memory, not the bytes.
  bool limitReached_ = false;
  // Reused for the strings handed to the nodes, so that reading a file does
  // not allocate a temporary per attribute and run of text.
  std::string scratchName_;
  std::string scratchValue_;
};

extern template class ExpatDOMBuilder<XMLDocumentNode>;

} // namespace esd

#endif // ORU_ESD_EXPAT_DOM_BUILDER_H
