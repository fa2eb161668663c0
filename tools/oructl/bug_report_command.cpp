// oructl bug-report: one archive a user can attach to a support request,
// made of what the other commands show and of the files they read, with
// every secret masked. It only looks: the one file it makes is the archive.
#include "platform/paths.h"
#include "platform/safe_fs.h"
#include "tools/common/tar_gz_writer.h"
#include "tools/oructl/bug_report.h"
#include "tools/oructl/oructl.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>

namespace oructl {

namespace {

std::string DefaultReportName(time_t now) {
  struct tm local = {};
  localtime_r(&now, &local);
  char name[64];
  strftime(name, sizeof name, "oructl-bug-report-%Y%m%d-%H%M%S.tar.gz", &local);
  return name;
}

std::string Manifest(const std::vector<ReportItem>& items, const std::string& since) {
  std::string text = "oructl bug-report " + std::string(oru_tools::ProjectVersion()) +
                     "\nlogs since: " + (since.empty() ? "the start" : since) +
                     "\nsecrets are masked by the logging library's redaction\n\n";
  for (const ReportItem& item : items) {
    text += item.name + "  " + std::to_string(item.bytes.size()) + " bytes  from " + item.from;
    text += item.redacted ? "  (" + std::to_string(item.redacted) + " redacted)" : "";
    text += item.note.empty() ? "\n" : "  [" + item.note + "]\n";
  }
  return text;
}

// Gives every item a name of its own in the archive.
void NameApart(std::vector<ReportItem>& items) {
  std::set<std::string> taken;
  for (ReportItem& item : items) {
    const std::string base = item.name;
    for (int copy = 2; !taken.insert(item.name).second; ++copy) {
      item.name = base + "-" + std::to_string(copy);
    }
  }
}

// Writes the archive; false with the system's reason in `error`.
bool WriteArchive(int fd, const std::vector<ReportItem>& items, const std::string& manifest,
                  int& error) {
  oru_tools::TarGzWriter archive(fd);
  const int64_t now = static_cast<int64_t>(time(nullptr));
  bool written = archive.Add("MANIFEST.txt", manifest, 0644, now);
  for (const ReportItem& item : items) {
    written = written && archive.Add(item.name, item.bytes, 0644, now);
  }
  written = written && archive.Finish() && fsync(fd) == 0;
  error = archive.error() != 0 ? archive.error() : errno;
  return written;
}

void SayWhatWasCollected(const std::string& path, const std::vector<ReportItem>& items) {
  int redacted = 0;
  std::printf("wrote %s\ncollected:\n", path.c_str());
  for (const ReportItem& item : items) {
    std::printf("  %-34s %9zu bytes  %s%s%s\n", item.name.c_str(), item.bytes.size(),
                item.from.c_str(), item.note.empty() ? "" : "  ", item.note.c_str());
    redacted += item.redacted;
  }
  std::printf("redacted: %d secret%s", redacted, redacted == 1 ? "" : "s");
  const char* before = ":";
  for (const ReportItem& item : items) {
    if (item.redacted) {
      std::printf("%s %s (%d)", before, item.name.c_str(), item.redacted);
      before = ",";
    }
  }
  std::printf("\n");
}

int RunBugReport(const oru_tools::CommandLine& line) {
  int64_t since = 0;
  bool has_since = false;
  if (!ReadTimeOption(line, "since", has_since, since)) {
    return kError;
  }
  const std::string path = oru_tools::AbsolutePath(
      line.Has("output") ? line.Value("output") : DefaultReportName(time(nullptr)));
  platform::OpenOptions fresh;
  fresh.access = platform::FileAccess::kWrite;
  fresh.create = fresh.exclusive = true;
  fresh.mode = 0600; // logs and preferences are the user's own
  platform::ScopedFd out;
  if (!platform::OpenFileAt(path, fresh, out)) {
    return Fail("cannot make the report " + path + ": " + std::strerror(errno) +
                (errno == EEXIST ? " (it is never overwritten; name another with -o)" : ""));
  }
  std::vector<ReportItem> items{CollectSystem()};
  for (auto&& part : {CollectLooks(), CollectPrefs(), CollectLogs(has_since, since)}) {
    items.insert(items.end(), part.begin(), part.end());
  }
  NameApart(items);
  int error = 0;
  if (!WriteArchive(out.get(), items, Manifest(items, line.Value("since")), error)) {
    platform::EntryRef made;
    if (platform::ResolveEntry(path, false, made)) {
      (void)platform::RemoveRegularFile(made.folder, made.name);
    }
    return Fail("cannot write the report " + path + ": " + std::strerror(error) +
                "; the part written is removed");
  }
  SayWhatWasCollected(path, items);
  return kOk;
}

} // namespace

oru_tools::Command BugReportCommand() {
  oru_tools::Command command;
  command.name = "bug-report";
  command.summary = "one archive for a support request: looks, logs, preferences";
  command.about = "Writes one .tar.gz archive to attach to a support request: status,\n"
                  "explain, doctor, prefs list and log sessions as JSON; the semaphore sets\n"
                  "and locks; every log of the updater's programs that the preferences name,\n"
                  "rotated copies included (the records since WHEN); the preferences file\n"
                  "with its moved-aside copies and the lock's holder record; the OS, locale,\n"
                  "time zone and package version. Secrets pass through the logging library's\n"
                  "redaction before they enter the archive (a record holding an access token\n"
                  "is replaced whole; credential elements are masked), and MANIFEST.txt in\n"
                  "the archive, like the command's output, lists what was collected, from\n"
                  "where, and what was redacted or cut. A log file gives at most its newest\n"
                  "4 MiB, all logs together 24 MiB. It changes nothing it reads, and makes\n"
                  "the archive (mode 0600) only where no file is.";
  command.options = {
      {"since", '\0', "WHEN", "only log records at or after WHEN (a TIME as log takes)",
       TimeCompleter()},
      {"output", 'o', "FILE",
       "the archive to make (default\noructl-bug-report-YYYYmmdd-HHMMSS.tar.gz here)",
       oru_tools::Completer::Files()}};
  command.details = "Exit status: 0 the archive was written; 2 usage, or it could not be\n"
                    "made or written (a part written is removed).";
  command.run = &RunBugReport;
  return command;
}

} // namespace oructl
