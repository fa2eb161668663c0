// Text layout of the tools' help: synopses wrapped under their first word,
// and two columns of names beside their explanations.
#ifndef ORU_TOOLS_COMMON_HELP_TEXT_H
#define ORU_TOOLS_COMMON_HELP_TEXT_H

#include <string>
#include <utility>
#include <vector>

namespace oru_tools {

constexpr size_t kHelpWidth = 79;

std::string Joined(const std::vector<std::string>& parts, const std::string& between);

// `lead` then `parts` separated by blanks, wrapped within kHelpWidth; a
// continued line starts under the first part. Ends with a newline.
std::string WrappedSynopsis(const std::string& lead, const std::vector<std::string>& parts);

// Rows of a name and its explanation (lines separated by '\n'), indented by
// two, the explanations in one column; a name too wide for the column has
// its explanation start on the next line.
std::string TwoColumns(const std::vector<std::pair<std::string, std::string>>& rows);

// `text` with every non-empty line indented by two blanks, ending in a newline.
std::string Indented(const std::string& text);

} // namespace oru_tools

#endif // ORU_TOOLS_COMMON_HELP_TEXT_H
