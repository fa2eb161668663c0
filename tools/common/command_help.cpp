// The --help texts of a tool and of its commands, laid out from its table.
#include "tools/common/command_table.h"
#include "tools/common/help_text.h"

namespace oru_tools {

namespace {

std::string SynopsisPart(const Option& option) {
  const std::string name =
      option.shortName ? std::string("-") + option.shortName : "--" + option.name;
  return "[" + name + (option.valueName.empty() ? "" : " " + option.valueName) + "]";
}

std::string OptionLabel(const Option& option) {
  std::string label = option.shortName ? std::string("-") + option.shortName + ", " : "";
  label += "--" + option.name;
  return label + (option.valueName.empty() ? "" : " " + option.valueName);
}

std::string Paragraphs(const std::string& text) {
  return text.empty() ? "" : "\n" + text + (text.back() == '\n' ? "" : "\n");
}

std::string Titled(const std::string& title, const std::string& body) {
  return "\n" + title + ":\n" + body;
}

std::string SectionsOf(const ToolTable& table) {
  std::string out;
  for (const HelpSection& section : table.sections) {
    out += Titled(section.title, Indented(section.text));
  }
  return out;
}

} // namespace

std::string Tool::UsageLines(const Command& command) const {
  std::vector<const Command*> shown;
  if (command.run || command.name.empty()) {
    shown.push_back(&command);
  }
  for (const Command* child : ChildrenOf(command.name)) {
    shown.push_back(child);
  }
  std::string out;
  for (const Command* each : shown) {
    std::vector<std::string> parts;
    for (const Option& option : each->options) {
      if (option.name != "help" && option.name != "version") {
        parts.push_back(SynopsisPart(option));
      }
    }
    if (!each->wordsText.empty()) {
      parts.push_back(each->wordsText);
    }
    const std::string named = table_.name + (each->name.empty() ? "" : " " + each->name);
    out += WrappedSynopsis((out.empty() ? "Usage: " : "       ") + named, parts);
  }
  return out;
}

std::string Tool::CommandHelp(const Command& command) const {
  std::string out = UsageLines(command) + Paragraphs(command.about);
  std::vector<std::pair<std::string, std::string>> rows;
  for (const Option& option : command.options) {
    rows.emplace_back(OptionLabel(option), option.help);
  }
  out += Titled("Options", TwoColumns(rows));
  rows.clear();
  for (const Command* child : ChildrenOf(command.name)) {
    rows.emplace_back(child->name.substr(command.name.size() + 1), child->summary);
  }
  if (!rows.empty()) {
    out += Titled("Commands", TwoColumns(rows));
  }
  out += Paragraphs(command.details);
  return Toplevel() ? out : out + SectionsOf(table_);
}

std::string Tool::ToolHelp() const {
  if (!Toplevel()) {
    return CommandHelp(table_.commands.front());
  }
  std::string out = "Usage: " + table_.name + " COMMAND [ARGUMENTS]\n" + Paragraphs(table_.about);
  std::vector<std::pair<std::string, std::string>> rows;
  for (const Command& command : table_.commands) {
    rows.emplace_back(command.name, command.summary);
  }
  out += Titled("Commands", TwoColumns(rows));
  out += Titled("Options",
                TwoColumns({{"-h, --help", "this text"}, {"--version", "the tool's version"}}));
  out += "\n\"" + table_.name + " help COMMAND\" or \"" + table_.name +
         " COMMAND --help\" describes a command.\n";
  return out + SectionsOf(table_);
}

} // namespace oru_tools
