#include "tools/common/command_table.h"

#include <gtest/gtest.h>

namespace oru_tools {
namespace {

int g_ran = 0;
std::vector<std::string> g_words;

int Record(const CommandLine& line) {
  ++g_ran;
  g_words = line.words();
  return 7;
}

std::vector<std::string> Keys() {
  return {"LogFile", "LogLevel", "DisplayLang"};
}

Command Make(const std::string& name, const std::string& words, size_t min, size_t max,
             std::vector<Option> options, bool runs = true) {
  Command command;
  command.name = name;
  command.wordsText = words;
  command.minWords = min;
  command.maxWords = max;
  command.summary = "summary of " + name;
  command.about = "About " + name + ".";
  command.options = std::move(options);
  command.run = runs ? &Record : nullptr;
  return command;
}

ToolTable Table() {
  Command show = Make("show", "", 0, 0, {{"json", '\0', "", "as JSON"}});
  Command log =
      Make("log", "", 0, 0,
           {{"file", '\0', "PATH", "the log at PATH", Completer::Files()},
            {"lines", 'n', "N", "the last N"},
            {"level", '\0', "NAME", "at least NAME", Completer::Words({"INFO", "WARN"})}});
  log.details = "Exit status: 0.";
  Command write =
      Make("log write", "[MESSAGE...]", 0, kAnyNumberOfWords, {{"tag", '\0', "TEXT", "the tag"}});
  Command prefs = Make("prefs", "", 0, 0, {}, false);
  Command set = Make("prefs set", "KEY VALUE", 2, 2, {});
  set.firstWord = Completer::WordsNow(&Keys);
  return {"tool", "A tool.", {show, log, write, prefs, set}, {{"Files", "~/x  a file"}}};
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(text.substr(start, end - start));
  }
  return lines;
}

TEST(CommandTableTest, TheLongestNameGivenIsTheCommand) {
  const Tool tool(Table());
  size_t named_by = 0;
  const Command* found = tool.Find({"log", "write", "hello"}, named_by);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->name, "log write");
  EXPECT_EQ(named_by, 2u);
  found = tool.Find({"log", "--file", "x"}, named_by);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->name, "log");
  EXPECT_EQ(tool.Find({"nothing"}, named_by), nullptr);
}

TEST(CommandTableTest, ACommandRunsOnItsParsedWords) {
  const Tool tool(Table());
  g_ran = 0;
  EXPECT_EQ(tool.Main({"log", "write", "--tag", "t", "a", "b"}), 7);
  EXPECT_EQ(g_ran, 1);
  EXPECT_EQ(g_words, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(tool.Main({"prefs", "set", "LogLevel", "-1"}), 7);
  EXPECT_EQ(g_words, (std::vector<std::string>{"LogLevel", "-1"}));
}

TEST(CommandTableTest, WrongWordsAreUsageMistakesThatRunNothing) {
  const Tool tool(Table());
  g_ran = 0;
  EXPECT_EQ(tool.Main({"log", "sesions"}), kToolUsage);
  EXPECT_EQ(tool.Main({"prefs", "set", "LogLevel"}), kToolUsage);
  EXPECT_EQ(tool.Main({"prefs", "set", "LogLevel", "1", "2"}), kToolUsage);
  EXPECT_EQ(tool.Main({"prefs"}), kToolUsage);
  EXPECT_EQ(tool.Main({"shwo"}), kToolUsage);
  EXPECT_EQ(tool.Main({"log", "--bogus"}), kToolUsage);
  EXPECT_EQ(tool.Main({}), kToolUsage);
  EXPECT_EQ(g_ran, 0);
}

TEST(CommandTableTest, HelpListsEveryOptionOfTheCommandAndItsSubcommands) {
  const Tool tool(Table());
  size_t named_by = 0;
  const std::string help = tool.CommandHelp(*tool.Find({"log"}, named_by));
  const std::vector<std::string> lines = Lines(help);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], "Usage: tool log [--file PATH] [-n N] [--level NAME]");
  EXPECT_EQ(lines[1], "       tool log write [--tag TEXT] [MESSAGE...]");
  for (const char* shown : {"  --file PATH", "  -n, --lines N", "  --level NAME", "  -h, --help",
                            "  write ", "Exit status: 0."}) {
    EXPECT_NE(help.find(shown), std::string::npos) << shown << "\n" << help;
  }
  EXPECT_EQ(help.find("Files:"), std::string::npos) << "the tool's sections are the tool's";
}

TEST(CommandTableTest, TheToolsHelpListsEveryCommandAndItsSections) {
  const Tool tool(Table());
  const std::string help = tool.ToolHelp();
  for (const char* shown : {"Usage: tool COMMAND", "  show ", "  log write ", "  prefs set ",
                            "  help ", "--version", "Files:\n  ~/x  a file\n"}) {
    EXPECT_NE(help.find(shown), std::string::npos) << shown << "\n" << help;
  }
}

TEST(CommandTableTest, ALongSynopsisWrapsUnderItsFirstWord) {
  Command wide = Make("", "", 0, 0, {});
  for (char name = 'a'; name <= 'p'; ++name) {
    wide.options.push_back({std::string("option-") + name, '\0', "VALUE", "text"});
  }
  const Tool tool({"tool", "", {wide}, {}});
  const std::vector<std::string> lines = Lines(tool.CommandHelp(tool.table().commands[0]));
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(lines[1].rfind(std::string(12, ' ') + "[--option-", 0), 0u) << lines[1];
  for (size_t index = 0; lines[index].size(); ++index) {
    EXPECT_LE(lines[index].size(), 79u) << lines[index];
  }
}

TEST(CommandTableTest, CompletionOffersCommandsThenOptionsWordsAndValues) {
  const Tool tool(Table());
  EXPECT_EQ(tool.Complete({"l"}), "words\nlog\n");
  EXPECT_EQ(tool.Complete({"log", ""}), "words\n--file\n--lines\n--level\n--help\nwrite\n");
  EXPECT_EQ(tool.Complete({"log", "--level", ""}), "words\nINFO\nWARN\n");
  EXPECT_EQ(tool.Complete({"log", "-n", ""}), "words\n");
  EXPECT_EQ(tool.Complete({"log", "--file", "x"}), "files\n");
  EXPECT_EQ(tool.Complete({"log", "write", "--"}), "words\n--tag\n--help\n");
  EXPECT_EQ(tool.Complete({"prefs", ""}), "words\n--help\nset\n");
  EXPECT_EQ(tool.Complete({"prefs", "set", "Log"}), "words\nLogFile\nLogLevel\n");
  EXPECT_EQ(tool.Complete({"prefs", "set", "LogFile", "Log"}), "words\n");
  EXPECT_EQ(tool.Complete({"help", "pr"}), "words\nprefs\n");
}

TEST(CommandTableTest, ACommandlessToolIsItsOwnCommandWithVersion) {
  Command only = Make("", "", 0, 0, {{"scenario", '\0', "NAME", "which"}});
  const Tool tool({"sim", "", {only}, {{"Exit status", "0 fine"}}});
  g_ran = 0;
  EXPECT_EQ(tool.Main({"--scenario", "x"}), 7);
  EXPECT_EQ(g_ran, 1);
  EXPECT_EQ(tool.Main({"--version"}), kToolOk);
  EXPECT_EQ(g_ran, 1);
  const std::string help = tool.ToolHelp();
  EXPECT_EQ(help.rfind("Usage: sim [--scenario NAME]\n", 0), 0u) << help;
  EXPECT_NE(help.find("Exit status:\n  0 fine\n"), std::string::npos) << help;
  EXPECT_EQ(tool.Complete({"--s"}), "words\n--scenario\n");
}

} // namespace
} // namespace oru_tools
