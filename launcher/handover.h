// The post-self-update hand-over: the launcher's whole run.
#ifndef ORU_LAUNCHER_HANDOVER_H
#define ORU_LAUNCHER_HANDOVER_H

#include <optional>
#include <string>
#include <vector>

// The names of the rendezvous with the installer.
extern const char kOruLauncherKey[];                 // "Oru_Launcher_Utility"
extern const char kSyncOruLauncherWaitKey[];         // "VelUpdater1_Sync_OruLauncherWait"
extern const char kUpdateInstallerKey[];             // "VelUpdater1_Update_Installer"
extern const char kSyncUInstPostSelfUpdateWaitKey[]; // "...UpdateInstaller_PostSelfUpdateWait"

// The log line written just before the launcher waits for the installer's
// post, and the start of the one written just before it starts Zelto.
extern const char kLauncherWaitsLine[];
extern const char kLauncherStartsZeltoLine[];

// The arguments Zelto is started with: four fixed ones, the user-local path
// in slot 4 when known, and the terminating null in slot 5.
extern char* gZeltoArguments[6];

// Builds slot 4 ("--updaterUserLocalPath=" + folder) into a buffer of its
// own; FreeUserLocalPathArgument releases it again.
void SetUserLocalPathArgument(const char* folder);
void FreeUserLocalPathArgument();

// What the launcher has found out when it decides. A fact it did not need
// to look up (because an earlier one decided) stays at its default.
struct HandOverFacts {
  bool anotherLauncherRuns = false;         // the single-instance lock was not had
  bool installerRunning = false;            // after the wait for the installer's post
  std::optional<std::string> zelto;         // Zelto's executable, when its folder is found
  std::optional<std::string> userLocalPath; // the user's updater folder, when known
};

enum class HandOverOutcome {
  kAlreadyRunning, // hand back to the installer and quit
  kInstallerGone,  // nobody to hand back to: quit
  kNoZelto,        // hand back to the installer and quit
  kStartZelto,     // start Zelto with `argv`; hand back if that fails
};

struct HandOverPlan {
  HandOverOutcome outcome = HandOverOutcome::kInstallerGone;
  // For kStartZelto: Zelto's path, then its arguments exactly as passed.
  std::vector<std::string> argv;
  // The folder handed to Zelto in its last argument, when there is one.
  std::optional<std::string> handedFolder;
};

// The launcher's decision, for the launcher itself and for tools that say
// what it would do.
HandOverPlan PlanHandOver(const HandOverFacts& facts);

// Single instance, wait for the installer, start Zelto, or hand back to the
// installer. Returns 0 on every handled path.
int RunHandOver();

#endif // ORU_LAUNCHER_HANDOVER_H
