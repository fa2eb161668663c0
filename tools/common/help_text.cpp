#include "tools/common/help_text.h"

#include <algorithm>

namespace oru_tools {

namespace {

constexpr size_t kIndent = 2;
constexpr size_t kWidestColumn = 24;

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

} // namespace

std::string Joined(const std::vector<std::string>& parts, const std::string& between) {
  std::string joined;
  for (const std::string& part : parts) {
    joined += (joined.empty() ? "" : between) + part;
  }
  return joined;
}

std::string WrappedSynopsis(const std::string& lead, const std::vector<std::string>& parts) {
  std::string out = lead;
  size_t column = lead.size();
  const std::string continuation(lead.size() + 1, ' ');
  for (size_t index = 0; index < parts.size(); ++index) {
    const std::string& part = parts[index];
    if (index > 0 && column + 1 + part.size() > kHelpWidth) {
      out += "\n" + continuation.substr(0, continuation.size() - 1);
      column = continuation.size() - 1;
    }
    out += " " + part;
    column += 1 + part.size();
  }
  return out + "\n";
}

std::string TwoColumns(const std::vector<std::pair<std::string, std::string>>& rows) {
  size_t widest = 0;
  for (const auto& row : rows) {
    if (row.first.size() + 2 <= kWidestColumn) {
      widest = std::max(widest, row.first.size());
    }
  }
  const size_t column = kIndent + widest + 2;
  std::string out;
  for (const auto& [name, explanation] : rows) {
    std::string line = std::string(kIndent, ' ') + name;
    for (const std::string& text : LinesOf(explanation)) {
      if (line.size() + 1 > column) {
        out += line + "\n";
        line.clear();
      }
      line.resize(column, ' ');
      out += line + text + "\n";
      line.clear();
    }
  }
  return out;
}

std::string Indented(const std::string& text) {
  std::string out;
  for (const std::string& line : LinesOf(text)) {
    out += line.empty() ? "\n" : std::string(kIndent, ' ') + line + "\n";
  }
  while (out.size() > 1 && out[out.size() - 1] == '\n' && out[out.size() - 2] == '\n') {
    out.pop_back();
  }
  return out;
}

} // namespace oru_tools
