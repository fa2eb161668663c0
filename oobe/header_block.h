// The block of lines that opens a log file again after it was emptied: the
// client's version and the operating system's name, version, locale and
// bitness between two rules of asterisks.
#ifndef ORU_OOBE_HEADER_BLOCK_H
#define ORU_OOBE_HEADER_BLOCK_H

#include <map>
#include <string>

namespace oobe {

struct HeaderBlock {
  std::string ruleBefore;
  // Label ("OS Name: ") to value, in label order.
  std::map<std::string, std::string> lines;
  std::string ruleAfter;
};

// Asks the system once; the block is kept and written as composed.
HeaderBlock ComposeHeaderBlock();

} // namespace oobe

#endif // ORU_OOBE_HEADER_BLOCK_H
