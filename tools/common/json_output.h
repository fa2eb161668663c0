// The JSON the tools print. Values keep their types (numbers, booleans,
// arrays), and the text is valid UTF-8 whatever bytes it was given: each
// byte that is not part of valid UTF-8 is printed as U+FFFD, and control
// characters are escaped ("\n", "\u0001").
#ifndef ORU_TOOLS_COMMON_JSON_OUTPUT_H
#define ORU_TOOLS_COMMON_JSON_OUTPUT_H

#include <nlohmann/json.hpp>
#include <string>

namespace oru_tools {

// Keys stay in the order they were set, as a reader of the output expects.
using Json = nlohmann::ordered_json;

// The value as one line of JSON.
std::string JsonText(const Json& value);
// That line and a line break, on standard output.
void PrintJson(const Json& value);

} // namespace oru_tools

#endif // ORU_TOOLS_COMMON_JSON_OUTPUT_H
