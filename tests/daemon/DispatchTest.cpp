// Which handler a request reaches, and what "status" tells whom.
#include <atomic>
#include <string>
#include <thread>

#include "tests/daemon/DaemonTest.h"

namespace {

const Json kUnknownCommand = {{"ok", false}, {"error", "unknown_command"}};

using Dispatch = DaemonTest;

TEST_F(Dispatch, RefusesACommandThatIsNoText) {
  startDaemon();
  for (const Json& cmd :
       {Json(5), Json(true), Json(), Json::array({"status"}), Json{{"cmd", "status"}}, Json(0.5)}) {
    EXPECT_EQ(send({{"cmd", cmd}}), kUnknownCommand) << cmd;
  }
}

TEST_F(Dispatch, RefusesARequestWithoutCommand) {
  startDaemon();
  EXPECT_EQ(send(Json::object()), kUnknownCommand);
  EXPECT_EQ(send({{"command", "status"}}), kUnknownCommand);
}

TEST_F(Dispatch, RefusesARequestThatIsNoObject) {
  startDaemon();
  for (const Json& request : {Json(), Json(5), Json("status"), Json::array({"cmd", "status"})}) {
    EXPECT_EQ(send(request), kUnknownCommand) << request;
  }
}

TEST_F(Dispatch, KnowsCommandsByTheirExactNamesOnly) {
  startDaemon();
  for (const char* cmd :
       {"",           "Status",          "STATUS",         "statu",       "statuss",
        " status",    "status ",         "status\n",       "pair",        "pair.",
        "pair.Begin", "pair.begin.",     "pair-begin",     "restart",     "restart.Now",
        "os",         "os.update",       "os.Updates",     "os.install ", "os_install",
        "session",    "session.reports", "Session.report", "*",           "%@"}) {
    EXPECT_EQ(send({{"cmd", cmd}}), kUnknownCommand) << cmd;
  }
  EXPECT_EQ(portal.requests().size(), 0U);
}

TEST_F(Dispatch, DoesNotEndACommandsNameAtAZeroByte) {
  startDaemon();
  EXPECT_EQ(send({{"cmd", std::string("status\0", 7)}}), kUnknownCommand);
  EXPECT_EQ(send({{"cmd", std::string("status\0pair.begin", 17)}}), kUnknownCommand);
  EXPECT_EQ(send({{"cmd", std::string("\0status", 7)}}), kUnknownCommand);
}

TEST_F(Dispatch, RefusesAVeryLongCommand) {
  startDaemon();
  EXPECT_EQ(send({{"cmd", std::string(1 << 20, 's')}}), kUnknownCommand);
  EXPECT_EQ(send({{"cmd", "status" + std::string(1 << 20, ' ')}}), kUnknownCommand);
}

TEST_F(Dispatch, LogsNothingAboutUnknownCommands) {
  startDaemon();
  const std::size_t before = mac.log().size();
  send({{"cmd", "no.such"}});
  EXPECT_EQ(mac.log().size(), before);
}

TEST_F(Dispatch, HandsEachCommandToItsHandler) {
  startDaemon();
  EXPECT_EQ(status()["ok"], true);
  EXPECT_EQ(send({{"cmd", "pair.begin"}}), (Json{{"ok", false}, {"error", "pairing_failed"}}));
  EXPECT_EQ(send({{"cmd", "pair.check"}}), (Json{{"ok", false}, {"error", "invalid_code"}}));
  EXPECT_EQ(send({{"cmd", "restart.now"}}), (Json{{"ok", false}, {"error", "not_pending"}}));
  for (const char* cmd : {"os.updates", "os.install"}) {
    EXPECT_EQ(send({{"cmd", cmd}}), (Json{{"ok", false}, {"error", "not_unlocked"}})) << cmd;
  }
  EXPECT_EQ(send({{"cmd", "session.report"}}), (Json{{"ok", false}, {"error", "not_permitted"}}));
}

TEST_F(Dispatch, HandsTheWholeRequestAndThePeerToTheHandler) {
  startProvisioned();
  EXPECT_EQ(send({{"cmd", "session.report"}, {"live", true}}, kioskUid()), (Json{{"ok", true}}));
  EXPECT_EQ(mac.countLog("kiosk session: stream live, signed out"), 1U);
}

TEST_F(Dispatch, IgnoresKeysThatACommandDoesNotKnow) {
  startDaemon();
  const Json plain = status();
  EXPECT_EQ(send({{"cmd", "status"}, {"uid", 502}, {"kioskSession", 1}, {"ok", "no"}}), plain);
}

TEST_F(Dispatch, AnswersStartingBeforeTheFirstStatusIsPublished) {
  daemon = std::make_shared<KioskDaemon>();
  const Json starting = {{"ok", false}, {"error", "starting"}, {"kioskSession", 0}};
  EXPECT_EQ(daemon->status(0), starting);
  EXPECT_EQ(status(), starting);
}

TEST_F(Dispatch, TellsAnUnenrolledTerminalsStatusInFull) {
  startDaemon();
  const Json expected = {
      {"ok", true},
      {"enrolled", 0},
      {"provisioned", false},
      {"maintenance", false},
      {"account", "BrindlexKiosk"},
      {"terminalName", ""},
      {"signIn", {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}}},
      {"kioskSession", 0}};
  EXPECT_EQ(status(), expected);
  EXPECT_EQ(daemon->status(0), expected);
}

TEST_F(Dispatch, TellsTheKioskAccountThatTheSessionIsItsOwn) {
  startProvisioned();
  const Json reply = status(kioskUid());
  EXPECT_EQ(reply["kioskSession"], Json(1));
  EXPECT_TRUE(reply["kioskSession"].is_number_integer());
  EXPECT_FALSE(reply.contains("uid"));
}

TEST_F(Dispatch, TellsEverybodyElseThatTheSessionIsNotTheKioskAccounts) {
  startProvisioned();
  for (const std::uint32_t uid : {0U, 501U, kioskUid() + 1, 0xFFFFFFFFU}) {
    const Json reply = status(uid);
    EXPECT_EQ(reply["kioskSession"], Json(0)) << uid;
    EXPECT_FALSE(reply.contains("uid")) << uid;
  }
}

TEST_F(Dispatch, HasStatusAsTextForWhomeverItIs) {
  const auto unstarted = std::make_shared<KioskDaemon>();
  EXPECT_EQ(Json::parse(unstarted->statusText(0)), unstarted->status(0));
  startProvisioned();
  for (const std::uint32_t uid : {0U, 501U, kioskUid()}) {
    EXPECT_EQ(Json::parse(daemon->statusText(uid)), status(uid)) << uid;
  }
}

TEST_F(Dispatch, DoesNotTakeAForeignAccountOfTheSameNameForItsOwn) {
  RunToEnd({"/usr/sbin/sysadminctl", "-addUser", "BrindlexKiosk"});
  startDaemon({{"generatedUID", "00000000-0000-0000-0000-000000000000"}});
  ASSERT_NE(kioskUid(), 0U);
  EXPECT_EQ(status(kioskUid())["kioskSession"], Json(0));
  EXPECT_FALSE(daemon->published()->contains("uid"));
}

TEST_F(Dispatch, AnswersStatusFromTheSnapshotAndNotFromTheState) {
  startDaemon({{"terminalName", "before"}});
  mac.writeState({{"terminalName", "after"}});
  EXPECT_EQ(status()["terminalName"], "before");
}

TEST_F(Dispatch, AnswersStatusFromOtherThreadsWhileTheWorkQueueIsBusy) {
  startSettled();
  std::atomic<bool> done = false;
  std::atomic<int> refused = 0;
  std::thread other([&] {
    while (!done) {
      const Json reply = daemon->status(502);
      if (reply["ok"] != true || reply.contains("uid")) ++refused;
    }
  });
  for (const char* name : {"one", "two", "three"}) {
    answerEnrolled({{"name", name}});
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  }
  done = true;
  other.join();
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(status()["terminalName"], "three");
}

}  // namespace
