// A tool's command surface as one table: its commands, the words and options
// each takes, and their texts. Parsing, --help, "help COMMAND", the
// did-you-mean of a misspelt command and shell completion are all read from
// the table, so that none of them can say other than the others.
#ifndef ORU_TOOLS_COMMON_COMMAND_TABLE_H
#define ORU_TOOLS_COMMON_COMMAND_TABLE_H

#include "tools/common/command_line.h"

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace oru_tools {

// What a value or a word is completed with.
struct Completer {
  enum class Kind { kNothing, kFiles, kWords };
  Kind kind = Kind::kNothing;
  std::vector<std::string> words;
  // Asked at completion time for words that only the machine knows.
  std::vector<std::string> (*wordsNow)() = nullptr;

  static Completer Files() { return {Kind::kFiles, {}, nullptr}; }
  static Completer Words(std::vector<std::string> words) {
    return {Kind::kWords, std::move(words), nullptr};
  }
  static Completer WordsNow(std::vector<std::string> (*now)()) { return {Kind::kWords, {}, now}; }
};

struct Option {
  Option(std::string name, char shortName, std::string valueName, std::string help,
         Completer values = Completer())
      : name(std::move(name)), shortName(shortName), valueName(std::move(valueName)),
        help(std::move(help)), values(std::move(values)) {}

  std::string name;      // without the dashes
  char shortName = '\0'; // "-x" for the same option, when not '\0'
  std::string valueName; // "PATH" for "--file PATH"; empty for a flag
  std::string help;      // lines ('\n' between them) beside the option
  Completer values;
};

constexpr size_t kAnyNumberOfWords = static_cast<size_t>(-1);

// Filled in field by field: name, texts, options, run.
struct Command {
  std::string name;      // the words that name it: "log sessions"; "" for the tool itself
  std::string wordsText; // its words in the synopsis: "KEY VALUE", "[MESSAGE...]"
  size_t minWords = 0;
  size_t maxWords = 0;
  std::string summary; // a line or two in its parent's list of commands
  std::string about;   // paragraphs before the options
  std::vector<Option> options;
  std::string details; // paragraphs after the options: exit status, notes
  Completer firstWord; // completes the first of its words
  // Runs the command on its parsed line. A command without one is a group:
  // only its subcommands run.
  std::function<int(const CommandLine& line)> run;
};

// A titled paragraph of the tool's --help: "Files", "Environment",
// "Examples", "Exit status". The manual page makes each a section.
struct HelpSection {
  std::string title;
  std::string text;
};

struct ToolTable {
  std::string name;
  std::string about;
  std::vector<Command> commands; // a tool without commands has one named ""
  std::vector<HelpSection> sections;
};

// The exit statuses of a usage mistake and of success, as every tool uses them.
constexpr int kToolOk = 0;
constexpr int kToolUsage = 2;

class Tool {
public:
  explicit Tool(ToolTable table);
  // Its help command runs on the tool itself.
  Tool(const Tool&) = delete;
  Tool& operator=(const Tool&) = delete;

  // Runs the tool on `arguments` (the program's name not included): a
  // command, --help, help [COMMAND], --version, or --complete WORDS...
  int Main(const std::vector<std::string>& arguments) const;

  // The --help of the tool, and of one command.
  std::string ToolHelp() const;
  std::string CommandHelp(const Command& command) const;
  // The candidates for the last of `words` (the words after the tool's
  // name, the last one being completed, possibly empty), one a line after
  // a first line that says how to use them: "words", or "files" when the
  // shell should complete file names.
  std::string Complete(const std::vector<std::string>& words) const;

  // The command that the leading words of `arguments` name, and how many
  // words name it; nullptr when none does.
  const Command* Find(const std::vector<std::string>& arguments, size_t& named_by) const;
  const ToolTable& table() const { return table_; }

private:
  int RunCommand(const Command& command, const std::vector<std::string>& words) const;
  int Help(const CommandLine& line) const;
  int Mistake(const std::string& message, const Command* context) const;
  std::vector<const Command*> ChildrenOf(const std::string& name) const;
  std::string UsageLines(const Command& command) const;
  bool Toplevel() const;

  ToolTable table_;
};

} // namespace oru_tools

#endif // ORU_TOOLS_COMMON_COMMAND_TABLE_H
