// Every system call on the way fails once, in every plausible way.
#include "tests/faults/FaultsTest.h"

namespace {

using FailingCalls = FaultsTest;

TEST_F(FailingCalls, LeaveTheStateFileOldOrNew) { failEveryCall(stateSave()); }

TEST_F(FailingCalls, LeaveTheLaunchAgentOldOrNew) { failEveryCall(launchAgent()); }

TEST_F(FailingCalls, LeaveTheAutoLoginOldOrNew) { failEveryCall(autoLogin()); }

TEST_F(FailingCalls, LeaveTheHomePreparedOrNot) { failEveryCall(homePreparation()); }

TEST_F(FailingCalls, LeaveTheBrandingOldOrNew) { failEveryCall(branding()); }

TEST_F(FailingCalls, LeaveTheBrandingThereOrGone) { failEveryCall(brandingWithdrawn()); }

}  // namespace
