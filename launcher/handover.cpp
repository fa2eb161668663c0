#include "launcher/handover.h"

#include "launcher/updater_log.h"
#include "launcher/user_local_path.h"
#include "launcher/zelto.h"
#include "locks/updater_lock.h"
#include "platform/paths.h"

#include <cstring>
#include <memory>
#include <string>

const char kOruLauncherKey[] = "Oru_Launcher_Utility";
const char kSyncOruLauncherWaitKey[] = "VelUpdater1_Sync_OruLauncherWait";
const char kUpdateInstallerKey[] = "VelUpdater1_Update_Installer";
const char kSyncUInstPostSelfUpdateWaitKey[] =
    "VelUpdater1_Sync_UpdateInstaller_PostSelfUpdateWait";
const char kLauncherWaitsLine[] = "Oru Launcher  : Acquiring kSyncOruLauncherWaitKey Lock.";
const char kLauncherStartsZeltoLine[] = "Oru Launcher : Zelto executable path is ";

namespace {

constexpr int kLauncherLines = 2;

char kAppletId[] = "--appletID=UWA_UI";
char kAppletVersion[] = "--appletVersion=1.0";
char kWorkflow[] = "--workflow=Updater";
char kMode[] = "--mode=PostSelfUpdate";
const char kUserLocalPathOption[] = "--updaterUserLocalPath=";

// strlcpy: copies at most size - 1 bytes and always terminates.
void BoundedCopy(char* destination, const char* source, size_t size) {
  const size_t length = std::min(std::strlen(source), size - 1);
  std::memcpy(destination, source, length);
  destination[length] = '\0';
}

void Log(const std::string& message) {
  UpdaterLogWrite(kLauncherLines, message);
}

bool InstallerRunning() {
  return IsRunning(kUpdateInstallerKey);
}

// Hands control back to an installer that still waits for us.
void HandBack() {
  UpdaterLogStart();
  if (InstallerRunning()) {
    Log("Oru Launcher : Releasing kSyncUInstPostSelfUpdateWaitKey Lock.");
    NuvexUpdaterSyncWaitLockRelease(kSyncUInstPostSelfUpdateWaitKey);
  }
  UpdaterLogClose();
}

} // namespace

char* gZeltoArguments[6] = {kAppletId, kAppletVersion, kWorkflow, kMode, nullptr, nullptr};

void SetUserLocalPathArgument(const char* folder) {
  const std::string text = std::string(kUserLocalPathOption) + folder;
  const size_t length = text.size();
  gZeltoArguments[4] = new char[length + 1];
  BoundedCopy(gZeltoArguments[4], text.c_str(), length + 1);
}

void FreeUserLocalPathArgument() {
  delete[] gZeltoArguments[4];
  gZeltoArguments[4] = nullptr;
}

HandOverPlan PlanHandOver(const HandOverFacts& facts) {
  HandOverPlan plan;
  if (facts.anotherLauncherRuns) {
    plan.outcome = HandOverOutcome::kAlreadyRunning;
    return plan;
  }
  if (!facts.installerRunning) {
    plan.outcome = HandOverOutcome::kInstallerGone;
    return plan;
  }
  if (!facts.zelto) {
    plan.outcome = HandOverOutcome::kNoZelto;
    return plan;
  }
  plan.outcome = HandOverOutcome::kStartZelto;
  plan.argv = {*facts.zelto, kAppletId, kAppletVersion, kWorkflow, kMode};
  if (facts.userLocalPath) {
    plan.handedFolder = platform::DirName(*facts.userLocalPath);
    plan.argv.push_back(kUserLocalPathOption + *plan.handedFolder);
  }
  return plan;
}

namespace {

// The facts after the wait, each looked up only when the ones before have
// not decided yet.
HandOverFacts FactsAfterTheWait() {
  HandOverFacts facts;
  facts.installerRunning = InstallerRunning();
  if (!facts.installerRunning) {
    return facts;
  }
  std::string zelto;
  if (!FindZeltoExecutable(zelto)) {
    return facts;
  }
  facts.zelto = zelto;
  std::string user_local;
  if (GetUserLocalPath(user_local)) {
    facts.userLocalPath = user_local;
  }
  return facts;
}

void StartZelto(const HandOverPlan& plan) {
  if (plan.handedFolder) {
    SetUserLocalPathArgument(plan.handedFolder->c_str());
  }
  platform::Credentials zelto_user;
  const bool as_user = ZeltoUserFor(plan.handedFolder.value_or(""), zelto_user);
  UpdaterLogValue(kLauncherLines, kLauncherStartsZeltoLine, plan.argv[0]);
  UpdaterLogClose();

  const bool launched = LaunchZelto(plan.argv[0], gZeltoArguments, as_user ? &zelto_user : nullptr);
  FreeUserLocalPathArgument();
  if (!launched) {
    HandBack();
  }
}

} // namespace

int RunHandOver() {
  UpdaterLogStart();
  std::unique_ptr<UpdaterLock> single_instance;
  HandOverFacts before_the_wait;
  try {
    single_instance = std::make_unique<UpdaterLock>(kOruLauncherKey);
  } catch (const updater_init_failed& failure) {
    UpdaterLogValue(kLauncherLines, "Oru Launcher : ", failure.what());
    before_the_wait.anotherLauncherRuns = true;
  }
  if (PlanHandOver(before_the_wait).outcome == HandOverOutcome::kAlreadyRunning) {
    Log("Oru Launcher : WARNING - Failed to acquire NuvexUpdaterUtils::kOruLauncherKey lock.");
    HandBack();
    return 0;
  }
  Log("Oru Launcher : Acquired lock NuvexUpdaterUtils::kOruLauncherKey sucessfully.");
  Log(kLauncherWaitsLine);
  // Waits for the installer's post. Other launchers block here with no
  // bound, so an installer that died without posting leaves them waiting
  // for ever; this wait also ends once the installer is gone, since then
  // nobody will post, and the plan below says so in the log.
  NuvexUpdaterSyncWaitLockAcquire(kSyncOruLauncherWaitKey, &InstallerRunning);

  const HandOverPlan plan = PlanHandOver(FactsAfterTheWait());
  switch (plan.outcome) {
  case HandOverOutcome::kAlreadyRunning:
    break; // decided, and acted on, before the wait
  case HandOverOutcome::kInstallerGone:
    Log("Oru Launcher : WARNING - Update Installer is not running . Hence quitting.");
    UpdaterLogClose();
    break;
  case HandOverOutcome::kNoZelto:
    UpdaterLogStart();
    Log("Oru Launcher : WARNING - Unable to get the Zelto executable path.");
    UpdaterLogClose();
    HandBack();
    break;
  case HandOverOutcome::kStartZelto:
    StartZelto(plan);
    break;
  }
  return 0;
}
