// The real daemon in a booted Mac, provisioning while the kiosk's user plays.
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "tests/hostile/KioskPlayer.h"
#include "tests/hostile/TreeDigest.h"
#include "tests/system/EnrolledTest.h"

namespace {

constexpr int kDefaultRounds = 5;
// The game goes on until it disturbed something, but not for ever.
constexpr int kMostTimesTheRounds = 20;
constexpr int kChecksInARound = 4;

/// How many daemons provision the Mac during the game.
int Rounds() {
  const char* given = std::getenv("KIOSKD_PLAYED_STARTS");
  return given == nullptr ? kDefaultRounds : std::atoi(given);
}

int MostRounds() { return Rounds() * kMostTimesTheRounds; }

class MachinePlay : public EnrolledTest {
 protected:
  MachinePlay() { mac.write(std::string(kRootsFolder) + "/file", "precious"); }

  /// Has the next daemon find the Mac not provisioned, and waits until it has seen to it.
  void startUnprovisioned() const {
    Json state = mac.state();
    state["provisioned"] = false;
    state.erase("lastError");
    mac.writeState(state);
    replaceDaemon();
    ASSERT_TRUE(Eventually([&] { return check().contains("ok"); }));
  }

  /// Provisions the Mac if need be.
  Json check() const { return ask({{"cmd", "pair.check"}, {"code", "ABCD2345"}}); }

  /// A daemon and a few checks while somebody plays.
  void playARound() const {
    startUnprovisioned();
    for (int i = 0; i < kChecksInARound; ++i) {
      const Json reply = check();
      EXPECT_TRUE(reply.value("ok", false) || reply.value("error", "") == "home_failed") << reply;
      EXPECT_EQ(ask({{"cmd", "status"}})["ok"], true);
    }
  }

  /// Whether a provisioning was in vain so far.
  bool wasDisturbed() const { return mac.countErrors("provisioning refused: home_failed") > 0; }

  uid_t kioskUid() const { return mac.info("/Users/BrindlexKiosk").st_uid; }
};

TEST_F(MachinePlay, LeavesTheMacAsItIsAndTheDaemonAtWork) {
  startUnprovisioned();
  const TreeDigest before = DigestTree(mac.root(), PlacesOfPlay());
  ASSERT_TRUE(before.contains(std::string(kRootsFolder) + "/file"));
  ASSERT_FALSE(wasDisturbed());
  KioskPlayer player(mac.root(), kioskUid(), 20, daemonPid());
  for (int round = 0; round < Rounds() || (!wasDisturbed() && round < MostRounds()); ++round) {
    playARound();
  }
  EXPECT_TRUE(wasDisturbed()) << "the player never met the daemon";
  const pid_t daemon = daemonPid();
  EXPECT_GT(player.stop().value_or(0), 0U);
  EXPECT_EQ(check().value("provisioned", false), true) << mac.state();
  EXPECT_EQ(daemonPid(), daemon) << "it did not crash";
  EXPECT_EQ(DifferenceOf(before, DigestTree(mac.root(), PlacesOfPlay())), "");
  EXPECT_TRUE(mac.list(kDecoy).empty());
}

}  // namespace
