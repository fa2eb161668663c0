// The post-self-update hand-over: the launcher's whole run.
#ifndef ORU_LAUNCHER_HANDOVER_H
#define ORU_LAUNCHER_HANDOVER_H

// The names of the rendezvous with the installer.
extern const char kOruLauncherKey[];                 // "Oru_Launcher_Utility"
extern const char kSyncOruLauncherWaitKey[];         // "VelUpdater1_Sync_OruLauncherWait"
extern const char kUpdateInstallerKey[];             // "VelUpdater1_Update_Installer"
extern const char kSyncUInstPostSelfUpdateWaitKey[]; // "...UpdateInstaller_PostSelfUpdateWait"

// The arguments Zelto is started with: four fixed ones, the user-local path
// in slot 4 when known, and the terminating null in slot 5.
extern char* gZeltoArguments[6];

// Builds slot 4 ("--updaterUserLocalPath=" + folder) into a buffer of its
// own; FreeUserLocalPathArgument releases it again.
void SetUserLocalPathArgument(const char* folder);
void FreeUserLocalPathArgument();

// Steps 1-14: single instance, wait for the installer, start Zelto, or hand
// back to the installer. Returns 0 on every handled path.
int RunHandOver();

#endif // ORU_LAUNCHER_HANDOVER_H
