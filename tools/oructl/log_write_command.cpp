// oructl log write: appends records to the shared log through the logging
// library, as logger(1) does for syslog, so that scripts of the updater log
// where the launcher logs, under the same lock and rotation.
#include "oobe/levels.h"
#include "oobe/log_manager.h"
#include "oobe/log_target.h"
#include "platform/paths.h"
#include "platform/safe_fs.h"
#include "tools/oructl/ipc_state.h"
#include "tools/oructl/oructl.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>

namespace oructl {

namespace {

const char kTargetName[] = "ORUCTL-WRITE";

// The log target of this command, registered while it lives.
class WriteTarget {
public:
  explicit WriteTarget(int32_t level) : target_(kTargetName) {
    target_.SetLevel(level);
    target_.SetSaysUnwrittenRecords(false); // the command says it, with the count
  }
  ~WriteTarget() {
    if (registered_) {
      oobe::LogManager::Instance().RemoveTarget(kTargetName, &target_);
    }
  }

  // False with the system's reason when the log cannot be opened.
  bool Open(const std::string& path, int& error) {
    const std::string folder = platform::DirName(path);
    if (!target_.SetLogFile(platform::BaseName(path).c_str(), folder.c_str())) {
      error = errno != 0 ? errno : EINVAL;
      return false;
    }
    registered_ = oobe::LogManager::Instance().AddTarget(&target_);
    error = registered_ ? 0 : EEXIST;
    return registered_;
  }

  // Exit status once every record was handed on: an error, said in one line
  // with the file and the cause, when any record was not written.
  int Finish(uint64_t records) const {
    const uint64_t unwritten = target_.UnwrittenRecords();
    if (unwritten == 0) {
      return kOk;
    }
    return Fail(std::to_string(unwritten) + " of " + std::to_string(records) +
                " records could not be written to the log " + target_.GetFilePath() + ": " +
                std::strerror(target_.LastWriteError()));
  }

private:
  oobe::LogTargetDefault target_;
  bool registered_ = false;
};

// Why the log at `path` could not be opened: the system's reason, except
// that what the safe open refuses (a link, or no regular file) is named.
std::string WhyNotOpened(const std::string& path, int error) {
  platform::EntryRef entry;
  struct stat info;
  if ((error == EINVAL || error == ELOOP) &&
      platform::ResolveEntry(path, /*follow_final_link=*/false, entry) &&
      platform::StatEntry(entry.folder, entry.name, info) && !S_ISREG(info.st_mode)) {
    return S_ISLNK(info.st_mode) ? "it is a symbolic link, which the log never follows"
                                 : "it is not a regular file";
  }
  return std::strerror(error);
}

void Write(int32_t level, const std::string& tag, const std::string& message) {
  oobe::LogManager::Instance().Write(kTargetName, level, "", tag.c_str(), "", "", "", "",
                                     message.c_str(), 0);
}

int RunLogWrite(const oru_tools::CommandLine& line) {
  const std::string level_name = line.Has("level") ? line.Value("level") : "INFO";
  const int32_t level = oobe::LevelOfName(level_name);
  if (level < oobe::kLevelTrace || level > oobe::kLevelFatal) {
    return Fail("--level takes TRACE, DEBUG, INFO, WARN, ERROR or FATAL, not '" + level_name + "'");
  }
  const std::string tag = line.Has("tag") ? line.Value("tag") : "oructl";
  const std::string file =
      oru_tools::AbsolutePath(line.Has("file") ? line.Value("file") : UpdaterLogPath());
  if (file.empty()) {
    return Fail("no log file is configured");
  }
  WriteTarget target(level);
  int error = 0;
  errno = 0;
  if (!target.Open(file, error)) {
    return Fail("cannot open the log " + file + ": " + WhyNotOpened(file, error));
  }
  if (!line.words().empty()) {
    std::string message;
    for (const std::string& word : line.words()) {
      message += (message.empty() ? "" : " ") + word;
    }
    Write(level, tag, message);
    return target.Finish(1);
  }
  char* text = nullptr;
  size_t capacity = 0;
  ssize_t length = 0;
  uint64_t records = 0;
  while ((length = getline(&text, &capacity, stdin)) >= 0) {
    const size_t kept = length > 0 && text[length - 1] == '\n' ? length - 1 : length;
    Write(level, tag, std::string(text, kept));
    ++records;
  }
  std::free(text);
  return target.Finish(records);
}

} // namespace

oru_tools::Command LogWriteCommand() {
  oru_tools::Command command;
  command.name = "log write";
  command.wordsText = "[MESSAGE...]";
  command.maxWords = oru_tools::kAnyNumberOfWords;
  command.summary = "appends records to the log, as logger(1) does";
  command.about = "Appends records to the updater log (the preference LogFile, or PATH)\n"
                  "through the logging library, under the log's cross-process lock and with\n"
                  "its rotation: the MESSAGE words, joined by blanks, as one record, or\n"
                  "without them one record per line of standard input.";
  command.options = {
      FileOption(),
      {"level", '\0', "NAME",
       "the records' level: TRACE DEBUG INFO WARN ERROR FATAL\n(default INFO)",
       oru_tools::Completer::Words({"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"})},
      {"tag", '\0', "TEXT",
       "the records' second field, which names the program that\n"
       "wrote them (default \"oructl\"; the launcher's is\n"
       "\"UPDATER\", and only those records make launcher runs)"}};
  command.details = "Exit status: 0 every record written; 2 usage, a log that cannot be\n"
                    "opened, or a record that could not be written (each such record is\n"
                    "absent from the log, never cut short).";
  command.run = &RunLogWrite;
  return command;
}

} // namespace oructl
