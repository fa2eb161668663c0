// Load rate of a large preferences file: the preferences reader against
// bare expat with empty callbacks on the same bytes (the floor), and
// pugixml's DOM load of the same bytes.
#include "bench/ratio_reporter.h"
#include "esd/expat_dom_builder.h"

#include <benchmark/benchmark.h>
#include <expat.h>
#include <fcntl.h>
#include <fstream>
#include <pugixml.hpp>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kMapEntries = 20000;

// A preferences file as the writer prints it: a few scalar preferences and
// one map preference of kMapEntries entries.
const std::string& PrefsFile() {
  static const std::string path = [] {
    char pattern[] = "/tmp/oru-bench-prefs-XXXXXX";
    const int fd = mkstemp(pattern);
    close(fd);
    std::ofstream out(pattern, std::ios::binary);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<Preferences>\n";
    out << "<AutoCheck>1</AutoCheck>\n<LogLevel>2</LogLevel>\n";
    out << "<LogFile>/Users/someone/Library/Application Support/Nuvex/OruUpdater/1.0/oruu.log"
           "</LogFile>\n<Map>\n";
    for (int i = 0; i < kMapEntries; ++i) {
      out << "<MapPrefEntry MapPrefKey=\"{9F0B2C4E-" << 100000 + i << "-product}\">" << (i % 2)
          << "</MapPrefEntry>\n";
    }
    out << "</Map>\n</Preferences>\n";
    return std::string(pattern);
  }();
  return path;
}

size_t FileSize() {
  std::ifstream in(PrefsFile(), std::ios::binary | std::ios::ate);
  return static_cast<size_t>(in.tellg());
}

void XMLCALL EmptyStart(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL EmptyEnd(void*, const XML_Char*) {}
void XMLCALL EmptyText(void*, const XML_Char*, int) {}

void BM_Floor(benchmark::State& state) {
  const size_t size = FileSize();
  std::vector<char> bytes(size);
  for (auto _ : state) {
    const int fd = open(PrefsFile().c_str(), O_RDONLY);
    const ssize_t got = read(fd, bytes.data(), bytes.size());
    close(fd);
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(parser, &EmptyStart, &EmptyEnd);
    XML_SetCharacterDataHandler(parser, &EmptyText);
    const XML_Status status = XML_Parse(parser, bytes.data(), static_cast<int>(got), 1);
    XML_ParserFree(parser);
    if (status != XML_STATUS_OK) {
      state.SkipWithError("expat failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

// The floor again, but fed as the reader feeds expat: 1024-byte chunks
// straight into expat's buffer. Shows what the chunking contract costs.
void BM_FloorIn1024ByteChunks(benchmark::State& state) {
  const size_t size = FileSize();
  for (auto _ : state) {
    const int fd = open(PrefsFile().c_str(), O_RDONLY);
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(parser, &EmptyStart, &EmptyEnd);
    XML_SetCharacterDataHandler(parser, &EmptyText);
    XML_Status status = XML_STATUS_OK;
    bool final_chunk = false;
    while (status == XML_STATUS_OK && !final_chunk) {
      void* buffer = XML_GetBuffer(parser, 1024);
      const ssize_t got = buffer ? read(fd, buffer, 1024) : -1;
      final_chunk = got < 1024;
      status = XML_ParseBuffer(parser, static_cast<int>(got > 0 ? got : 0), final_chunk);
    }
    close(fd);
    XML_ParserFree(parser);
    if (status != XML_STATUS_OK) {
      state.SkipWithError("expat failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void BM_EsdReader(benchmark::State& state) {
  const size_t size = FileSize();
  esd::ExpatDOMBuilder<esd::XMLDocumentNode> builder;
  for (auto _ : state) {
    if (!builder.Create(nullptr, nullptr) || !builder.ParseFile(PrefsFile(), false)) {
      state.SkipWithError("reader failed");
    }
    builder.Clear();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void BM_Pugixml(benchmark::State& state) {
  const size_t size = FileSize();
  for (auto _ : state) {
    pugi::xml_document document;
    if (!document.load_file(PrefsFile().c_str())) {
      state.SkipWithError("pugixml failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

BENCHMARK(BM_Floor)->Name("xml_load/floor")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FloorIn1024ByteChunks)
    ->Name("xml_load/expat_1024_chunks")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EsdReader)->Name("xml_load/esd_reader")->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Pugixml)->Name("xml_load/pugixml")->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
  const int result = oru_bench::RunWithRatios(argc, argv);
  unlink(PrefsFile().c_str());
  return result;
}
