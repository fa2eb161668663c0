#include "tools/common/command_table.h"

#include "tools/common/help_text.h"

#include <cstdio>

namespace oru_tools {

namespace {

const char kCompleteOption[] = "--complete";

Command HelpCommand(const std::string& tool) {
  Command help;
  help.name = "help";
  help.wordsText = "[COMMAND...]";
  help.maxWords = kAnyNumberOfWords;
  help.summary = "describes a command, as COMMAND --help does";
  help.about = "Describes COMMAND, as \"" + tool +
               " COMMAND --help\" does; without one, the tool.\n"
               "With --commands, names every command, one a line.";
  help.options = {{"commands", '\0', "", "every command's name, one a line"}};
  return help;
}

std::vector<OptionSpec> SpecsOf(const Command& command) {
  std::vector<OptionSpec> specs;
  for (const Option& option : command.options) {
    specs.push_back({option.name, !option.valueName.empty(), option.shortName});
  }
  return specs;
}

// The words of `name` after its parent's: "sessions" of "log sessions".
std::string LastWordOf(const std::string& name) {
  const size_t blank = name.rfind(' ');
  return blank == std::string::npos ? name : name.substr(blank + 1);
}

std::string ParentOf(const std::string& name) {
  const size_t blank = name.rfind(' ');
  return blank == std::string::npos ? std::string() : name.substr(0, blank);
}

} // namespace

Tool::Tool(ToolTable table) : table_(std::move(table)) {
  if (Toplevel()) {
    table_.commands.push_back(HelpCommand(table_.name));
    table_.commands.back().run = [this](const CommandLine& line) { return Help(line); };
  } else {
    table_.commands.front().options.push_back({"version", '\0', "", "the tool's version"});
  }
  for (Command& command : table_.commands) {
    command.options.push_back({"help", 'h', "", "this text"});
  }
}

bool Tool::Toplevel() const {
  return !(table_.commands.size() == 1 && table_.commands.front().name.empty());
}

std::vector<const Command*> Tool::ChildrenOf(const std::string& name) const {
  std::vector<const Command*> children;
  for (const Command& command : table_.commands) {
    if (!command.name.empty() && command.name != name && ParentOf(command.name) == name) {
      children.push_back(&command);
    }
  }
  return children;
}

const Command* Tool::Find(const std::vector<std::string>& arguments, size_t& named_by) const {
  if (!Toplevel()) {
    named_by = 0;
    return &table_.commands.front();
  }
  const Command* found = nullptr;
  std::string name;
  for (size_t count = 0; count < arguments.size(); ++count) {
    name += (count ? " " : "") + arguments[count];
    const Command* longer = nullptr;
    for (const Command& command : table_.commands) {
      longer = command.name == name ? &command : longer;
    }
    if (!longer) {
      break;
    }
    found = longer;
    named_by = count + 1;
  }
  return found;
}

int Tool::Mistake(const std::string& message, const Command* context) const {
  const std::string see =
      table_.name + (context && !context->name.empty() ? " " + context->name : "");
  std::fprintf(stderr, "%s: %s (see %s --help)\n", table_.name.c_str(), message.c_str(),
               see.c_str());
  return kToolUsage;
}

int Tool::Main(const std::vector<std::string>& arguments) const {
  if (!arguments.empty() && arguments[0] == kCompleteOption) {
    std::fputs(Complete({arguments.begin() + 1, arguments.end()}).c_str(), stdout);
    return kToolOk;
  }
  if (!Toplevel()) {
    return RunCommand(table_.commands.front(), arguments);
  }
  if (arguments.empty()) {
    std::fputs(ToolHelp().c_str(), stderr);
    return kToolUsage;
  }
  const std::string& first = arguments[0];
  if (first == "--help" || first == "-h") {
    std::fputs(ToolHelp().c_str(), stdout);
    return kToolOk;
  }
  if (first == "--version") {
    std::printf("%s %s\n", table_.name.c_str(), ProjectVersion());
    return kToolOk;
  }
  size_t named_by = 0;
  const Command* command = Find(arguments, named_by);
  if (!command) {
    std::vector<std::string> names;
    for (const Command* known : ChildrenOf("")) {
      names.push_back(known->name);
    }
    return Mistake("unknown command '" + first + "'" + DidYouMean(first, names), nullptr);
  }
  return RunCommand(*command, {arguments.begin() + static_cast<long>(named_by), arguments.end()});
}

int Tool::RunCommand(const Command& command, const std::vector<std::string>& words) const {
  CommandLine line(SpecsOf(command));
  if (!line.Parse(words)) {
    return Mistake(line.error(), &command);
  }
  if (line.Has("help")) {
    std::fputs(CommandHelp(command).c_str(), stdout);
    return kToolOk;
  }
  if (line.Has("version") && !Toplevel()) {
    std::printf("%s %s\n", table_.name.c_str(), ProjectVersion());
    return kToolOk;
  }
  const std::vector<const Command*> children = ChildrenOf(command.name);
  const size_t given = line.words().size();
  if (!command.run || given > command.maxWords) {
    std::vector<std::string> names;
    for (const Command* child : children) {
      names.push_back(LastWordOf(child->name));
    }
    if (given == 0) {
      return Mistake(command.name + " needs one of: " + Joined(names, ", "), &command);
    }
    const std::string& word = line.words()[command.run ? command.maxWords : 0];
    return Mistake("unexpected '" + word + "'" + DidYouMean(word, names), &command);
  }
  if (given < command.minWords) {
    return Mistake(command.name + " takes " + command.wordsText, &command);
  }
  return command.run(line);
}

int Tool::Help(const CommandLine& line) const {
  if (line.Has("commands")) {
    for (const Command& command : table_.commands) {
      std::printf("%s\n", command.name.c_str());
    }
    return kToolOk;
  }
  if (line.words().empty()) {
    std::fputs(ToolHelp().c_str(), stdout);
    return kToolOk;
  }
  size_t named_by = 0;
  const Command* command = Find(line.words(), named_by);
  if (!command || named_by != line.words().size()) {
    const std::string asked = Joined(line.words(), " ");
    return Mistake("no command is named '" + asked + "'", nullptr);
  }
  std::fputs(CommandHelp(*command).c_str(), stdout);
  return kToolOk;
}

} // namespace oru_tools
