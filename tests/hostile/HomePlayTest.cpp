// Provisioning again and again while the kiosk's user plays with its home and all that it may
// write.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/daemon/AccountTest.h"
#include "tests/hostile/KioskPlayer.h"
#include "tests/hostile/TreeDigest.h"

namespace {

constexpr gid_t kStaff = 20;
constexpr int kDefaultRounds = 100;
// The game goes on until it disturbed something, but not for ever.
constexpr int kMostTimesTheRounds = 10;

/// How many times the Mac is provisioned during the game.
int Rounds() {
  const char* given = std::getenv("KIOSKD_PLAYED_PROVISIONINGS");
  return given == nullptr ? kDefaultRounds : std::atoi(given);
}

int MostRounds() { return Rounds() * kMostTimesTheRounds; }

class HomePlay : public AccountTest {
 protected:
  HomePlay() {
    becomeProvisioned();
    mac.write(std::string(kRootsFolder) + "/file", "precious");
  }

  bool isProvisioned() const { return mac.state()["provisioned"] == true; }

  /// Provisions while somebody plays; how often in vain.
  int provisionDuringTheGame() {
    int disturbed = 0;
    for (int round = 0; round < Rounds() || (disturbed == 0 && round < MostRounds()); ++round) {
      provision();
      if (isProvisioned()) continue;
      EXPECT_EQ(mac.state()["lastError"], "home_failed") << mac.state();
      ++disturbed;
    }
    return disturbed;
  }
};

TEST_F(HomePlay, WritesNothingOutsideTheHomeAndSucceedsWhenThePlayerStops) {
  provision();
  const TreeDigest before = DigestTree("", PlacesOfPlay());
  ASSERT_TRUE(before.contains(std::string(kRootsFolder) + "/file"));
  const std::size_t descriptors = OpenDescriptorCount();
  KioskPlayer player("", kioskUid(), kStaff, getpid());
  EXPECT_GT(provisionDuringTheGame(), 0) << "the player never met the daemon";
  EXPECT_GT(player.stop().value_or(0), 0U);
  provision();
  EXPECT_TRUE(isProvisioned()) << mac.state();
  EXPECT_EQ(DifferenceOf(before, DigestTree("", PlacesOfPlay())), "");
  EXPECT_TRUE(mac.list(kDecoy).empty()) << "the daemon writes through no link, wherever it leads";
  EXPECT_EQ(mac.modeAndOwner(kSetupAssistant), "0600 " + std::to_string(kioskUid()) + ":20");
  EXPECT_EQ(OpenDescriptorCount(), descriptors + 1) << "the pipe from the player is still open";
}

}  // namespace
