// The program's bundle and a bundle's version on Linux: the executable comes
// from /proc, the property list is read with libplist (XML or binary).
#if !defined(__linux__)
#error "bundle_linux.cpp is the Linux backend; macOS uses mac/bundle_mac.mm"
#endif

#include "platform/folders.h"
#include "platform/folders_internal.h"
#include "platform/paths.h"

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

struct PlistDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
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
  plist_t parsed = nullptr;
  plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &parsed);
  std::unique_ptr<void, PlistDeleter> root(parsed);
  if (!root || plist_get_node_type(parsed) != PLIST_DICT) {
    return false;
  }
  plist_t item = plist_dict_get_item(parsed, "CFBundleShortVersionString");
  if (!item || plist_get_node_type(item) != PLIST_STRING) {
    return false;
  }
  char* text = nullptr;
  plist_get_string_val(item, &text);
  if (!text) {
    return false;
  }
  version = text;
  free(text);
  return true;
}

} // namespace platform
