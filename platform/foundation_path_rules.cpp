#include "platform/foundation_path_rules.h"

#include <vector>

namespace platform {
namespace foundation {

namespace {

size_t LastComponentStart(const std::string& collapsed) {
  const size_t slash = collapsed.rfind('/');
  return slash == std::string::npos ? 0 : slash + 1;
}

std::vector<std::string> SplitComponents(const std::string& path) {
  std::vector<std::string> components;
  size_t start = 0;
  while (start <= path.size()) {
    const size_t slash = path.find('/', start);
    const size_t end = slash == std::string::npos ? path.size() : slash;
    if (end > start) {
      components.push_back(path.substr(start, end - start));
    }
    if (slash == std::string::npos) {
      break;
    }
    start = slash + 1;
  }
  return components;
}

} // namespace

std::string CollapseSlashes(const std::string& path) {
  std::string collapsed;
  collapsed.reserve(path.size());
  for (char c : path) {
    if (c == '/' && !collapsed.empty() && collapsed.back() == '/') {
      continue;
    }
    collapsed += c;
  }
  if (collapsed.size() > 1 && collapsed.back() == '/') {
    collapsed.pop_back();
  }
  return collapsed;
}

std::string LastPathComponent(const std::string& path) {
  const std::string collapsed = CollapseSlashes(path);
  if (collapsed == "/") {
    return collapsed;
  }
  return collapsed.substr(LastComponentStart(collapsed));
}

std::string DeletingLastPathComponent(const std::string& path) {
  const std::string collapsed = CollapseSlashes(path);
  const size_t slash = collapsed.rfind('/');
  if (slash == std::string::npos) {
    return std::string();
  }
  if (slash == 0) {
    return "/";
  }
  return collapsed.substr(0, slash);
}

std::string AppendingPathComponent(const std::string& path, const std::string& component) {
  if (path.empty()) {
    return CollapseSlashes(component);
  }
  if (component.empty()) {
    return CollapseSlashes(path);
  }
  return CollapseSlashes(path + "/" + component);
}

std::string DeletingPathExtension(const std::string& path) {
  const std::string collapsed = CollapseSlashes(path);
  const size_t dot = collapsed.rfind('.');
  // A dot that opens the last component (".tiff") starts a name, not an
  // extension.
  if (dot == std::string::npos || dot <= LastComponentStart(collapsed)) {
    return collapsed;
  }
  return collapsed.substr(0, dot);
}

bool AppendingPathExtension(const std::string& path, const std::string& ext, std::string& out) {
  const std::string collapsed = CollapseSlashes(path);
  if (collapsed.empty() || collapsed == "/") {
    return false;
  }
  out = ext.empty() ? collapsed : collapsed + "." + ext;
  return true;
}

std::string ExpandingTildeInPath(const std::string& path, HomeResolver home_of) {
  if (path.empty() || path.front() != '~' || !home_of) {
    return path;
  }
  const size_t slash = path.find('/');
  const std::string user =
      path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
  std::string home;
  if (!home_of(user, home) || home.empty()) {
    return path;
  }
  return slash == std::string::npos ? home : home + path.substr(slash);
}

std::string StandardizingPath(const std::string& path, HomeResolver home_of) {
  const std::string expanded = ExpandingTildeInPath(path, home_of);
  if (expanded.empty()) {
    return expanded;
  }
  const bool absolute = expanded.front() == '/';
  std::vector<std::string> kept;
  for (std::string& component : SplitComponents(expanded)) {
    // Only "/./" is reduced: a "." with no "/" before it names the
    // current folder and stays.
    if (component == "." && (absolute || !kept.empty())) {
      continue;
    }
    if (component == ".." && absolute) {
      if (!kept.empty()) {
        kept.pop_back();
      }
      continue;
    }
    kept.push_back(std::move(component));
  }
  std::string standard = absolute ? "/" : "";
  for (size_t i = 0; i < kept.size(); ++i) {
    if (i > 0) {
      standard += '/';
    }
    standard += kept[i];
  }
  return standard;
}

} // namespace foundation
} // namespace platform
