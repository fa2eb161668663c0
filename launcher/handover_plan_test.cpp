#include "launcher/handover.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

HandOverFacts ReadyToStart() {
  HandOverFacts facts;
  facts.installerRunning = true;
  facts.zelto = "/apps/Zelto";
  facts.userLocalPath = "/home/u/.local/share/Nuvex/OruUpdater/1.0";
  return facts;
}

TEST(HandOverPlanTest, AnotherLauncherDecidesBeforeEverythingElse) {
  HandOverFacts facts = ReadyToStart();
  facts.anotherLauncherRuns = true;
  const HandOverPlan plan = PlanHandOver(facts);
  EXPECT_EQ(plan.outcome, HandOverOutcome::kAlreadyRunning);
  EXPECT_TRUE(plan.argv.empty());
}

TEST(HandOverPlanTest, AGoneInstallerDecidesBeforeZelto) {
  HandOverFacts facts = ReadyToStart();
  facts.installerRunning = false;
  EXPECT_EQ(PlanHandOver(facts).outcome, HandOverOutcome::kInstallerGone);
}

TEST(HandOverPlanTest, NoZeltoFolderHandsBack) {
  HandOverFacts facts = ReadyToStart();
  facts.zelto.reset();
  EXPECT_EQ(PlanHandOver(facts).outcome, HandOverOutcome::kNoZelto);
}

TEST(HandOverPlanTest, ZeltoGetsTheFourWorkflowArgumentsAndTheFolderAboveTheUpdaterFolder) {
  const HandOverPlan plan = PlanHandOver(ReadyToStart());
  EXPECT_EQ(plan.outcome, HandOverOutcome::kStartZelto);
  EXPECT_EQ(plan.argv, (std::vector<std::string>{
                           "/apps/Zelto", "--appletID=UWA_UI", "--appletVersion=1.0",
                           "--workflow=Updater", "--mode=PostSelfUpdate",
                           "--updaterUserLocalPath=/home/u/.local/share/Nuvex/OruUpdater"}));
  EXPECT_EQ(plan.handedFolder, "/home/u/.local/share/Nuvex/OruUpdater");
}

TEST(HandOverPlanTest, WithoutAUserFolderZeltoGetsOnlyTheWorkflowArguments) {
  HandOverFacts facts = ReadyToStart();
  facts.userLocalPath.reset();
  const HandOverPlan plan = PlanHandOver(facts);
  EXPECT_EQ(plan.argv.size(), 5u);
  EXPECT_FALSE(plan.handedFolder.has_value());
}

TEST(HandOverPlanTest, ThePlannedArgumentsAreTheOnesTheLauncherPasses) {
  const HandOverPlan plan = PlanHandOver(ReadyToStart());
  SetUserLocalPathArgument(plan.handedFolder->c_str());
  std::vector<std::string> passed{plan.argv[0]};
  for (char* const* argument = gZeltoArguments; *argument; ++argument) {
    passed.push_back(*argument);
  }
  FreeUserLocalPathArgument();
  EXPECT_EQ(passed, plan.argv);
}

} // namespace
