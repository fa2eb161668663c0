// The sections of oructl's --help that concern the tool as a whole; the
// manual page makes each a section of its own.
#include "tools/oructl/oructl.h"

namespace oructl {

std::vector<oru_tools::HelpSection> HelpSections() {
  return {
      {"Files", "$XDG_DATA_HOME/Nuvex/OruUpdater/1.0/NuvexUpdaterPrefs.dat\n"
                "    the updater preferences (XDG_DATA_HOME is ~/.local/share when unset)\n"
                "NuvexUpdaterPrefs.dat.holder\n"
                "    beside it: who holds the preferences lock\n"
                "NuvexUpdaterPrefs.dat.corrupt-YYYYmmdd-HHMMSS\n"
                "    beside it: a file that did not parse, moved aside (the newest three)\n"
                "oruu.log\n"
                "    beside it, unless the preference LogFile names another: the updater\n"
                "    log; its rotated copies are \"oruu YYYY-mm-dd HH-MM-SS.log\""},
      {"Environment", "PAGER      the pager of log and prefs list on a terminal (default less)\n"
                      "LESS       given to the pager; FRX when unset\n"
                      "NO_COLOR   when set, records are not coloured by level\n"
                      "TERM       \"dumb\" turns colour off\n"
                      "TZ         the time zone a log's local times are read in (--json, merging)\n"
                      "HOME, XDG_DATA_HOME, XDG_CONFIG_HOME, XDG_CACHE_HOME, XDG_STATE_HOME\n"
                      "           where the user's folders are, as the updater finds them"},
      {"Examples", "$ oructl status\n"
                   "$ oructl log -n 50 --level WARN\n"
                   "$ oructl log -f\n"
                   "$ oructl log --since -2h --json\n"
                   "$ oructl log --all -n 100\n"
                   "$ oructl log sessions --timeline\n"
                   "$ oructl prefs set LogLevel 3\n"
                   "$ oructl doctor"},
      {"Exit status", "0 ok; 1 a negative answer (such as faults found); 2 usage or error.\n"
                      "Each command's --help says what its answers mean."},
  };
}

} // namespace oructl
