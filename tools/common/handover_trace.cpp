#include "tools/common/handover_trace.h"

#include "platform/safe_fs.h"
#include "tools/common/command_line.h"

#include <algorithm>
#include <vector>

namespace oru_tools {

namespace {

// Track numbers: the roles, so that a trace reads the same every run; the
// real process ids are in each span's arguments.
constexpr int kInstallerTrack = 1;
constexpr int kLauncherTrack = 2;
constexpr int kZeltoTrack = 3;

Json TrackName(int track, const char* name) {
  return {{"name", "process_name"},
          {"ph", "M"},
          {"pid", track},
          {"tid", track},
          {"args", {{"name", name}}}};
}

struct Span {
  const char* name;
  int track;
  long long from;
  long long to;
  pid_t pid;
};

} // namespace

Json HandOverTrace(const HandOverStamps& stamps, const std::string& scenario,
                   const std::string& outcome) {
  const Span candidates[] = {
      {"installer lock held", kInstallerTrack, stamps.lockTaken, stamps.lockReleased,
       stamps.installerPid},
      {"launcher start to blocked wait", kLauncherTrack, stamps.launcherStarted,
       stamps.launcherBlocked, stamps.launcherPid},
      {"waiting for the installer's post", kLauncherTrack, stamps.launcherBlocked, stamps.waitEnded,
       stamps.launcherPid},
      {"post to launcher exit", kLauncherTrack, stamps.waitEnded, stamps.launcherExited,
       stamps.launcherPid},
      {"Zelto's first instruction", kZeltoTrack, stamps.zeltoStarted, stamps.zeltoStarted, 0},
  };
  std::vector<Span> spans;
  for (const Span& span : candidates) {
    if (span.from > 0 && span.to >= span.from) {
      spans.push_back(span);
    }
  }
  std::stable_sort(spans.begin(), spans.end(),
                   [](const Span& a, const Span& b) { return a.from < b.from; });
  Json events =
      Json::array({TrackName(kInstallerTrack, "installer (oru-installer-sim)"),
                   TrackName(kLauncherTrack, "OruLauncher"), TrackName(kZeltoTrack, "Zelto")});
  for (const Span& span : spans) {
    Json args = Json::object();
    if (span.pid > 0) {
      args["pid"] = span.pid;
    }
    events.push_back({{"name", span.name},
                      {"cat", "handover"},
                      {"ph", "X"},
                      {"ts", static_cast<double>(span.from) / 1000.0},
                      {"dur", static_cast<double>(span.to - span.from) / 1000.0},
                      {"pid", span.track},
                      {"tid", span.track},
                      {"args", args}});
  }
  return {{"traceEvents", events},
          {"displayTimeUnit", "ms"},
          {"otherData", {{"scenario", scenario}, {"outcome", outcome}}}};
}

bool WriteTraceFile(const std::string& path, const Json& trace) {
  const std::string text = JsonText(trace) + "\n";
  platform::OpenOptions fresh;
  fresh.access = platform::FileAccess::kWrite;
  fresh.create = true;
  fresh.truncate = true;
  platform::ScopedFd file;
  return platform::OpenFileAt(AbsolutePath(path), fresh, file) &&
         platform::WriteAll(file.get(), text.data(), text.size());
}

} // namespace oru_tools
