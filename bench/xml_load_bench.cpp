// Load rate of large preferences files (1, 5 and 15 MiB): the preferences
// reader against bare expat with empty callbacks on the same bytes (the
// floor), expat fed the way the reader feeds it, and pugixml's DOM load of
// the same bytes. Also the reader's peak memory on the 15 MiB file, against
// the file's own size.
#include "bench/ratio_reporter.h"
#include "esd/expat_dom_builder.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <expat.h>
#include <fcntl.h>
#include <fstream>
#include <pugixml.hpp>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct PrefsFile {
  const char* group;
  size_t target_bytes;
  std::string path;
  size_t size = 0;
};

PrefsFile gFiles[] = {
    {"xml_load_1MiB", 1u << 20, {}},
    {"xml_load_5MiB", 5u << 20, {}},
    {"xml_load_15MiB", 15u << 20, {}},
};

// A preferences file as the writer prints it: a few scalar preferences and
// one map preference with as many entries as make the wanted size.
void WriteFile(PrefsFile& file) {
  char pattern[] = "/tmp/oru-bench-prefs-XXXXXX";
  close(mkstemp(pattern));
  file.path = pattern;
  std::ofstream out(pattern, std::ios::binary);
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<Preferences>\n";
  out << "<AutoCheck>1</AutoCheck>\n<LogLevel>2</LogLevel>\n";
  out << "<LogFile>/Users/someone/Library/Application Support/Nuvex/OruUpdater/1.0/oruu.log"
         "</LogFile>\n<Map>\n";
  const std::string end = "</Map>\n</Preferences>\n";
  std::string entry;
  for (long index = 0; static_cast<size_t>(out.tellp()) + end.size() < file.target_bytes;) {
    // A thousand entries between looks at the size, each a little over 70 bytes.
    for (const long last = index + 1000; index < last; ++index) {
      entry = "<MapPrefEntry MapPrefKey=\"{9F0B2C4E-" + std::to_string(100000 + index) +
              "-product}\">" + std::to_string(index % 2) + "</MapPrefEntry>\n";
      out << entry;
    }
  }
  out << end;
  file.size = static_cast<size_t>(out.tellp());
}

void XMLCALL EmptyStart(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL EmptyEnd(void*, const XML_Char*) {}
void XMLCALL EmptyText(void*, const XML_Char*, int) {}

XML_Parser EmptyParser() {
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetElementHandler(parser, &EmptyStart, &EmptyEnd);
  XML_SetCharacterDataHandler(parser, &EmptyText);
  return parser;
}

ssize_t ReadWhole(const std::string& path, std::vector<char>& bytes) {
  const int fd = open(path.c_str(), O_RDONLY);
  const ssize_t got = read(fd, bytes.data(), bytes.size());
  close(fd);
  return got;
}

// The file read whole and handed to expat in one call.
void BM_Floor(benchmark::State& state, const PrefsFile* file) {
  std::vector<char> bytes(file->size);
  for (auto _ : state) {
    const ssize_t got = ReadWhole(file->path, bytes);
    XML_Parser parser = EmptyParser();
    const XML_Status status = XML_Parse(parser, bytes.data(), static_cast<int>(got), 1);
    XML_ParserFree(parser);
    if (status != XML_STATUS_OK) {
      state.SkipWithError("expat failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file->size));
}

// The floor again, but fed as the reader feeds expat: 1024-byte chunks
// copied into expat's own buffer. Shows what the chunking contract costs.
void BM_FloorIn1024ByteChunks(benchmark::State& state, const PrefsFile* file) {
  constexpr int kChunk = 1024;
  std::vector<char> bytes(file->size);
  for (auto _ : state) {
    const size_t got = static_cast<size_t>(ReadWhole(file->path, bytes));
    XML_Parser parser = EmptyParser();
    XML_Status status = XML_STATUS_OK;
    for (size_t offset = 0; status == XML_STATUS_OK;) {
      const size_t length = std::min<size_t>(kChunk, got - offset);
      void* buffer = XML_GetBuffer(parser, kChunk);
      std::memcpy(buffer, bytes.data() + offset, length);
      offset += length;
      const bool final_chunk = length < kChunk;
      status = XML_ParseBuffer(parser, static_cast<int>(length), final_chunk);
      if (final_chunk) {
        break;
      }
    }
    XML_ParserFree(parser);
    if (status != XML_STATUS_OK) {
      state.SkipWithError("expat failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file->size));
}

void BM_EsdReader(benchmark::State& state, const PrefsFile* file) {
  esd::ExpatDOMBuilder<esd::XMLDocumentNode> builder;
  for (auto _ : state) {
    if (!builder.Create(nullptr, nullptr) || !builder.ParseFile(file->path, false)) {
      state.SkipWithError("reader failed");
    }
    builder.Clear();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file->size));
}

void BM_Pugixml(benchmark::State& state, const PrefsFile* file) {
  for (auto _ : state) {
    pugi::xml_document document;
    if (!document.load_file(file->path.c_str())) {
      state.SkipWithError("pugixml failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file->size));
}

long StatusKib(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const size_t length = std::strlen(field);
  while (std::getline(status, line)) {
    if (line.compare(0, length, field) == 0 && line.size() > length && line[length] == ':') {
      return std::stol(line.substr(length + 1));
    }
  }
  return -1;
}

constexpr const char* kPeakOption = "--peak-of";

// The child's side of ReaderPeakKib: loads the file and prints what that
// added to the process's peak resident memory, in KiB.
int PrintReaderPeak(const char* path) {
  const long before = StatusKib("VmRSS");
  esd::ExpatDOMBuilder<esd::XMLDocumentNode> builder;
  const bool parsed = builder.Create(nullptr, nullptr) && builder.ParseFile(path, false);
  const long high = StatusKib("VmHWM");
  if (!parsed || before < 0 || high < 0) {
    return 1;
  }
  std::printf("%ld\n", high - before);
  return 0;
}

// What loading the file adds to a process's peak resident memory, in KiB,
// measured in a fresh process (this program run again), so that nothing
// the benchmark did before, nor memory shared with it, counts. -1 when it
// cannot be measured.
long ReaderPeakKib(const std::string& path) {
  int pipe_fds[2];
  if (pipe(pipe_fds) != 0) {
    return -1;
  }
  const pid_t child = fork();
  if (child == 0) {
    dup2(pipe_fds[1], STDOUT_FILENO);
    close(pipe_fds[0]);
    close(pipe_fds[1]);
    execl("/proc/self/exe", "xml_load_bench", kPeakOption, path.c_str(), nullptr);
    _exit(127);
  }
  close(pipe_fds[1]);
  char text[32] = {};
  const ssize_t got = child > 0 ? read(pipe_fds[0], text, sizeof text - 1) : -1;
  close(pipe_fds[0]);
  int status = 1;
  if (child > 0) {
    waitpid(child, &status, 0);
  }
  if (got <= 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    return -1;
  }
  return std::strtol(text, nullptr, 10);
}

void BM_EsdReaderPeak(benchmark::State& state, const PrefsFile* file) {
  long peak = -1;
  for (auto _ : state) {
    peak = ReaderPeakKib(file->path);
  }
  if (peak < 0) {
    state.SkipWithError("peak memory not measurable");
  }
  state.counters["peak_kib"] = static_cast<double>(peak);
}

// The memory floor: the file's own size.
void BM_FileSize(benchmark::State& state, const PrefsFile* file) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(file->size);
  }
  state.counters["peak_kib"] = static_cast<double>(file->size) / 1024;
}

void RegisterAll() {
  for (PrefsFile& file : gFiles) {
    WriteFile(file);
    const std::string group = file.group;
    benchmark::RegisterBenchmark((group + "/floor").c_str(), &BM_Floor, &file)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((group + "/expat_1024_chunks").c_str(), &BM_FloorIn1024ByteChunks,
                                 &file)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((group + "/esd_reader").c_str(), &BM_EsdReader, &file)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((group + "/pugixml").c_str(), &BM_Pugixml, &file)
        ->Unit(benchmark::kMillisecond);
  }
  PrefsFile& largest = gFiles[2];
  const std::string group = largest.group;
  benchmark::RegisterBenchmark((group + "/esd_reader_peak").c_str(), &BM_EsdReaderPeak, &largest)
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark((group + "/file").c_str(), &BM_FileSize, &largest)->Iterations(1);
}

} // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], kPeakOption) == 0) {
    return PrintReaderPeak(argv[2]);
  }
  RegisterAll();
  const int result = oru_bench::RunWithRatios(argc, argv);
  for (const PrefsFile& file : gFiles) {
    unlink(file.path.c_str());
  }
  return result;
}
