#include "platform/paths.h"

namespace platform {

namespace {

bool EndsWithSlash(const std::string& text) {
  return !text.empty() && text.back() == '/';
}

} // namespace

std::string JoinPath(const std::string& base, const std::string& component) {
  const size_t skip = (!component.empty() && component.front() == '/') ? 1 : 0;
  std::string joined = base;
  // An empty base does not end in "/", so the result starts with one.
  if (!EndsWithSlash(base)) {
    joined += '/';
  }
  joined.append(component, skip, std::string::npos);
  return joined;
}

void AppendPathComponent(std::string& base, const std::string& component) {
  if (base.empty() || component.empty()) {
    return;
  }
  const size_t first = component.find_first_not_of('/');
  if (!EndsWithSlash(base)) {
    base += '/';
  }
  if (first != std::string::npos) {
    base.append(component, first, std::string::npos);
  }
}

std::string DirName(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return std::string();
  }
  if (slash == 0) {
    return "/";
  }
  return path.substr(0, slash);
}

std::string BaseName(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return path;
  }
  return path.substr(slash + 1);
}

bool GetPathExtension(const std::string& path, std::string& ext) {
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos) {
    return false;
  }
  ext = path.substr(dot + 1);
  return true;
}

} // namespace platform
