// What becomes of an automatic run: its record, and the restart that it may need.
#include <sys/inotify.h>
#include <unistd.h>

#include <array>

#include "tests/daemon/UpdatesTest.h"

namespace {

constexpr char kRestarting[] = "OS updates need a restart; restarting inside the window";
constexpr char kClosed[] =
    "OS updates need a restart, but the window has closed; it waits for the next restart";
constexpr char kInUse[] =
    "OS updates need a restart, but the terminal is in use; it waits for the next restart";

const ToolRun kRestart{kShutdown, {"-r", "now"}, 0};

/// Counts how often the state file was replaced.
class Saves {
 public:
  // The kernel joins events that look alike and follow each other, so those between are seen too.
  Saves() { inotify_add_watch(_notify, kStateDir, IN_CREATE | IN_MOVED_TO); }
  ~Saves() { close(_notify); }
  Saves(const Saves&) = delete;
  Saves& operator=(const Saves&) = delete;

  int count() {
    alignas(inotify_event) std::array<char, 4096> events{};
    for (ssize_t size = 1; size > 0;) {
      size = read(_notify, events.data(), events.size());
      for (ssize_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(events.data() + at);
        if (event->mask == IN_MOVED_TO) ++_count;
        at += static_cast<ssize_t>(sizeof *event + event->len);
      }
    }
    return _count;
  }

 private:
  int _notify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  int _count = 0;
};

class UpdateRun : public UpdatesTest {
 protected:
  /// A run of the policy has begun, in which the tool will say this.
  void begin(const std::string& list, const std::string& output = "Done.", int status = 0) {
    offer(list);
    installSays(output, status);
    receive(policyOf());
    setClock("2026-09-22T02:00:00Z");
    pass();
  }

  /// The same for a run that will need a restart.
  void beginWithRestart() { begin(kRestartUpdate); }

  static Json record(const std::string& result, int pending, bool restartRequired,
                     const Json& error) {
    return {{"lastRunAt", "2026-09-22T02:00:00Z"},
            {"lastResult", result},
            {"pending", pending},
            {"restartRequired", restartRequired},
            {"error", error}};
  }
};

TEST_F(UpdateRun, RestartsTheMacOnceInsideTheWindow) {
  beginWithRestart();
  finish();
  EXPECT_EQ(mac.journal(), (Runs{list(), install(), kRestart}));
  EXPECT_EQ(mac.log(), (Log{{"Default", "OS updates: the 2026-09-22 window is open; installing"},
                            {"Default", "OS updates: 1 pending"},
                            {"Default", "installing 1 OS update(s)"},
                            {"Default", "OS updates installed; a restart is required"},
                            {"Default", kRestarting}}));
  EXPECT_EQ(lastRun(), record("ok", 0, true, nullptr));
  virtual_time::Advance(2 * 3600 * kSecond);
  EXPECT_EQ(restarts(), Runs{kRestart});
}

TEST_F(UpdateRun, RestartsTheMacWhenOnlyTheToolsOutputAsksForIt) {
  begin(kPlainUpdate, "Done.\nYou must RESTART your computer.");
  finish();
  EXPECT_EQ(restarts(), Runs{kRestart});
  EXPECT_EQ(lastRun()["restartRequired"], true);
}

TEST_F(UpdateRun, RestartsTheMacWhenTheLastReportIsTooOld) {
  receive(policyOf());
  report(true, true);
  virtual_time::Advance(151 * kSecond);
  beginWithRestart();
  finish();
  EXPECT_EQ(restarts(), Runs{kRestart});
}

TEST_F(UpdateRun, DoesNotRestartTheMacUnlessItIsRequired) {
  begin(kPlainUpdate);
  finish();
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(lastRun(), record("ok", 0, false, nullptr));
  EXPECT_EQ(mac.log().back().text, "OS updates installed");
}

TEST_F(UpdateRun, DoesNotRestartTheMacAfterAFailure) {
  begin(kRestartUpdate, "Downloaded.\nCould not restart the installer.", 3);
  finish();
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(lastRun(), record("failed", 1, false, "Could not restart the installer."));
  EXPECT_EQ(mac.countErrors(
                "softwareupdate -i -a exited 3: Downloaded.\\nCould not restart the installer."),
            1U);
}

TEST_F(UpdateRun, DoesNotRestartTheMacWhenThereWasNothingToInstall) {
  begin(kNoUpdates);
  finish();
  EXPECT_EQ(mac.journal(), Runs{list()});
  EXPECT_EQ(lastRun(), record("nothing", 0, false, nullptr));
}

TEST_F(UpdateRun, DoesNotRestartTheMacWhenTheWindowHasClosed) {
  beginWithRestart();
  setClock("2026-09-22T05:00:00Z");
  finish();
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(mac.countErrors(kClosed), 1U);
  EXPECT_EQ(lastRun()["restartRequired"], true);
  EXPECT_EQ(lastRun()["lastRunAt"], "2026-09-22T05:00:00Z");
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22") << "the window of the run's start";
  virtual_time::Advance(3600 * kSecond);
  EXPECT_TRUE(restarts().empty());
}

TEST_F(UpdateRun, DoesNotRestartTheMacInTheNextWindow) {
  beginWithRestart();
  setClock("2026-09-23T02:00:00Z");
  finish();
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(mac.countErrors(kClosed), 1U);
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
}

TEST_F(UpdateRun, DoesNotRestartTheMacWhenThePolicyMovedTheWindow) {
  beginWithRestart();
  answerEnrolled({{"updates", policyOf(true, "03:00", "05:00")}});
  checkIn();
  finish();
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(mac.countErrors(kClosed), 1U);
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
}

TEST_F(UpdateRun, RestartsTheMacWhenThePolicysWindowIsStillTheRunsOwn) {
  beginWithRestart();
  answerEnrolled({{"updates", policyOf(false, "01:00", "03:00")}});
  checkIn();
  finish();
  EXPECT_EQ(restarts(), Runs{kRestart});
}

TEST_F(UpdateRun, DoesNotRestartATerminalThatWasTornDown) {
  beginWithRestart();
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
  ASSERT_FALSE(mac.state().contains("updates"));
  finish();
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(mac.countErrors(kClosed), 1U);
}

TEST_F(UpdateRun, DoesNotRestartATerminalThatIsInUse) {
  for (const auto& [live, signedIn] : {std::pair(true, false), std::pair(false, true)}) {
    beginWithRestart();
    report(live, signedIn);
    finish();
    EXPECT_EQ(mac.countLog(kInUse), 1U);
    EXPECT_TRUE(restarts().empty());
    EXPECT_EQ(lastRun(), record("ok", 0, true, nullptr));
    restartWith({{"updatesWindowDone", nullptr}});
  }
}

TEST_F(UpdateRun, SaysOnlyThatTheWindowHasClosedWhenTheTerminalIsInUseAsWell) {
  beginWithRestart();
  report(true, true);
  setClock("2026-09-22T06:00:00Z");
  finish();
  EXPECT_EQ(mac.countErrors(kClosed), 1U);
  EXPECT_EQ(mac.countLog(kInUse), 0U);
}

TEST_F(UpdateRun, LogsARestartThatIsRefusedAndKeepsItsRecord) {
  mac.addFault({{"target", kShutdown}, {"status", 1}, {"errorOutput", "shutdown: not today\n"}});
  beginWithRestart();
  finish();
  EXPECT_EQ(mac.countLog(kRestarting), 1U);
  EXPECT_EQ(mac.countErrors("shutdown -r refused: shutdown: not today"), 1U);
  EXPECT_EQ(lastRun(), record("ok", 0, true, nullptr));
  virtual_time::Advance(3600 * kSecond);
  EXPECT_EQ(restarts().size(), 1U) << "nothing tries again";
}

TEST_F(UpdateRun, LogsARestartThatCannotBeAskedFor) {
  mac.remove(kShutdown);
  beginWithRestart();
  finish();
  EXPECT_EQ(mac.countErrors("shutdown did not start: No such file or directory"), 1U);
  EXPECT_EQ(mac.countErrors("shutdown -r refused: "), 1U);
}

TEST_F(UpdateRun, SavesItsWindowAndItsRecordTogether) {
  begin(kPlainUpdate);
  Saves saves;
  finish();
  EXPECT_EQ(saves.count(), 1);
  EXPECT_EQ(mac.state()["updatesWindowDone"], "2026-09-22");
  EXPECT_EQ(mac.state()["osUpdates"], record("ok", 0, false, nullptr));
}

TEST_F(UpdateRun, IsRecordedOnTheDaemonsOwnQueue) {
  begin(kPlainUpdate);
  bool before = true;
  daemon->queue().async([&] {
    EXPECT_EQ(mac.log().back().text, "OS updates installed");
    before = mac.state().contains("osUpdates");
  });
  finish();
  EXPECT_FALSE(before) << "the queue had something else to do first";
  EXPECT_TRUE(mac.state().contains("osUpdates"));
}

TEST_F(UpdateRun, SavesItsRecordBeforeTheMacRestarts) {
  beginWithRestart();
  clearRecords();
  ReplaceByLink(mac, kStateDir);  // shows in the log when it is that something is saved
  finish();
  const Log log = mac.log();
  ASSERT_GE(log.size(), 2U);
  EXPECT_EQ(log.back().text, kRestarting);
  EXPECT_EQ(log[log.size() - 2].level, "Error");
  EXPECT_EQ(log[log.size() - 2].text.find("cannot open "), 0U) << log[log.size() - 2].text;
  EXPECT_EQ(restarts(), Runs{kRestart});
}

TEST_F(UpdateRun, IsRecordedWithTheListsErrorWhenTheListFails) {
  offer("Can't connect to the Apple Software Update server\nNo network.\n", 1);
  receive(policyOf());
  setClock("2026-09-22T02:00:00Z");
  passAndFinish();
  EXPECT_EQ(mac.journal(), Runs{list(1)});
  EXPECT_EQ(lastRun(), record("failed", 0, false, "No network."));
}

TEST_F(UpdateRun, RecordsHowManyUpdatesAreStillPendingAfterAFailure) {
  begin(kTwoUpdates, "Authentication failed: no Password was given.", 1);
  finish();
  EXPECT_EQ(lastRun(), record("failed", 2, false, "authorization_required"));
}

TEST_F(UpdateRun, LeavesItsPendingUpdatesToTheRecordOfADeferral) {
  begin(kTwoUpdates, "No.", 1);
  finish();
  setClock("2026-09-23T02:00:00Z");
  virtual_time::Advance(900 * kSecond);
  ASSERT_EQ(lists(), 2U);
  setClock("2026-09-24T02:00:00Z");
  virtual_time::Advance(880 * kSecond);
  report(true, false);
  virtual_time::Advance(20 * kSecond);
  EXPECT_EQ(lastRun(), (Json{{"lastRunAt", "2026-09-24T02:15:00Z"},
                             {"lastResult", "deferred"},
                             {"pending", 2},
                             {"restartRequired", false},
                             {"error", nullptr}}));
}

TEST_F(UpdateRun, LeavesNoPendingUpdatesToTheRecordOfADeferralWhenItHadNone) {
  receive(policyOf());
  for (const Json& former : {Json("lost"), Json{{"lastResult", "ok"}}, Json::array({5}), Json()}) {
    restartWith({{"osUpdates", former}});
    setClock("2026-09-22T02:00:00Z");
    report(true, false);
    pass();
    EXPECT_EQ(lastRun(), record("deferred", 0, false, nullptr)) << former;
  }
}

TEST_F(UpdateRun, IsReportedAtTheNextCheckIn) {
  checkIn();
  const Json before = portal.requests(kCheckInCall).back().json();
  EXPECT_TRUE(before.contains("osUpdates"));
  EXPECT_EQ(before["osUpdates"], nullptr);
  begin(kTwoUpdates, "No.", 1);
  finish();
  checkIn();
  EXPECT_EQ(portal.requests(kCheckInCall).back().json()["osUpdates"],
            record("failed", 2, false, "No."));
}

TEST_F(UpdateRun, IsReportedByADaemonThatWasStartedAnew) {
  begin(kPlainUpdate);
  finish();
  restartDaemon();
  finish();  // the first check-in, and a pass
  EXPECT_EQ(portal.requests(kCheckInCall).back().json()["osUpdates"],
            record("ok", 0, false, nullptr));
  EXPECT_EQ(lists(), 1U) << "its window is done";
}

TEST_F(UpdateRun, IsNotReportedWhenItsRecordIsNoRecord) {
  restartWith({{"osUpdates", "lost"}});
  finish();
  EXPECT_EQ(portal.requests(kCheckInCall).back().json()["osUpdates"], nullptr);
}

TEST_F(UpdateRun, IsDroppedWhenTheDaemonIsGone) {
  beginWithRestart();
  daemon.reset();
  finish();
  EXPECT_EQ(installs(), 1U) << "the tool is not ended";
  EXPECT_TRUE(restarts().empty());
  EXPECT_FALSE(mac.state().contains("osUpdates"));
  EXPECT_FALSE(mac.state().contains("updatesWindowDone"));
}

TEST_F(UpdateRun, SurvivesAClockThatIsSetWhileItRuns) {
  beginWithRestart();
  setClock("1969-12-31T23:59:58Z");
  finish();
  EXPECT_TRUE(restarts().empty());
  EXPECT_EQ(lastRun()["lastRunAt"], "1969-12-31T23:59:58Z");
}

}  // namespace
