// Shell completion read from the table: the shell hands over the words
// typed so far and prints back what this says.
#include "tools/common/command_table.h"

namespace oru_tools {

namespace {

const char kWords[] = "words\n";
const char kFiles[] = "files\n";

bool StartsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

const Option* OptionNamed(const Command& command, const std::string& given) {
  for (const Option& option : command.options) {
    if (given == "--" + option.name ||
        (option.shortName && given == std::string("-") + option.shortName)) {
      return &option;
    }
  }
  return nullptr;
}

std::string Offered(const std::vector<std::string>& candidates, const std::string& typed) {
  std::string out = kWords;
  for (const std::string& candidate : candidates) {
    if (StartsWith(candidate, typed)) {
      out += candidate + "\n";
    }
  }
  return out;
}

std::string Values(const Completer& completer, const std::string& typed) {
  if (completer.kind == Completer::Kind::kFiles) {
    return kFiles;
  }
  std::vector<std::string> words = completer.words;
  if (completer.wordsNow) {
    words = completer.wordsNow();
  }
  return Offered(words, typed);
}

// The words given to `command` so far (options and their values left out),
// and whether the last of `given` is an option that waits for its value.
size_t WordsGiven(const Command& command, const std::vector<std::string>& given,
                  const Option*& awaiting) {
  size_t words = 0;
  awaiting = nullptr;
  bool only_words = false;
  for (const std::string& argument : given) {
    if (awaiting) {
      awaiting = nullptr;
    } else if (!only_words && argument == "--") {
      only_words = true;
    } else if (!only_words && argument.size() > 1 && argument[0] == '-') {
      const Option* option = OptionNamed(command, argument);
      awaiting = option && !option->valueName.empty() ? option : nullptr;
    } else {
      ++words;
    }
  }
  return words;
}

} // namespace

std::string Tool::Complete(const std::vector<std::string>& words) const {
  const std::string typed = words.empty() ? std::string() : words.back();
  const std::vector<std::string> before(words.begin(), words.end() - (words.empty() ? 0 : 1));
  size_t named_by = 0;
  const Command* command = Find(before, named_by);
  if (!command) {
    if (!before.empty()) {
      return kWords;
    }
    std::vector<std::string> candidates{"--help", "--version"};
    for (const Command* top : ChildrenOf("")) {
      candidates.push_back(top->name);
    }
    return Offered(candidates, typed);
  }
  const Option* awaiting = nullptr;
  const size_t given =
      WordsGiven(*command, {before.begin() + static_cast<long>(named_by), before.end()}, awaiting);
  if (awaiting) {
    return Values(awaiting->values, typed);
  }
  std::vector<std::string> candidates;
  for (const Option& option : command->options) {
    candidates.push_back("--" + option.name);
  }
  if (StartsWith(typed, "-")) {
    return Offered(candidates, typed);
  }
  if (given == 0) {
    for (const Command* child : ChildrenOf(command->name)) {
      candidates.push_back(child->name.substr(command->name.size() + 1));
    }
  }
  if (command->name == "help") {
    for (const Command* top : ChildrenOf("")) {
      candidates.push_back(top->name);
    }
  }
  if (command->run && given == 0 && command->maxWords > 0) {
    const std::string values = Values(command->firstWord, typed);
    if (values == kFiles) {
      return values;
    }
    return Offered(candidates, typed) + values.substr(sizeof(kWords) - 1);
  }
  return Offered(candidates, typed);
}

} // namespace oru_tools
