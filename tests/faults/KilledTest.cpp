// The daemon is killed at every system call that changes something; the next one makes up for it.
#include "tests/faults/FaultsTest.h"

namespace {

using KilledDaemon = FaultsTest;

TEST_F(KilledDaemon, LosesNothingWhileItSavesItsState) { killAtEveryCall(stateSave()); }

TEST_F(KilledDaemon, LosesNothingWhileItInstallsTheLaunchAgent) { killAtEveryCall(launchAgent()); }

TEST_F(KilledDaemon, LosesNothingWhileItEnablesAutoLogin) { killAtEveryCall(autoLogin()); }

TEST_F(KilledDaemon, LosesNothingWhileItPreparesTheHome) { killAtEveryCall(homePreparation()); }

TEST_F(KilledDaemon, LosesNothingWhileItAppliesTheBranding) { killAtEveryCall(branding()); }

TEST_F(KilledDaemon, LosesNothingWhileItWithdrawsTheBranding) {
  killAtEveryCall(brandingWithdrawn());
}

}  // namespace
