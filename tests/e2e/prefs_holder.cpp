// A running process of the updater that holds the preferences in memory.
// Reads commands on standard input and answers each on standard output:
//   get       -> the value of LogLevel
//   set N     -> sets LogLevel to N, answers "ok" or "failed"
#include "esd/updater_prefs.h"

#include <iostream>
#include <string>

int main() {
  NuvexUpdaterPrefs& prefs = GetUpdaterPrefs(false);
  std::cout << "ready" << std::endl;
  std::string command;
  while (std::cin >> command) {
    if (command == "get") {
      int level = -1;
      prefs.LogLevel.Get(level);
      std::cout << level << std::endl;
    } else if (command == "set") {
      int level = 0;
      std::cin >> level;
      std::cout << (prefs.LogLevel.Set(level) ? "ok" : "failed") << std::endl;
    }
  }
  return 0;
}
