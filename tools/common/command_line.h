// The command lines of the tools, read one way through getopt_long: long
// options as "--name value" or "--name=value", short ones as "-x value" or
// "-xvalue", "-h" for "--help", "--" ending the options, words anywhere else. A mistake is one line
// that says what was wrong and, for a misspelt option, which one was meant.
#ifndef ORU_TOOLS_COMMON_COMMAND_LINE_H
#define ORU_TOOLS_COMMON_COMMAND_LINE_H

#include <map>
#include <string>
#include <vector>

namespace oru_tools {

struct OptionSpec {
  std::string name; // without the dashes
  bool takesValue = false;
  char shortName = '\0'; // "-x" for the same option, when not '\0'
};

class CommandLine {
public:
  // Knows `options` and, always, --help (-h).
  explicit CommandLine(std::vector<OptionSpec> options);

  // Reads `arguments` (the program's name not included). False, with
  // error() set, for an unknown option or one without its value.
  bool Parse(const std::vector<std::string>& arguments);

  bool Has(const std::string& name) const { return values_.count(name) != 0; }
  // The option's value (the last one given); empty when it was not given.
  std::string Value(const std::string& name) const;
  // Every value given to the option, in order.
  std::vector<std::string> Values(const std::string& name) const;
  // What was not an option, in order.
  const std::vector<std::string>& words() const { return words_; }
  const std::string& error() const { return error_; }

private:
  std::vector<OptionSpec> options_;
  std::map<std::string, std::vector<std::string>> values_;
  std::vector<std::string> words_;
  std::string error_;
};

// " (did you mean 'X'?)" for the known name closest to `given` when it is
// close enough to be a slip, else "".
std::string DidYouMean(const std::string& given, const std::vector<std::string>& known);

// A path given on the command line, made absolute against the working
// folder (the file primitives take absolute paths only).
std::string AbsolutePath(const std::string& path);

// The project's version, as its build names it.
const char* ProjectVersion();

} // namespace oru_tools

#endif // ORU_TOOLS_COMMON_COMMAND_LINE_H
