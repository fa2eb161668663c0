// Reads arbitrary bytes as a preferences file, writes the tree, and reads
// that back. Nothing may crash, leak or hang; where the parsed tree is one
// the writer prints faithfully, the second read must give the same tree.
#include "esd/expat_dom_builder.h"
#include "testing/sandbox.h"
#include "testing/xml_test_support.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

const std::string& ScratchPath() {
  static const std::string path = [] {
    char pattern[] = "/tmp/oru-xml-fuzz-XXXXXX";
    const int fd = mkstemp(pattern);
    if (fd < 0) {
      std::abort();
    }
    close(fd);
    return std::string(pattern);
  }();
  return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using esd::ExpatDOMBuilder;
  using esd::XMLDocumentNode;
  const std::string& path = ScratchPath();

  oru_testing::WriteFile(path, std::string(reinterpret_cast<const char*>(data), size));
  ExpatDOMBuilder<XMLDocumentNode> first;
  if (!first.Create(nullptr, nullptr)) {
    std::abort();
  }
  if (!first.ParseFile(path, true) || first.GetDocument()->children.size() != 1) {
    return 0;
  }
  const std::string written = esd::testing::WriteToString(*first.GetDocument());

  oru_testing::WriteFile(path, written);
  ExpatDOMBuilder<XMLDocumentNode> second;
  if (!second.Create(nullptr, nullptr)) {
    std::abort();
  }
  const bool reread = second.ParseFile(path, true);
  if (!esd::testing::IsFaithfullyWritable(*first.GetDocument())) {
    return 0;
  }
  bool equal = false;
  if (reread) {
    esd::testing::ExpectRoundTripOf(*first.GetDocument(), *second.GetDocument(), &equal, nullptr);
  }
  if (!reread || !equal) {
    std::abort();
  }
  return 0;
}
