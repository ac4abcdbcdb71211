// The driver of the software update tool while the tool runs: its progress, and everybody who looks
// at it or claims it at the same time.
#include <array>
#include <atomic>
#include <barrier>
#include <functional>
#include <thread>

#include "core/KioskDaemon.h"
#include "tests/daemon/SoftwareUpdateTest.h"
#include "tests/support/Child.h"

namespace {

constexpr int kThreads = 8;

class OsUpdatesProgress : public SoftwareUpdateTest {
 protected:
  double progress() const { return updates->status()["progress"].get<double>(); }

  /// The progress while the tool stands still after it wrote these pieces, each read by itself.
  double progressAfter(const Lines& pieces) {
    Lines steps;
    for (const std::string& piece : pieces) steps.push_back(say(piece));
    // The driver is done with a piece when it has read the next.
    steps.insert(steps.end(), {say(" "), gate(nextGate()), exit(1)});
    offer(kOneUpdate);
    whenInstalling(steps);
    EXPECT_TRUE(updates->install());
    KioskDescriptor held = holdGate(std::to_string(_gateCount));
    const double seen = progress();
    held.close();
    settle();
    EXPECT_EQ(progress(), 0) << "nothing is installed any more";
    return seen;
  }

 private:
  std::string nextGate() { return std::to_string(++_gateCount); }

  int _gateCount = 0;
};

TEST_F(OsUpdatesProgress, IsSeenWhileTheToolRuns) {
  offer(kOneUpdate);
  whenInstalling({say("Downloading: 12.5%\n"), say(" "), gate("one"), say("Downloading: 40%\n"),
                  say(" "), gate("two"), complain("\rInstalling: 99.99%"), say(" "), gate("three"),
                  say("Done.\n")});
  ASSERT_TRUE(updates->install());
  for (const auto& [name, percent] :
       {std::pair("one", 12.5), std::pair("two", 40.0), std::pair("three", 99.99)}) {
    const KioskDescriptor held = holdGate(name);
    EXPECT_EQ(progress(), percent);
    EXPECT_EQ(updates->status()["installing"], true);
  }
  settle();
  EXPECT_EQ(progress(), 0);
}

TEST_F(OsUpdatesProgress, IsTheLastOfAPiece) {
  EXPECT_EQ(progressAfter({"10% 20.5%\r33%"}), 33);
  EXPECT_EQ(progressAfter({"12.5% and later 40%"}), 40);
}

TEST_F(OsUpdatesProgress, HasBothEnds) {
  EXPECT_EQ(progressAfter({"50%", "0%"}), 0);
  EXPECT_EQ(progressAfter({"100%"}), 100);
  EXPECT_EQ(progressAfter({"100.0%"}), 100);
}

TEST_F(OsUpdatesProgress, IsLeftAloneByWhatIsOutOfRange) {
  EXPECT_EQ(progressAfter({"40%", "250%"}), 40);
  EXPECT_EQ(progressAfter({"40%", "50% of 250%"}), 40);
  EXPECT_EQ(progressAfter({"40%", "100.5%"}), 40);
}

TEST_F(OsUpdatesProgress, IsLeftAloneByWhatHasNone) {
  EXPECT_EQ(progressAfter({"40%", "Installing"}), 40);
  EXPECT_EQ(progressAfter({"40%", "%", "x%", "50 %"}), 40);
}

TEST_F(OsUpdatesProgress, IsLeftAloneByAPieceThatIsNotUtf8) {
  EXPECT_EQ(progressAfter({"40%", "55% \xFF"}), 40);
  EXPECT_EQ(progressAfter({"40%", "60% \xC3", "\xA9 70%"}), 40);
  EXPECT_EQ(progressAfter({"40%", "60% \xC3", "\xA9 70%", "80% \xC3\xA9"}), 80);
}

TEST_F(OsUpdatesProgress, IsNotPutTogetherFromTwoPieces) {
  EXPECT_EQ(progressAfter({"40%", "Downloading: 5", "7"}), 40);
  EXPECT_EQ(progressAfter({"Downloading: 4", "2%"}), 2);
  EXPECT_EQ(progressAfter({"40%", "57", "%"}), 40);
}

TEST_F(OsUpdatesProgress, IsZeroWhileUnknown) {
  EXPECT_EQ(progressAfter({"Preparing"}), 0);
  EXPECT_EQ(progressAfter({}), 0);
}

TEST_F(OsUpdatesProgress, BeginsAnewWithEachOperation) {
  EXPECT_EQ(progressAfter({"77%"}), 77);
  EXPECT_EQ(progressAfter({"Preparing"}), 0);
}

TEST_F(OsUpdatesProgress, IsNotThatOfAList) {
  whenListing({say("55%"), say(" "), gate("check")});
  ASSERT_TRUE(updates->check());
  {
    const KioskDescriptor held = holdGate("check");
    EXPECT_EQ(progress(), 0);
  }
  settle();
  EXPECT_EQ(progress(), 0);
}

class OsUpdatesQueue : public SoftwareUpdateTest {
 protected:
  /// Runs `work` on several threads at once and waits for them.
  static void together(const std::function<void(int thread)>& work) {
    std::array<std::thread, kThreads> threads;
    std::barrier start(kThreads);
    for (int number = 0; number < kThreads; ++number) {
      threads[static_cast<std::size_t>(number)] = std::thread([&, number] {
        start.arrive_and_wait();
        work(number);
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
};

TEST_F(OsUpdatesQueue, IsClaimedByOneOfMany) {
  for (int round = 0; round < 100; ++round) {
    KioskOsUpdates driver;
    std::atomic<int> won = 0;
    std::atomic<int> winner = -1;
    together([&](int thread) {
      if (!driver.claim(thread % 2 == 0)) return;
      ++won;
      winner = thread;
    });
    ASSERT_EQ(won, 1);
    EXPECT_TRUE(driver.busy());
    const Json status = driver.status();
    EXPECT_EQ(status["installing"], winner % 2 == 0);
    EXPECT_EQ(status["checking"], winner % 2 == 1);
  }
}

TEST_F(OsUpdatesQueue, RefusesEverybodyWhileTheToolRuns) {
  offer(kOneUpdate);
  whenInstalling({say("30%"), say(" "), gate("install")});
  ASSERT_TRUE(updates->install());
  std::atomic<int> taken = 0;
  {
    const KioskDescriptor held = holdGate("install");
    together([&](int thread) {
      for (int i = 0; i < 50; ++i) {
        if (thread % 2 == 0 ? updates->check() : updates->install()) ++taken;
      }
    });
    EXPECT_EQ(updates->status()["progress"], 30) << "a claim that is refused changes nothing";
  }
  settle();
  EXPECT_EQ(taken, 0);
  EXPECT_EQ(runs().size(), 2U);
}

TEST_F(OsUpdatesQueue, RunsOneOperationAtATimeAndEachThatItTook) {
  constexpr int kWanted = 40;
  whenListing({say(kOneUpdate)});
  std::atomic<int> taken = 0;
  std::atomic<int> inside = 0;
  std::atomic<int> ended = 0;
  std::atomic<int> overlaps = 0;
  const auto completion = [&](const Json& result) {
    if (++inside > 1) ++overlaps;
    EXPECT_EQ(result["result"], "ok");
    --inside;
    ++ended;
  };
  together([&](int) {
    while (taken < kWanted) {
      if (updates->check(completion)) ++taken;
    }
  });
  EXPECT_TRUE(Eventually([&] { return ended == taken; }));
  EXPECT_GE(taken, kWanted);
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(runs().size(), static_cast<std::size_t>(taken));
  EXPECT_EQ(mac.countLog("OS updates: 1 pending"), static_cast<std::size_t>(taken));
}

TEST_F(OsUpdatesQueue, ShowsItsStatusAtAnyMoment) {
  Lines steps;
  for (int percent = 0; percent <= 100; ++percent) {
    steps.push_back(say(std::to_string(percent) + "%\n"));
  }
  offer(kTwoUpdates);
  whenInstalling(steps);
  std::atomic<bool> installed = false;
  std::atomic<int> wrong = 0;
  ASSERT_TRUE(updates->install([&](const Json& result) {
    if (result["result"] != "ok") ++wrong;
    installed = true;
  }));
  together([&](int) {
    double last = 0;
    while (!installed) {
      const Json status = updates->status();
      const double progress = status["progress"];
      if (status["ok"] != true || status["checking"] != false || status.size() != 8) ++wrong;
      if (status["installing"] == true && progress < last) ++wrong;
      if (status["installing"] == false && (progress != 0 || updates->busy())) ++wrong;
      last = progress;
    }
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(updates->status()["restartRequired"], true);
}

TEST_F(OsUpdatesQueue, ShowsItsStatusWhileListsFail) {
  whenListing({say("No network."), exit(1)});
  std::atomic<bool> ended = false;
  std::atomic<int> wrong = 0;
  together([&](int thread) {
    for (int run = 0; thread == 0 && run < 10; ++run) check();
    if (thread == 0) ended = true;
    while (!ended) {
      const Json status = updates->status();
      const Json& error = status["error"];
      if (!error.is_null() && error != "No network.") ++wrong;
      if (status["installing"] != false || status["updates"] != Json::array()) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0);
}

TEST_F(OsUpdatesQueue, IsFreeAgainWhenItTellsTheResult) {
  offer(kOneUpdate);
  std::atomic<bool> busy = true;
  std::atomic<bool> again = false;
  std::atomic<bool> ended = false;
  ASSERT_TRUE(updates->install([&](const Json&) {
    busy = updates->busy();
    again = updates->check([&](const Json&) { ended = true; });
  }));
  EXPECT_TRUE(Eventually([&] { return ended.load(); }));
  EXPECT_FALSE(busy);
  EXPECT_TRUE(again);
  EXPECT_EQ(runs().size(), 3U);
}

TEST_F(OsUpdatesQueue, TellsTheResultOnAThreadOfItsOwn) {
  std::atomic<std::thread::id> teller;
  std::atomic<bool> ended = false;
  ASSERT_TRUE(updates->check([&](const Json&) {
    teller = std::this_thread::get_id();
    ended = true;
  }));
  EXPECT_TRUE(Eventually([&] { return ended.load(); }));
  EXPECT_NE(teller.load(), std::this_thread::get_id());
}

TEST_F(OsUpdatesQueue, OutlivesItsOwnerUntilTheToolEnds) {
  offer(kOneUpdate);
  whenInstalling({gate("install")});
  std::atomic<bool> ended = false;
  ASSERT_TRUE(updates->install([&](const Json&) { ended = true; }));
  {
    const KioskDescriptor held = holdGate("install");
    updates = std::make_shared<KioskOsUpdates>();
    EXPECT_FALSE(updates->busy());
  }
  EXPECT_TRUE(Eventually([&] { return ended.load(); }));
}

class OsUpdatesOfADaemon : public SoftwareUpdateTest {
 protected:
  /// A daemon that is always to install, without an enrolment, so that nothing else goes on.
  OsUpdatesOfADaemon() {
    mac.writeState({{"provisioned", true},
                    {"updates",
                     {{"automatic", true},
                      {"window",
                       {{"start", "00:00"},
                        {"end", "00:00"},
                        {"days", Json::array({0, 1, 2, 3, 4, 5, 6})}}}}}});
    daemon->queue().sync([this] { daemon->start(); });
    offer(kOneUpdate);
    whenInstalling({gate("install"), say("Done.")});
  }

  ~OsUpdatesOfADaemon() override {
    if (daemon) daemon->queue().sync([] {});
  }

  void serve() {
    daemon->queue().sync([this] { daemon->enforceUpdates(); });
  }

  bool installed() const { return mac.countLog("OS updates installed") == 1; }
  bool recorded() const { return mac.state().contains("osUpdates"); }

  std::shared_ptr<KioskDaemon> daemon = std::make_shared<KioskDaemon>();
};

TEST_F(OsUpdatesOfADaemon, LeaveItsQueueFreeWhileTheToolRuns) {
  serve();
  {
    const KioskDescriptor held = holdGate("install");
    for (int i = 0; i < 10; ++i) serve();  // returns, and finds the driver busy
    EXPECT_FALSE(recorded());
  }
  EXPECT_TRUE(Eventually([this] { return recorded(); }));
  EXPECT_EQ(mac.state()["osUpdates"]["lastResult"], "ok");
  EXPECT_EQ(mac.state()["updatesWindowDone"].get<std::string>().size(), 10U);
  EXPECT_EQ(runs().size(), 2U);
}

TEST_F(OsUpdatesOfADaemon, AreRecordedWhenItsQueueComesToIt) {
  serve();
  std::atomic<bool> release = false;
  daemon->queue().async([&] { EXPECT_TRUE(Eventually([&] { return release.load(); })); });
  passGate("install");
  EXPECT_TRUE(Eventually([this] { return installed(); }));
  EXPECT_FALSE(recorded());
  release = true;
  EXPECT_TRUE(Eventually([this] { return recorded(); }));
}

TEST_F(OsUpdatesOfADaemon, AreRecordedWhileItsQueueIsAtWork) {
  serve();
  passGate("install");
  // Looks at the state that the record becomes part of.
  EXPECT_TRUE(Eventually([this] {
    for (int i = 0; i < 20; ++i) serve();
    return recorded();
  }));
  EXPECT_EQ(runs().size(), 2U);
}

TEST_F(OsUpdatesOfADaemon, AreDroppedWhenItIsGone) {
  serve();
  {
    const KioskDescriptor held = holdGate("install");
    const std::weak_ptr<KioskDaemon> gone = daemon;
    daemon.reset();
    EXPECT_TRUE(Eventually([&] { return gone.expired(); }));
  }
  EXPECT_TRUE(Eventually([this] { return installed(); }));
  EXPECT_FALSE(recorded());
}

}  // namespace
