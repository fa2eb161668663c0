// oructl COMMAND [ARGUMENTS]: the tool's table of commands, and its run.
#include "tools/common/command_table.h"
#include "tools/oructl/oructl.h"

#include <string>
#include <vector>

namespace {

oru_tools::ToolTable OructlTable() {
  oru_tools::ToolTable table;
  table.name = "oructl";
  table.about = "Shows and drives the machinery of the updater's post-self-update hand-over.";
  table.commands = {oructl::StatusCommand(), oructl::ExplainCommand(), oructl::DoctorCommand()};
  for (oru_tools::Command& command : oructl::PrefsCommands()) {
    table.commands.push_back(std::move(command));
  }
  table.commands.push_back(oructl::UnlockPrefsCommand());
  table.commands.push_back(oructl::LogCommand());
  table.commands.push_back(oructl::LogSessionsCommand());
  table.commands.push_back(oructl::LogWriteCommand());
  table.commands.push_back(oructl::BugReportCommand());
  table.sections = oructl::HelpSections();
  return table;
}

} // namespace

int main(int argc, char** argv) {
  const oru_tools::Tool tool(OructlTable());
  return tool.Main(std::vector<std::string>(argv + 1, argv + argc));
}
