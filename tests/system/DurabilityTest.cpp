// Nothing is lost: kills in the middle of saves, and a disk without room.
#include <sched.h>
#include <sys/mount.h>

#include <csignal>
#include <random>
#include <thread>

#include "tests/system/SystemTest.h"

namespace {

using std::chrono::microseconds;

class DurabilityTest : public SystemTest {
 protected:
  // A terminal that is refused again at every "pair.check", and so saves its state each time.
  void startRefusedTerminal() {
    mac.write("/private/var/simulated/fdesetup.json", R"({"status": "FileVault is On."})");
    mac.writeState({{"authBaseUrl", "http://127.0.0.1:9"}, {"token", "device-token"}});
    boot();
  }
  Json saveOnce() const { return ask({{"cmd", "pair.check"}, {"code", ""}}); }
};

TEST_F(DurabilityTest, KeepsAWholeStateFileWhenKilledDuringSaves) {
  startRefusedTerminal();
  std::mt19937 random(20261015);
  for (int round = 0; round < 40; ++round) {
    ASSERT_TRUE(Eventually([this] { return ask({{"cmd", "status"}})["ok"] == true; }));
    std::jthread saving([this](const std::stop_token& stop) {
      while (!stop.stop_requested()) static_cast<void>(saveOnce());
    });
    std::this_thread::sleep_for(microseconds(random() % 30'000));
    killDaemon();
    saving.request_stop();
    saving.join();
    const Json state = mac.state();
    ASSERT_TRUE(state.is_object()) << mac.read(kStateFile);
    EXPECT_EQ(state["token"], "device-token");
    EXPECT_EQ(state["authBaseUrl"], "http://127.0.0.1:9");
  }
  ASSERT_TRUE(Eventually([this] { return ask({{"cmd", "status"}})["enrolled"] == 1; }));
}

TEST_F(DurabilityTest, ServesOnWithAFullDiskAndSavesAgainOnceThereIsRoom) {
  ASSERT_EQ(unshare(CLONE_NEWNS), 0);
  ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
  ASSERT_EQ(mount("tmpfs", mac.at(kStateDir).c_str(), "tmpfs", 0, "size=64k,mode=0711"), 0);
  startRefusedTerminal();
  const std::string before = mac.read(kStateFile);
  const std::string filler = std::string(kStateDir) + "/filler";
  mac.write(filler, std::string(1 << 20, 'x'));

  const std::size_t failures = mac.countErrors("cannot write state.json: No space left on device");
  EXPECT_EQ(saveOnce(), (Json{{"ok", false}, {"error", "filevault_on"}}));
  EXPECT_GT(mac.countErrors("cannot write state.json: No space left on device"), failures);
  EXPECT_EQ(ask({{"cmd", "status"}})["error"], "filevault_on") << "memory is ahead of the disk";
  EXPECT_EQ(mac.list(kStateDir), (std::vector<std::string>{"filler", "state.json"}))
      << "no temporary file is left";
  EXPECT_EQ(mac.read(kStateFile), before);

  mac.remove(filler);
  saveOnce();
  EXPECT_EQ(mac.state()["lastError"], "filevault_on");
  halt();
  umount2(mac.at(kStateDir).c_str(), MNT_DETACH);
}

}  // namespace
