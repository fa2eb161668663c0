// The updater log: one process-wide log target named "UPDATER", configured
// from the updater preferences, and the one-line calls that every part of
// the launcher writes through.
//
// Levels here are the callers' own (1 banners and version, 2 launcher lines,
// 3 lock lines); a fixed table maps them to the logging library's levels.
#ifndef ORU_LAUNCHER_UPDATER_LOG_H
#define ORU_LAUNCHER_UPDATER_LOG_H

#include <cstdint>
#include <string>

// The banners that open and close each run's records in the log. The end
// banner's record carries two line breaks after it.
extern const char kUpdaterLogBeginBanner[]; // ">>> Nuvex Updater Log Begin >>>"
extern const char kUpdaterLogEndBanner[];   // "<<< Nuvex Updater Log End <<<"

// The line a run writes when the preferences lock could not be had, before
// the preferences file's path.
extern const char kPrefsLockRefusedLine[];

// The name of the log target, which is also the second field of every
// record the updater log writes ("UPDATER").
extern const char kUpdaterLogName[];

// The library level of a facade level: 1-10 from the table, 30 otherwise.
int32_t UpdaterLogLibraryLevel(int level);

// Reads "LogFile" and "LogLevel" from the preferences (writing defaults
// back when they are missing) and opens the log unless the level is 0 or
// less. Always true. May be called again while a log is open.
bool UpdaterLogStart();

// The log file and level a run uses, from what the preferences hold
// (`stored_level` -1 when missing): the stored file unless it is empty or
// refused (see LogFileRefusal), and then what `default_file` gives (asked
// only then); the stored level, or 2. `looking_only` checks the stored file
// without making any folder.
struct UpdaterLogChoice {
  std::string file;
  int level = 2;
  bool fileIsDefault = false;
  bool levelIsDefault = false;
  std::string refusal; // the log line that says why the stored file was refused
};
UpdaterLogChoice ChooseUpdaterLog(const std::string& stored_file, int stored_level,
                                  std::string (*default_file)(), bool looking_only);

// Opens a new "UPDATER" target; true only when `path` gave it a folder and
// a file name. A target open before stays registered beside the new one.
bool UpdaterLogOpen(const std::string& path, int level, const std::string& field1,
                    const std::string& field2, const std::string& field3);

// Writes the end banner and dismantles the target; nothing without a log.
void UpdaterLogClose();

// The gate of every line: written only while a log is open and `level` is
// within the configured level.
void UpdaterLogWrite(int level, const std::string& message);
void UpdaterLogMessage(int level, const std::string& message);
// message + " = " + value.
void UpdaterLogValue(int level, const std::string& message, const std::string& value);
// "%0 = %1" with the message and the integer.
void UpdaterLogInt(int level, const std::string& message, int value);
// message immediately followed by value ("<NULL>" for null).
void UpdaterLogText(int level, const std::string& message, const char* value);

// The default log file: the user-local updater folder + "oruu.log", or empty.
std::string UpdaterDefaultLogFile();
// The same in a given user-local updater folder (empty: none).
std::string UpdaterDefaultLogFileIn(const std::string& folder);

#endif // ORU_LAUNCHER_UPDATER_LOG_H
