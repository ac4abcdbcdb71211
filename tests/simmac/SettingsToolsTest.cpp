#include <filesystem>
#include <fstream>

#include "simulator/mac/SettingsFile.h"
#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

constexpr char kPmSet[] = "/usr/bin/pmset";
constexpr char kSystemSetup[] = "/usr/sbin/systemsetup";
constexpr char kSntp[] = "/usr/bin/sntp";
constexpr char kLaunchCtl[] = "/bin/launchctl";

/// Contents that no tool can have written.
constexpr const char* kMalformed[] = {
    "",
    "{",
    "[]",
    "5",
    "null",
    R"({"settings": [], "repeat": {}, "scheduled": 7, "sleepPreventedBy": "no", "sleepDisabled": 1})",
    R"({"settings": {"sleep": "1", "displaysleep": -1, "disksleep": 99999999999999999999}})",
    R"({"settings": {"sleep": 1.5, "displaysleep": null, "disksleep": 2147483648}})",
    R"({"repeat": [1, {}, {"type": "doze", "days": "M", "time": "1:00:00"}]})",
    R"({"repeat": [{"type": "sleep", "days": 3, "time": 4}, {"type": "wake", "days": "M"}]})",
    R"({"server": 1, "offset": "x", "error": [], "address": {}, "reachable": 0, "resolves": 2})",
    R"({"server": "", "offset": 1e300, "error": -1e300, "usingNetworkTime": "on"})"};

/// A tool's whole answer.
void Expect(const RunResult& result, int status, const std::string& out, const std::string& err) {
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.out, out);
  EXPECT_EQ(result.err, err);
}

class SettingsTool : public SimulatedMacTest {
 protected:
  static RunResult run(const TestMac& mac, const char* tool, const Words& arguments,
                       const std::string& user = "root") {
    Words command = {tool};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return mac.run(command, user);
  }

  static Json settings(const TestMac& mac, const char* path) {
    return Json::parse(mac.read(path), nullptr, false);
  }

  /// Writes keys over those that a settings file has.
  static void change(const TestMac& mac, const char* path, const Json& keys) {
    Json all = settings(mac, path);
    all.update(keys);
    mac.write(path, all.dump());
  }

  static void fault(const TestMac& mac, const Words& options) {
    Words arguments = {"add"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(mac.simmac("fault", arguments).status, 0);
  }
};

class PmSetTool : public SettingsTool {
 protected:
  static RunResult pmset(const TestMac& mac, const Words& arguments,
                         const std::string& user = "root") {
    return run(mac, kPmSet, arguments, user);
  }
  static std::string schedule(const TestMac& mac) { return pmset(mac, {"-g", "sched"}).out; }
};

constexpr char kDesktop[] =
    "System-wide power settings:\n"
    " SleepDisabled\t\t0\n"
    "Currently in use:\n"
    " standby              1\n"
    " Sleep On Power Button 1\n"
    " autorestartatconnect 0\n"
    " autorestart          0\n"
    " powernap             1\n"
    " networkoversleep     0\n"
    " disksleep            10\n"
    " sleep                1 (sleep prevented by powerd, runningboardd)\n"
    " ttyskeepawake        1\n"
    " displaysleep         10\n"
    " tcpkeepalive         1\n"
    " lowpowermode         0\n"
    " womp                 1\n";

constexpr char kPmSetUsage[] = "Usage: pmset <options>\nSee pmset(1) for details: 'man pmset'\n";
constexpr char kBadEvent[] = "Error: badly formatted repeating power event\n";

TEST_F(PmSetTool, ShowsTheSettingsOfADesktopMacToEverybody) {
  const TestMac mac;
  Expect(pmset(mac, {"-g"}), 0, kDesktop, "");
  Expect(pmset(mac, {"-g"}, "admin"), 0, kDesktop, "");
  ASSERT_TRUE(std::filesystem::remove(mac.path(kPowerSettings)));
  EXPECT_NE(pmset(mac, {"-g"}).out.find("\n displaysleep         10\n"), std::string::npos);
}

TEST_F(PmSetTool, SaysWhatKeepsTheMacAwake) {
  const TestMac mac;
  change(mac, kPowerSettings,
         {{"sleepDisabled", true},
          {"sleepPreventedBy", {"Deep Sleep", "powerd"}},
          {"displaySleepPreventedBy", {"HelmApp"}}});
  const std::string text = pmset(mac, {"-g"}).out;
  EXPECT_NE(text.find(" SleepDisabled\t\t1\n"), std::string::npos);
  EXPECT_NE(text.find("\n sleep                1 (sleep prevented by Deep Sleep, powerd)\n"),
            std::string::npos);
  EXPECT_NE(text.find("\n displaysleep         10 (display sleep prevented by HelmApp)\n"),
            std::string::npos);
}

TEST_F(PmSetTool, SetsTheTimeouts) {
  const TestMac mac;
  Expect(pmset(mac, {"-a", "displaysleep", "15", "sleep", "0"}), 0, "", "");
  const Json power = settings(mac, kPowerSettings);
  EXPECT_EQ(power["settings"]["displaysleep"], 15);
  EXPECT_EQ(power["settings"]["sleep"], 0);
  EXPECT_EQ(power["settings"]["disksleep"], 10);
  const std::string text = pmset(mac, {"-g"}).out;
  EXPECT_NE(text.find("\n displaysleep         15\n"), std::string::npos);
  EXPECT_NE(text.find("\n sleep                0 (sleep prevented by powerd, runningboardd)\n"),
            std::string::npos);
}

TEST_F(PmSetTool, WarnsOfTimeoutsThatContradictEachOtherAndSetsThem) {
  const TestMac mac;
  const std::string warning =
      "Warning: Idle sleep timings for \"AC Power\" may not behave as expected.\n";
  const std::string display = "- Display sleep should have a lower timeout than system sleep.\n";
  const std::string disk = "- Disk sleep should be non-zero whenever system sleep is non-zero.\n";
  Expect(pmset(mac, {"-a", "displaysleep", "180"}), 0, "", warning + display);
  EXPECT_EQ(settings(mac, kPowerSettings)["settings"]["displaysleep"], 180);
  Expect(pmset(mac, {"-c", "displaysleep", "5", "sleep", "10", "disksleep", "0"}), 0, "",
         warning + disk);
  Expect(pmset(mac, {"-a", "displaysleep", "0"}), 0, "", warning + display + disk);
}

TEST_F(PmSetTool, ExplainsItselfWhenItIsAskedForWhatItDoesNotKnow) {
  const TestMac mac;
  const std::string before = mac.read(kPowerSettings);
  for (const Words& arguments :
       {Words{}, Words{"-a"}, Words{"-a", "displaysleep"}, Words{"-a", "displaysleep", "ten"},
        Words{"-a", "displaysleep", "-1"}, Words{"-a", "displaysleep", "1.5"},
        Words{"-a", "displaysleep", "99999999999"}, Words{"-a", "displaysleep", ""},
        Words{"-a", "sleep", "0", "bogus", "1"}, Words{"-a", "sleep on power button", "0"},
        Words{"-g", "everything"}, Words{"sleepsoon"}}) {
    Expect(pmset(mac, arguments), 1, kPmSetUsage, "");
  }
  // What it is asked for comes before who asks.
  Expect(pmset(mac, {"-a", "displaysleep", "ten"}, "admin"), 1, kPmSetUsage, "");
  EXPECT_EQ(mac.read(kPowerSettings), before);
}

TEST_F(PmSetTool, ChangesNothingForOrdinaryUsers) {
  const TestMac mac;
  const std::string before = mac.read(kPowerSettings);
  Expect(pmset(mac, {"-a", "displaysleep", "10", "sleep", "0"}, "admin"), 1,
         "'pmset' must be run as root...\n", "");
  for (const Words& arguments :
       {Words{"repeat", "cancel"}, Words{"repeat", "wake", "M", "03:00:00"}}) {
    Expect(pmset(mac, arguments, "admin"), 1, "",
           "pmset: Must be run as root to modify settings\n");
  }
  EXPECT_EQ(mac.read(kPowerSettings), before);
}

TEST_F(PmSetTool, RepeatsSleepAndWake) {
  const TestMac mac;
  Expect(pmset(mac, {"repeat", "sleep", "MTWRF", "22:00:00", "wakeorpoweron", "MTWRF", "07:00:00"}),
         0, "", "");
  EXPECT_EQ(settings(mac, kPowerSettings)["repeat"],
            Json::array({{{"type", "wakeorpoweron"}, {"days", "MTWRF"}, {"time", "07:00:00"}},
                         {{"type", "sleep"}, {"days", "MTWRF"}, {"time", "22:00:00"}}}));
  EXPECT_EQ(schedule(mac),
            "Repeating power events:\n"
            "  wakepoweron at 7:00AM weekdays only\n"
            "  sleep at 10:00PM weekdays only\n");
  Expect(pmset(mac, {"repeat", "cancel"}), 0, "", "");
  EXPECT_EQ(settings(mac, kPowerSettings)["repeat"], Json::array());
  EXPECT_EQ(schedule(mac), "No scheduled events.\n");
  // With nothing to cancel, too.
  Expect(pmset(mac, {"repeat", "cancel"}), 0, "", "");
}

TEST_F(PmSetTool, RepeatsOneEventThatSwitchesOnAndOneThatDoesNot) {
  const TestMac mac;
  (void)pmset(mac, {"repeat", "wakeorpoweron", "MTWRFSU", "3:30:00", "restart", "MTX", "02:05:59"});
  EXPECT_EQ(schedule(mac),
            "Repeating power events:\n"
            "  wakepoweron at 3:30AM every day\n"
            "  restart at 2:05AM Some days\n");
  (void)pmset(mac, {"repeat", "shutdown", "SU", "12:05:00"});
  EXPECT_EQ(schedule(mac),
            "Repeating power events:\n"
            "  wakepoweron at 3:30AM every day\n"
            "  shutdown at 12:05PM weekends only\n");
}

TEST_F(PmSetTool, NamesTheDaysAndHoursOfEvents) {
  const TestMac mac;
  const std::pair<Words, const char*> events[] = {{{"U", "00:05:00"}, "0:05AM Sunday"},
                                                  {{"M", "13:05:00"}, "1:05PM Monday"},
                                                  {{"mtwrf", "08:25:00"}, "8:25AM weekdays only"},
                                                  {{"F", "23:59:59"}, "11:59PM Friday"},
                                                  {{"WSU", "12:00:00"}, "12:00PM Some days"}};
  for (const auto& [event, text] : events) {
    EXPECT_EQ(pmset(mac, {"repeat", "restart", event[0], event[1]}).status, 0);
    EXPECT_EQ(schedule(mac), std::string("Repeating power events:\n  restart at ") + text + "\n");
  }
}

TEST_F(PmSetTool, RefusesEventsThatAreNone) {
  const TestMac mac;
  const std::string before = mac.read(kPowerSettings);
  for (const Words& event :
       {Words{}, Words{"sleep"}, Words{"sleep", "M"}, Words{"sleep", "XYZ", "03:00:00"},
        Words{"sleep", "", "03:00:00"}, Words{"sleep", "M", "3h"}, Words{"sleep", "M", "03:00"},
        Words{"sleep", "M", "24:00:00"}, Words{"sleep", "M", "03:60:00"},
        Words{"sleep", "M", "03:00:60"}, Words{"sleep", "M", "003:00:00"},
        Words{"sleep", "M", "03:00:00x"}, Words{"sleep", "M", "-3:00:00"},
        Words{"sleep", "M", "03:00:00", "wake", "M"}}) {
    Words arguments = {"repeat"};
    arguments.insert(arguments.end(), event.begin(), event.end());
    Expect(pmset(mac, arguments), 1, kPmSetUsage, kBadEvent);
  }
  EXPECT_EQ(mac.read(kPowerSettings), before);
}

TEST_F(PmSetTool, RefusesEventsOfAnUnknownType) {
  const TestMac mac;
  const std::string type = "Error: Unspecified scheduled event type\n";
  for (const char* unknown : {"hibernate", "wakepoweron"}) {
    Expect(pmset(mac, {"repeat", unknown, "MTWRF", "03:00:00"}), 1, type + kPmSetUsage, kBadEvent);
  }
  Expect(pmset(mac, {"repeat", "cancel", "all"}), 1, type + kPmSetUsage, kBadEvent);
}

TEST_F(PmSetTool, ShowsEventsThatHappenOnce) {
  const TestMac mac;
  change(mac, kPowerSettings,
         {{"scheduled",
           {{{"type", "wakepoweron"}, {"time", "09/06/26 19:55:00"}, {"by", "pmset"}},
            {{"type", "wakeorpoweron"},
             {"time", "06/07/2026 10:30:00"},
             {"by", "pmset"},
             {"userVisible", true}}}}});
  const std::string once =
      "Scheduled power events:\n"
      " [0]  wakepoweron at 09/06/26 19:55:00 by 'pmset'\n"
      " [1]  wakeorpoweron at 06/07/2026 10:30:00 by 'pmset' User visible: true\n";
  EXPECT_EQ(schedule(mac), once);
  (void)pmset(mac, {"repeat", "wakeorpoweron", "MTWRF", "08:25:00"});
  EXPECT_EQ(schedule(mac),
            "Repeating power events:\n  wakepoweron at 8:25AM weekdays only\n" + once);
  (void)pmset(mac, {"repeat", "cancel"});
  EXPECT_EQ(schedule(mac), once);
}

TEST_F(PmSetTool, CanBeMadeToRefuseASchedule) {
  const TestMac mac;
  const std::string text = "pmset: Error 0xe00002c2 scheduling repeating events\n";
  fault(mac, {"--target", kPmSet, "--argument", "repeat", "--status", "1", "--error", text});
  Expect(pmset(mac, {"repeat", "sleep", "M", "22:00:00"}), 1, "", text);
  EXPECT_EQ(settings(mac, kPowerSettings)["repeat"], Json::array());
  Expect(pmset(mac, {"-a", "sleep", "0"}), 0, "", "");
  EXPECT_EQ(mac.journal().front(), Json({{"tool", kPmSet},
                                         {"arguments", {"repeat", "sleep", "M", "22:00:00"}},
                                         {"status", 1},
                                         {"output", text}}));
}

TEST_F(PmSetTool, FailsWhenItCannotWriteTheSettingsDown) {
  const TestMac mac;
  ASSERT_TRUE(std::filesystem::remove(mac.path(kPowerSettings)));
  ASSERT_TRUE(std::filesystem::create_directories(mac.path(kPowerSettings) + "/full"));
  Expect(pmset(mac, {"-a", "sleep", "0"}), 1,
         "pmset: Error 0xe00002c2 writing Energy Saver preferences to disk\n", "");
  Expect(pmset(mac, {"repeat", "cancel"}), 1, "",
         "pmset: Error 0xe00002c2 scheduling repeating events\n");
  EXPECT_EQ(pmset(mac, {"-g"}).status, 0);
}

TEST_F(PmSetTool, WorksOnWhateverIsInItsFile) {
  const TestMac mac;
  for (const char* contents : kMalformed) {
    mac.write(kPowerSettings, contents);
    const std::string text = pmset(mac, {"-g"}).out;
    EXPECT_NE(text.find("\n displaysleep         10\n"), std::string::npos) << contents;
    EXPECT_NE(text.find("\n sleep                1\n"), std::string::npos) << contents;
    EXPECT_EQ(schedule(mac), "No scheduled events.\n") << contents;
    EXPECT_EQ(pmset(mac, {"-a", "displaysleep", "3", "sleep", "5"}).status, 0) << contents;
    EXPECT_EQ(pmset(mac, {"repeat", "wake", "M", "03:00:00"}).status, 0) << contents;
    EXPECT_EQ(settings(mac, kPowerSettings)["settings"]["sleep"], 5) << contents;
    EXPECT_EQ(schedule(mac), "Repeating power events:\n  wake at 3:00AM Monday\n") << contents;
  }
}

class SystemSetupTool : public SettingsTool {
 protected:
  static RunResult systemsetup(const TestMac& mac, const Words& arguments,
                               const std::string& user = "root") {
    return run(mac, kSystemSetup, arguments, user);
  }
  static std::string zone(const TestMac& mac) {
    std::error_code ignored;
    return std::filesystem::read_symlink(mac.path(platform::kMacLocalTime), ignored);
  }
};

TEST_F(SystemSetupTool, KeepsTheTimeServer) {
  const TestMac mac;
  Expect(systemsetup(mac, {"-getnetworktimeserver"}), 0, "Network Time Server: time.apple.com\n",
         "");
  Expect(systemsetup(mac, {"-setnetworktimeserver", "time.aws.com"}), 0,
         "setNetworkTimeServer: time.aws.com\n", "");
  Expect(systemsetup(mac, {"-getnetworktimeserver"}), 0, "Network Time Server: time.aws.com\n", "");
  EXPECT_EQ(settings(mac, kTimeSettings)["server"], "time.aws.com");
}

TEST_F(SystemSetupTool, SwitchesNetworkTime) {
  const TestMac mac;
  Expect(systemsetup(mac, {"-getusingnetworktime"}), 0, "Network Time: On\n", "");
  Expect(systemsetup(mac, {"-setusingnetworktime", "off"}), 0, "setUsingNetworkTime: Off\n", "");
  EXPECT_EQ(settings(mac, kTimeSettings)["usingNetworkTime"], false);
  Expect(systemsetup(mac, {"-getusingnetworktime"}), 0, "Network Time: Off\n", "");
  Expect(systemsetup(mac, {"-setusingnetworktime", "off"}), 0, "Network Time is already off.\n",
         "");
  Expect(systemsetup(mac, {"-setusingnetworktime", "on"}), 0, "setUsingNetworkTime: On\n", "");
  EXPECT_EQ(settings(mac, kTimeSettings)["usingNetworkTime"], true);
}

TEST_F(SystemSetupTool, SetsTheTimeZone) {
  const TestMac mac;
  Expect(systemsetup(mac, {"-gettimezone"}), 0, "Time Zone: America/Los_Angeles\n", "");
  const RunResult set = systemsetup(mac, {"-settimezone", "Europe/Berlin"});
  EXPECT_EQ(set.status, 0);
  EXPECT_EQ(set.out, "Set TimeZone: Europe/Berlin\n");
  EXPECT_EQ(WithoutLogPrefixes(set.err),
            "### Error:-99 File:/AppleInternal/Library/BuildRoots/97f6331a-ba75-11ed-a4bc-863efbbaf"
            "80d/Library/Caches/com.apple.xbs/Sources/Admin/InternetServices.m Line:379\n");
  EXPECT_EQ(zone(mac), "/usr/share/zoneinfo/Europe/Berlin");
  Expect(systemsetup(mac, {"-gettimezone"}), 0, "Time Zone: Europe/Berlin\n", "");
}

TEST_F(SystemSetupTool, RefusesTimeZonesThatAreNoneWithoutFailing) {
  const TestMac mac;
  for (const std::string name :
       {"", "Mars/Base", "Europe", "Europe/", "../zoneinfo/Europe/Berlin", "..",
        "/usr/share/zoneinfo/Europe/Berlin", "Europe/../Europe/Berlin", "zone.tab"}) {
    Expect(systemsetup(mac, {"-settimezone", name}), 0,
           "\"" + name + "\" is not a valid time zone.\n", "");
  }
  EXPECT_EQ(zone(mac), "/usr/share/zoneinfo/America/Los_Angeles");
}

TEST_F(SystemSetupTool, ClaimsATimeZoneThatItDidNotSetWhenAFaultSaysSo) {
  const TestMac mac;
  fault(mac, {"--target", kSystemSetup, "--argument", "-settimezone", "--times", "1", "--status",
              "0", "--output", "Set TimeZone: Europe/Berlin\n"});
  Expect(systemsetup(mac, {"-settimezone", "Europe/Berlin"}), 0, "Set TimeZone: Europe/Berlin\n",
         "");
  EXPECT_EQ(zone(mac), "/usr/share/zoneinfo/America/Los_Angeles");
  (void)systemsetup(mac, {"-settimezone", "Europe/Berlin"});
  EXPECT_EQ(zone(mac), "/usr/share/zoneinfo/Europe/Berlin");
}

TEST_F(SystemSetupTool, RefusesOrdinaryUsersWithoutFailing) {
  const TestMac mac;
  const std::string before = mac.read(kTimeSettings);
  for (const Words& arguments :
       {Words{}, Words{"-gettimezone"}, Words{"-setusingnetworktime", "off"},
        Words{"-settimezone", "Europe/Berlin"}, Words{"-setnetworktimeserver", "x.example"}}) {
    Expect(systemsetup(mac, arguments, "admin"), 0,
           "You need administrator access to run this tool... exiting!\n", "");
  }
  EXPECT_EQ(mac.read(kTimeSettings), before);
  EXPECT_EQ(zone(mac), "/usr/share/zoneinfo/America/Los_Angeles");
}

TEST_F(SystemSetupTool, ConfirmsNothingThatItCouldNotDo) {
  const TestMac mac;
  for (const char* path : {kTimeSettings, platform::kMacLocalTime}) {
    ASSERT_TRUE(std::filesystem::remove(mac.path(path)));
    ASSERT_TRUE(std::filesystem::create_directories(mac.path(path) + "/full"));
  }
  for (const Words& arguments :
       {Words{"-setusingnetworktime", "off"}, Words{"-setnetworktimeserver", "x.example"},
        Words{"-settimezone", "Europe/Berlin"}}) {
    const RunResult result = systemsetup(mac, arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("### Error:-99"), std::string::npos);
  }
  Expect(systemsetup(mac, {"-gettimezone"}), 0, "Time Zone: GMT\n", "");
  for (const auto& entry : std::filesystem::directory_iterator(mac.path("/private/etc"))) {
    EXPECT_NE(entry.path().filename().string().rfind("localtime.", 0), 0U) << entry.path();
  }
}

TEST_F(SystemSetupTool, ExplainsWrongUse) {
  const TestMac mac;
  for (const Words& arguments :
       {Words{}, Words{"-getcolour"}, Words{"-settimezone"}, Words{"-gettimezone", "x"},
        Words{"-setusingnetworktime", "maybe"}, Words{"-setnetworktimeserver", "a", "b"}}) {
    const RunResult result = systemsetup(mac, arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out.rfind("Usage: systemsetup ", 0), 0U) << result.out;
  }
}

TEST_F(SystemSetupTool, WorksOnWhateverIsInItsFile) {
  const TestMac mac;
  for (const char* contents : kMalformed) {
    mac.write(kTimeSettings, contents);
    EXPECT_EQ(systemsetup(mac, {"-getnetworktimeserver"}).out,
              "Network Time Server: time.apple.com\n")
        << contents;
    EXPECT_EQ(systemsetup(mac, {"-getusingnetworktime"}).out, "Network Time: On\n") << contents;
    EXPECT_EQ(systemsetup(mac, {"-setnetworktimeserver", "x.example"}).status, 0) << contents;
    EXPECT_EQ(settings(mac, kTimeSettings)["server"], "x.example") << contents;
  }
}

class SntpTool : public SettingsTool {
 protected:
  static RunResult sntp(const TestMac& mac, const Words& arguments,
                        const std::string& user = "root") {
    return run(mac, kSntp, arguments, user);
  }
};

TEST_F(SntpTool, SetsTheClockAndSaysHowFarItWasOut) {
  const TestMac mac;
  Expect(sntp(mac, {"-sS", "time.apple.com"}), 0,
         "+0.012300 +/- 0.004000 time.apple.com 192.0.2.123\n", "");
  const Json time = settings(mac, kTimeSettings);
  EXPECT_EQ(time["lastStep"], Json({{"server", "time.apple.com"}, {"offset", 0.0123}}));
  Expect(sntp(mac, {"-sS", "time.apple.com"}), 0,
         "+0.000000 +/- 0.004000 time.apple.com 192.0.2.123\n", "");
}

TEST_F(SntpTool, PrintsWhatTheMacSaysOfItsClock) {
  const TestMac mac;
  change(mac, kTimeSettings,
         {{"offset", 472987.781619}, {"error", 0.022394}, {"address", "17.253.60.45"}});
  Expect(sntp(mac, {"-sS", "133.243.238.163"}), 0,
         "+472987.781619 +/- 0.022394 133.243.238.163 133.243.238.163\n", "");
  change(mac, kTimeSettings, {{"offset", -3.25}});
  Expect(sntp(mac, {"-s", "-S", "2620:149:a33:3000::31"}), 0,
         "-3.250000 +/- 0.022394 2620:149:a33:3000::31 2620:149:a33:3000::31\n", "");
  change(mac, kTimeSettings, {{"offset", 1}});
  Expect(sntp(mac, {"time.apple.com"}), 0, "+1.000000 +/- 0.022394 time.apple.com 17.253.60.45\n",
         "");
  EXPECT_EQ(settings(mac, kTimeSettings)["lastStep"]["offset"], -3.25);
}

TEST_F(SntpTool, FailsWhenNamesDoNotResolve) {
  const TestMac mac;
  change(mac, kTimeSettings, {{"resolves", false}});
  Expect(sntp(mac, {"-sS", "ntp.nict.jp"}), 69,
         "sntp_exchange {\n"
         "        result: 1 (DNS lookup failure)\n"
         "        header: 00 (li:0 vn:0 mode:0)\n"
         "       stratum: 00 (0)\n"
         "          poll: 00 (1)\n"
         "     precision: 00 (1.000000e+00)\n"
         "         delay: 0000.0000 (0.000000000)\n"
         "    dispersion: 0000.0000 (0.000000000)\n"
         "}\n",
         "sntp: Exchange failed: DNS lookup failure\n");
  EXPECT_FALSE(settings(mac, kTimeSettings).contains("lastStep"));
  EXPECT_EQ(sntp(mac, {"-sS", "133.243.238.163"}).status, 0);
}

TEST_F(SntpTool, FailsWhenNoServerAnswers) {
  const TestMac mac;
  change(mac, kTimeSettings, {{"reachable", false}});
  for (const char* server : {"time.apple.com", "10.10.206.204"}) {
    Expect(sntp(mac, {"-sS", server}), 69, "",
           "sntp: Exchange failed: Timeout\n"
           "sntp: Exchange failed: Timeout\n"
           "sntp: Exchange failed: Timeout\n"
           "sntp: Exchange failed: Timeout\n"
           "sntp: Exchange failed: Timeout\n"
           "sntp: Clock select failed\n");
  }
  EXPECT_FALSE(settings(mac, kTimeSettings).contains("lastStep"));
}

TEST_F(SntpTool, LetsOrdinaryUsersOnlyLook) {
  const TestMac mac;
  const std::string line = "+0.012300 +/- 0.004000 time.apple.com 192.0.2.123\n";
  Expect(sntp(mac, {"time.apple.com"}, "admin"), 0, line, "");
  Expect(sntp(mac, {"-sS", "time.apple.com"}, "admin"), 77, line,
         "sntp: settimeofday: Operation not permitted\n");
  EXPECT_FALSE(settings(mac, kTimeSettings).contains("lastStep"));
}

TEST_F(SntpTool, CanBeMadeToWarnFirst) {
  const TestMac mac;
  const std::string text =
      "kod_init_kod_db(): Cannot open KoD db file /var/db/ntp-kod: No such file or directory\n"
      "-0.020000 +/- 0.01 time.apple.com 17.253.4.125\n";
  fault(mac, {"--target", kSntp, "--output", text, "--effect"});
  Expect(sntp(mac, {"-sS", "time.apple.com"}), 0, text, "");
  EXPECT_EQ(settings(mac, kTimeSettings)["offset"], 0.0);
  EXPECT_EQ(mac.journal().front(), Json({{"tool", kSntp},
                                         {"arguments", {"-sS", "time.apple.com"}},
                                         {"status", 0},
                                         {"output", text}}));
}

TEST_F(SntpTool, ExplainsWrongUse) {
  const TestMac mac;
  for (const Words& arguments : {Words{}, Words{"-sS"}, Words{"-x", "time.apple.com"}, Words{"-"},
                                 Words{""}, Words{"a.example", "b.example"}}) {
    Expect(sntp(mac, arguments), 64, "", "usage: sntp [-sS] server\n");
  }
}

TEST_F(SntpTool, WorksOnWhateverIsInItsFile) {
  const TestMac mac;
  for (const char* contents : kMalformed) {
    mac.write(kTimeSettings, contents);
    Expect(sntp(mac, {"-sS", "time.apple.com"}), 0,
           "+0.000000 +/- 0.000000 time.apple.com 192.0.2.123\n", "");
    EXPECT_EQ(settings(mac, kTimeSettings)["lastStep"]["server"], "time.apple.com") << contents;
  }
}

class KickStartTool : public SettingsTool {};

TEST_F(KickStartTool, RestartsTheTimeDaemonSilently) {
  const TestMac mac;
  const Words arguments = {"kickstart", "-k", "system/com.apple.timed"};
  Expect(run(mac, kLaunchCtl, arguments), 0, "", "");
  EXPECT_EQ(mac.journal().back(),
            Json({{"tool", kLaunchCtl}, {"arguments", arguments}, {"status", 0}, {"output", ""}}));
  Expect(run(mac, kLaunchCtl, {"kickstart", "system/com.apple.timed"}), 0, "", "");
}

TEST_F(KickStartTool, CanBeMadeToRefuseAsSystemIntegrityProtectionDoes) {
  const TestMac mac;
  const std::string text =
      "Could not kickstart service \"com.apple.timed\": 150: Operation not permitted while System "
      "Integrity Protection is engaged\n";
  fault(mac,
        {"--target", kLaunchCtl, "--argument", "kickstart", "--status", "150", "--error", text});
  Expect(run(mac, kLaunchCtl, {"kickstart", "-k", "system/com.apple.timed"}), 150, "", text);
}

TEST_F(KickStartTool, RefusesOrdinaryUsersAndServicesThatItDoesNotHave) {
  const TestMac mac;
  Expect(run(mac, kLaunchCtl, {"kickstart", "-k", "system/com.apple.timed"}, "admin"), 1, "",
         "Could not kickstart service \"com.apple.timed\": 1: Operation not permitted\n");
  Expect(run(mac, kLaunchCtl, {"kickstart", "-k", "system/com.example.none"}), 113, "",
         "Could not find service \"com.example.none\" in domain for system\n");
  Expect(run(mac, kLaunchCtl, {"kickstart", "-k", "com.apple.timed"}), 64, "",
         "Unrecognized target specifier.\n");
  for (const Words& arguments : {Words{"kickstart"}, Words{"kickstart", "-k"},
                                 Words{"kickstart", "-x", "system/com.apple.timed"}}) {
    EXPECT_EQ(run(mac, kLaunchCtl, arguments).status, 64);
  }
}

}  // namespace
}  // namespace simmac
