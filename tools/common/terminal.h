// What the tools do differently on a terminal: colour (unless NO_COLOR is
// set to anything) and a pager for long output, as journalctl and git do.
#ifndef ORU_TOOLS_COMMON_TERMINAL_H
#define ORU_TOOLS_COMMON_TERMINAL_H

#include <string>
#include <sys/types.h>

namespace oru_tools {

// Standard output is a terminal that is not "dumb", and NO_COLOR is unset
// or empty.
bool ColourWanted();

// The escape sequence that colours a record of a log level ("" for none),
// and the one that ends it.
const char* LevelColour(const std::string& level_name);
extern const char kColourEnd[];

// Sends standard output through $PAGER (when unset: "less", with LESS=FRX
// when LESS is unset) while it lives, when standard output is a terminal.
// An empty PAGER or "cat" means no pager. A PAGER of plain words is run
// without a shell; one the shell must read runs through /bin/sh. A pager
// whose program is not there, or that cannot be started, leaves standard
// output as it was: the output stays on the terminal.
class Pager {
public:
  Pager() = default;
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;
  // Waits for the pager to end, so that the shell's prompt comes after it.
  ~Pager();

  void Start();

private:
  pid_t pager_ = -1;
};

} // namespace oru_tools

#endif // ORU_TOOLS_COMMON_TERMINAL_H
