#include "tools/common/command_line.h"

#include <algorithm>
#include <cstdlib>
#include <getopt.h>
#include <unistd.h>

namespace oru_tools {

namespace {

// Edits (insertions, deletions, substitutions) from `a` to `b`.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) {
    row[j] = j;
  }
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// A negative number ("-1", "-2h") is a word or a value, never an option:
// it is marked so that getopt passes it on, and unmarked after.
constexpr char kWordMark = '\x01';

std::string Unmarked(const char* text) {
  return text[0] == kWordMark ? std::string(text + 1) : std::string(text);
}

// getopt_long's tables for `options`: long option N reports 256 + N.
void GetoptTables(const std::vector<OptionSpec>& options, std::vector<struct option>& table,
                  std::string& short_options) {
  short_options = "-:h";
  for (size_t index = 0; index < options.size(); ++index) {
    table.push_back({options[index].name.c_str(),
                     options[index].takesValue ? required_argument : no_argument, nullptr,
                     static_cast<int>(256 + index)});
    if (options[index].shortName) {
      short_options += options[index].shortName;
      short_options += options[index].takesValue ? ":" : "";
    }
  }
  table.push_back({nullptr, 0, nullptr, 0});
}

} // namespace

CommandLine::CommandLine(std::vector<OptionSpec> options) : options_(std::move(options)) {
  options_.push_back({"help", false});
}

bool CommandLine::Parse(const std::vector<std::string>& arguments) {
  values_.clear();
  words_.clear();
  error_.clear();
  std::vector<std::string> copies{"tool"};
  for (const std::string& argument : arguments) {
    const bool negative_number =
        argument.size() > 1 && argument[0] == '-' && argument[1] >= '0' && argument[1] <= '9';
    copies.push_back(negative_number ? kWordMark + argument : argument);
  }
  std::vector<char*> argv;
  for (std::string& copy : copies) {
    argv.push_back(copy.data());
  }
  argv.push_back(nullptr);
  std::vector<struct option> table;
  std::string short_options;
  GetoptTables(options_, table, short_options);
  std::vector<std::string> known;
  for (const OptionSpec& option : options_) {
    known.push_back("--" + option.name);
  }
  // '-' hands words over in order (as option 1) and ':' reports a missing
  // value apart from an unknown option; opterr off keeps getopt's own
  // messages out; optind 0 starts afresh. After "--" every word is a word.
  opterr = 0;
  optind = 0;
  int found = 0;
  while ((found = getopt_long(static_cast<int>(argv.size() - 1), argv.data(), short_options.c_str(),
                              table.data(), nullptr)) != -1) {
    const std::string given = argv[std::max(1, optind - 1)];
    if (found == 1) {
      words_.push_back(Unmarked(optarg));
    } else if (found == 'h') {
      values_["help"].push_back("");
    } else if (found == ':') {
      error_ = "option '" + given.substr(0, given.find('=')) + "' needs a value";
      return false;
    } else if (found == '?') {
      const std::string name =
          optopt ? std::string("-") + static_cast<char>(optopt) : given.substr(0, given.find('='));
      error_ = "unknown option '" + name + "'" + DidYouMean(name, known);
      return false;
    } else {
      const OptionSpec* option = nullptr;
      for (const OptionSpec& known_option : options_) {
        option = known_option.shortName == found ? &known_option : option;
      }
      option = found >= 256 ? &options_[static_cast<size_t>(found - 256)] : option;
      values_[option->name].push_back(optarg ? Unmarked(optarg) : "");
    }
  }
  for (int index = optind; index < static_cast<int>(argv.size() - 1); ++index) {
    words_.push_back(Unmarked(argv[index]));
  }
  return true;
}

std::string CommandLine::Value(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::string() : found->second.back();
}

std::vector<std::string> CommandLine::Values(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::vector<std::string>() : found->second;
}

std::string DidYouMean(const std::string& given, const std::vector<std::string>& known) {
  const std::string* best = nullptr;
  size_t best_distance = 0;
  for (const std::string& name : known) {
    const size_t distance = Distance(given, name);
    if (!best || distance < best_distance) {
      best = &name;
      best_distance = distance;
    }
  }
  // A slip is at most a third of the name, and never the whole of it.
  if (!best || best_distance == 0 || best_distance * 3 > best->size()) {
    return "";
  }
  return " (did you mean '" + *best + "'?)";
}

std::string AbsolutePath(const std::string& path) {
  if (path.empty() || path[0] == '/') {
    return path;
  }
  char* here = getcwd(nullptr, 0);
  const std::string absolute = here ? std::string(here) + (here[1] ? "/" : "") + path : path;
  std::free(here);
  return absolute;
}

const char* ProjectVersion() {
  return ORU_PROJECT_VERSION;
}

} // namespace oru_tools
