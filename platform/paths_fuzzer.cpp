// Feeds arbitrary bytes to the path string functions and checks the
// properties every caller relies on.
#include "platform/foundation_path_rules.h"
#include "platform/paths.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void Check(bool condition) {
  if (!condition) {
    std::abort();
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t split = input.find('\0');
  const std::string path = input.substr(0, split);
  const std::string other = split == std::string::npos ? std::string() : input.substr(split + 1);

  using namespace platform;

  const std::string dir = DirName(path);
  const std::string base = BaseName(path);
  if (path.find('/') == std::string::npos) {
    Check(dir.empty() && base == path);
  } else {
    Check(base.find('/') == std::string::npos);
    Check(path.size() == dir.size() + 1 + base.size() ||
          (dir == "/" && path.size() == 1 + base.size()));
  }

  const std::string joined = JoinPath(path, other);
  Check(joined.size() <= path.size() + 1 + other.size());

  std::string appended = path;
  AppendPathComponent(appended, other);
  Check(appended.compare(0, path.size(), path) == 0);

  std::string ext = "untouched";
  if (!GetPathExtension(path, ext)) {
    Check(ext == "untouched" && path.find('.') == std::string::npos);
  }

  const std::string collapsed = foundation::CollapseSlashes(path);
  Check(foundation::CollapseSlashes(collapsed) == collapsed);
  Check(collapsed.find("//") == std::string::npos);
  const std::string last = foundation::LastPathComponent(path);
  Check(last == "/" || last.find('/') == std::string::npos);
  const std::string standard = foundation::StandardizingPath(path);
  Check(foundation::StandardizingPath(standard) == standard);
  (void)foundation::DeletingLastPathComponent(path);
  (void)foundation::DeletingPathExtension(path);
  (void)foundation::AppendingPathComponent(path, other);
  std::string with_ext;
  if (foundation::AppendingPathExtension(path, other, with_ext)) {
    Check(with_ext.compare(0, collapsed.size(), collapsed) == 0);
  }

  std::string wrapped = path;
  (void)ReplacePathExtension(wrapped, other);
  (void)AppendPathComponentNS(wrapped, other);
  (void)DeleteLastPathComponent(wrapped);
  (void)AppendPathExtension(wrapped, other);
  (void)DeletePathExtension(wrapped);
  (void)IsBareName(wrapped);
  return 0;
}
