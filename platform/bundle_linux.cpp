// The program's bundle and a bundle's version on Linux: the executable comes
// from /proc, the property list is read with libplist (XML or binary).
//
// libplist is loaded on the first read of a bundle's version, not when the
// program starts: a program outside a bundle (the launcher on Linux) never
// reads one. Without libplist no version is found.
#if !defined(__linux__)
#error "bundle_linux.cpp is the Linux backend; macOS uses mac/bundle_mac.mm"
#endif

#include "platform/folders.h"
#include "platform/folders_internal.h"
#include "platform/paths.h"

#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <plist/plist.h>
#include <unistd.h>
#include <vector>

namespace platform {

namespace {

// An Info.plist is a few kilobytes; anything this large is not one.
constexpr uint64_t kMaxPropertyListBytes = 16 * 1024 * 1024;

bool ReadExecutablePath(std::string& path) {
  std::vector<char> buffer(4096);
  while (true) {
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length < 0) {
      return false;
    }
    if (static_cast<size_t>(length) < buffer.size()) {
      path.assign(buffer.data(), static_cast<size_t>(length));
      return true;
    }
    buffer.resize(buffer.size() * 2);
  }
}

bool ReadSmallFile(const std::string& path, std::string& bytes) {
  uint64_t size = 0;
  if (!IsFile(path) || !GetFileSize(path, size) || size > kMaxPropertyListBytes) {
    return false;
  }
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    return false;
  }
  bytes.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  return !stream.bad();
}

// The libplist calls this file makes, looked up once per process.
struct PlistLibrary {
  decltype(&plist_from_memory) from_memory = nullptr;
  decltype(&plist_free) free_node = nullptr;
  decltype(&plist_get_node_type) node_type = nullptr;
  decltype(&plist_dict_get_item) dict_get_item = nullptr;
  decltype(&plist_get_string_val) get_string_val = nullptr;

  bool loaded() const {
    return from_memory && free_node && node_type && dict_get_item && get_string_val;
  }
};

template <typename Function> void Find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
}

PlistLibrary LoadPlist() {
  PlistLibrary plist;
  // Debian 12 ships the 2.0 interface as ".so.3"; later releases as ".so.4".
  void* library = nullptr;
  for (const char* name : {"libplist-2.0.so.4", "libplist-2.0.so.3"}) {
    library = library ? library : dlopen(name, RTLD_NOW | RTLD_LOCAL);
  }
  if (library) {
    Find(library, "plist_from_memory", plist.from_memory);
    Find(library, "plist_free", plist.free_node);
    Find(library, "plist_get_node_type", plist.node_type);
    Find(library, "plist_dict_get_item", plist.dict_get_item);
    Find(library, "plist_get_string_val", plist.get_string_val);
  }
  return plist;
}

const PlistLibrary& Plist() {
  static const PlistLibrary plist = LoadPlist();
  return plist;
}

struct PlistDeleter {
  void operator()(void* node) const { Plist().free_node(static_cast<plist_t>(node)); }
};

} // namespace

bool GetBundleFolder(std::string& out) {
  std::string executable;
  if (!ReadExecutablePath(executable)) {
    return false;
  }
  out = internal::SelectBundleFolder(executable, internal::BundlePathForExecutable(executable));
  return true;
}

bool GetBundleShortVersion(std::string& bundle_path, std::string& version) {
  AppendPathComponent(bundle_path, "/Contents/Info.plist");
  std::string bytes;
  if (!PathExists(bundle_path) || !ReadSmallFile(bundle_path, bytes) || bytes.empty()) {
    return false;
  }
  const PlistLibrary& plist = Plist();
  if (!plist.loaded()) {
    return false;
  }
  plist_t parsed = nullptr;
  plist.from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &parsed);
  std::unique_ptr<void, PlistDeleter> root(parsed);
  if (!root || plist.node_type(parsed) != PLIST_DICT) {
    return false;
  }
  plist_t item = plist.dict_get_item(parsed, "CFBundleShortVersionString");
  if (!item || plist.node_type(item) != PLIST_STRING) {
    return false;
  }
  char* text = nullptr;
  plist.get_string_val(item, &text);
  if (!text) {
    return false;
  }
  version = text;
  free(text);
  return true;
}

} // namespace platform
