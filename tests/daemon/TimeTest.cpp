// The time zone and setting the clock.
#include <filesystem>

#include "core/KioskText.h"
#include "platform/Clock.h"
#include "settings/KioskTime.h"
#include "tests/daemon/SettingsTest.h"

namespace {

constexpr char kSystemSetup[] = "/usr/sbin/systemsetup";
constexpr char kSntp[] = "/usr/bin/sntp";
constexpr char kLocalTime[] = "/private/etc/localtime";

class Time : public SettingsTest {
 protected:
  Time() { unlock(); }

  Json setZone(const Json& zone) { return sendUnlocked({{"cmd", "time.zone"}, {"zone", zone}}); }
  Json sync() { return sendUnlocked({{"cmd", "time.sync"}}); }
  Json lastSync() { return sendUnlocked({{"cmd", "time.get"}})["lastSync"]; }

  static std::string zoneLink() { return std::filesystem::read_symlink(kLocalTime); }

  static void linkZone(const std::string& target) {
    std::filesystem::remove(kLocalTime);
    std::filesystem::create_symlink(target, kLocalTime);
  }

  void answerTool(const char* tool, const std::vector<std::string>& arguments, int status,
                  const std::string& output) {
    mac.addFault({{"target", tool},
                  {"arguments", arguments},
                  {"times", 1},
                  {"status", status},
                  {"output", output}});
  }

  void answerSntp(int status, const std::string& output) {
    answerTool(kSntp, {"-sS"}, status, output);
  }

  std::vector<ToolRun> timeRuns() const {
    std::vector<ToolRun> found;
    for (const ToolRun& run : mac.journal()) {
      if (run.tool == kSystemSetup || run.tool == kSntp || run.tool == kLaunchctl) {
        found.push_back(run);
      }
    }
    return found;
  }
};

TEST_F(Time, ZoneIsSet) {
  EXPECT_EQ(setZone("Europe/Berlin"), done());
  EXPECT_TRUE(zoneLink().ends_with("/zoneinfo/Europe/Berlin")) << zoneLink();
  EXPECT_EQ(timeRuns(),
            (std::vector<ToolRun>{{kSystemSetup, {"-settimezone", "Europe/Berlin"}, 0}}));
  EXPECT_EQ(mac.countLog("time zone set to Europe/Berlin"), 1U);
}

TEST_F(Time, ZoneMustBeKnown) {
  for (const Json& zone :
       {Json("Mars/Base"), Json(""), Json("europe/berlin"), Json("Europe/Berlin "),
        Json("../Europe/Berlin"), Json(std::string(65, 'x')), Json(7), Json(), Json::array()}) {
    EXPECT_EQ(setZone(zone), refused("invalid")) << zone;
  }
  EXPECT_TRUE(timeRuns().empty());
  EXPECT_EQ(KioskSetTimeZone("Mars/Base"), "invalid");
}

TEST_F(Time, ZoneIsNotBelievedToTheTool) {
  linkZone("/usr/share/zoneinfo/Asia/Tokyo");
  answerTool(kSystemSetup, {"-settimezone"}, 0, "Set TimeZone: Europe/Berlin");
  EXPECT_EQ(setZone("Europe/Berlin"), refused("failed"));
  EXPECT_EQ(
      mac.countErrors("time zone Europe/Berlin not applied (exit 0): Set TimeZone: Europe/Berlin"),
      1U);
}

TEST_F(Time, ZoneIsNotBelievedToTheLinkAloneEither) {
  linkZone("/usr/share/zoneinfo/Europe/Berlin");
  answerTool(kSystemSetup, {"-settimezone"}, 3, "No.");
  EXPECT_EQ(setZone("Europe/Berlin"), refused("failed"));
  EXPECT_EQ(mac.countErrors("time zone Europe/Berlin not applied (exit 3): No."), 1U);
}

TEST_F(Time, ZoneMustBeTheWholeEndOfTheLink) {
  for (const auto& [target, expected] :
       {std::pair("/var/db/timezone/zoneinfo/Europe/Berlin", done()),
        std::pair("/usr/share/zoneinfo/Old/Europe/Berlin", refused("failed")),
        std::pair("/usr/share/zoneinfo/Europe/Berlin/", refused("failed")),
        std::pair("/usr/share/oldzoneinfo/Europe/Berlin", refused("failed"))}) {
    linkZone(target);
    answerTool(kSystemSetup, {"-settimezone"}, 0, "");
    EXPECT_EQ(setZone("Europe/Berlin"), expected) << target;
  }
  std::filesystem::remove(kLocalTime);
  answerTool(kSystemSetup, {"-settimezone"}, 0, "");
  EXPECT_EQ(setZone("Europe/Berlin"), refused("failed"));
}

TEST_F(Time, IsSetByTheConfiguredServer) {
  answerTool(kSystemSetup, {"-getnetworktimeserver"}, 0, "Network Time Server: time.example.org\n");
  answerSntp(0, "+0.012345 +/- 0.001 time.example.org 192.0.2.1\n");
  const Json reply = sync();
  const std::string at = reply["at"];
  EXPECT_EQ(reply,
            (Json{{"ok", true}, {"server", "time.example.org"}, {"offsetMs", 12}, {"at", at}}));
  EXPECT_EQ(at, KioskIso8601(platform::ClockSecondsSince1970()));
  EXPECT_EQ(at.size(), 20U);
  EXPECT_EQ(timeRuns(), (std::vector<ToolRun>{{kSystemSetup, {"-getnetworktimeserver"}, 0},
                                              {kSntp, {"-sS", "time.example.org"}, 0}}));
  EXPECT_EQ(mac.countLog("time synced from time.example.org, 12 ms out"), 1U);
  const Json record = {{"at", at}, {"server", "time.example.org"}, {"ok", true}};
  EXPECT_EQ(mac.state()["lastTimeSync"], record);
  EXPECT_EQ(lastSync(), record);
}

TEST_F(Time, FallsBackToTheDefaultServer) {
  answerTool(kSystemSetup, {"-getnetworktimeserver"}, 5, "Network Time Server: unused.example\n");
  EXPECT_EQ(sync()["server"], kKioskDefaultTimeServer);
  answerTool(kSystemSetup, {"-getnetworktimeserver"}, 0, "nothing of use");
  EXPECT_EQ(sync()["server"], kKioskDefaultTimeServer);
  answerTool(kSystemSetup, {"-getnetworktimeserver"}, 0, "Network Time Server: -bad.example");
  EXPECT_EQ(sync()["server"], kKioskDefaultTimeServer);
  answerTool(kSystemSetup, {"-getnetworktimeserver"}, 0, "Network Time Server: under_score");
  EXPECT_EQ(sync()["server"], kKioskDefaultTimeServer);
}

TEST_F(Time, OffsetIsRoundedToWholeMillisecondsAwayFromZero) {
  for (const auto& [seconds, milliseconds] :
       {std::pair("-0.0125", -13), std::pair("+0.0125", 13), std::pair("0.0124", 12),
        std::pair("-3", -3000), std::pair("+0", 0)}) {
    answerSntp(0, std::string("noise\n") + seconds + " +/- 0.1 x y\n");
    EXPECT_EQ(sync()["offsetMs"], milliseconds) << seconds;
  }
}

TEST_F(Time, OffsetBeyondAllMeasureIsNoCrash) {
  answerSntp(0, "+" + std::string(400, '9') + " +/- 0.1 x y\n");
  EXPECT_TRUE(sync()["offsetMs"].is_number_integer());
}

TEST_F(Time, OffsetIsZeroWhenNobodySaysOne) {
  answerSntp(0, "all is well");
  EXPECT_EQ(sync()["offsetMs"], 0);
}

TEST_F(Time, IsLeftToTheSystemWhenSntpFails) {
  answerSntp(1, "+1 +/- 0.1 no route");
  const Json reply = sync();
  EXPECT_EQ(reply["ok"], true);
  EXPECT_EQ(reply["offsetMs"], 0);
  const std::string server = reply["server"];
  EXPECT_EQ(mac.countErrors("sntp " + server +
                            " failed: +1 +/- 0.1 no route; turning network time on instead"),
            1U);
  EXPECT_EQ(mac.countLog("network time on; timed restarted to sync"), 1U);
  EXPECT_EQ(timeRuns(),
            (std::vector<ToolRun>{{kSystemSetup, {"-getnetworktimeserver"}, 0},
                                  {kSntp, {"-sS", server}, 1},
                                  {kSystemSetup, {"-setusingnetworktime", "on"}, 0},
                                  {kLaunchctl, {"kickstart", "-k", "system/com.apple.timed"}, 0}}));
  EXPECT_EQ(mac.state()["lastTimeSync"]["at"], reply["at"]);
}

TEST_F(Time, CannotBeSetWhenNetworkTimeIsRefused) {
  sync();
  const Json before = mac.state()["lastTimeSync"];
  virtual_time::Advance(5 * virtual_time::kSecondNs);
  answerSntp(1, "no");
  answerTool(kSystemSetup, {"-setusingnetworktime"}, 1, "never");
  const Json reply = sync();
  EXPECT_EQ(reply, (Json{{"ok", false}, {"error", "sync_failed"}, {"server", reply["server"]}}));
  EXPECT_TRUE(reply["server"].is_string());
  EXPECT_EQ(mac.countErrors("systemsetup -setusingnetworktime on failed: never"), 1U);
  EXPECT_EQ(mac.state()["lastTimeSync"], before);
  EXPECT_EQ(mac.countRuns(kLaunchctl, {"kickstart"}), 0U);
}

TEST_F(Time, CannotBeSetWhenTheTimeDaemonDoesNotRestart) {
  answerSntp(1, "no");
  answerTool(kLaunchctl, {"kickstart"}, 1, "not permitted");
  EXPECT_EQ(sync()["error"], "sync_failed");
  EXPECT_EQ(mac.countErrors("timed did not restart: not permitted"), 1U);
  EXPECT_FALSE(mac.state().contains("lastTimeSync"));
}

TEST_F(Time, LastSyncIsNullBeforeAny) {
  EXPECT_EQ(sendUnlocked({{"cmd", "time.get"}}), (Json{{"ok", true}, {"lastSync", nullptr}}));
  Json state = mac.state();
  state["lastTimeSync"] = "yesterday";
  startDaemon(state);
  virtual_time::RunReady();
  unlock();
  EXPECT_EQ(lastSync(), nullptr);
}

}  // namespace
