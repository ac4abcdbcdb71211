#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "settings/KioskPower.h"
#include "settings/KioskPowerApply.h"
#include "tests/unit/OutputRules.h"
#include "tests/unit/Random.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

using Arguments = std::vector<std::string>;

Json Policy(int screenOffMinutes, int sleepMinutes, bool enabled) {
  Json policy = KioskPowerDefault();
  policy["screenOffMinutes"] = screenOffMinutes;
  policy["sleepMinutes"] = sleepMinutes;
  policy["schedule"]["enabled"] = enabled;
  return policy;
}

std::optional<Json> Settings(int displaySleep, int sleep) {
  return Json{{"displaysleep", displaySleep}, {"sleep", sleep}};
}

TEST(PmsetDays, WritesALetterForEachDayAndMondayFirst) {
  EXPECT_EQ(KioskPmsetDays({0, 1, 2, 3, 4, 5, 6}), "MTWRFSU");
  EXPECT_EQ(KioskPmsetDays({1, 2, 3, 4, 5}), "MTWRF");
  EXPECT_EQ(KioskPmsetDays({0, 6}), "SU");
  EXPECT_EQ(KioskPmsetDays({0, 3, 6}), "WSU");
  EXPECT_EQ(KioskPmsetDays(Json::array()), "");
}

TEST(PmsetDays, WritesEverySetOfDaysInThatOrder) {
  static constexpr std::array<int, 7> days{1, 2, 3, 4, 5, 6, 0};
  static constexpr std::string_view letters = "MTWRFSU";
  for (unsigned set = 0; set < 128; ++set) {
    Json ascending = Json::array();
    std::string expected;
    for (std::size_t at = 0; at < days.size(); ++at) {
      if ((set >> at & 1) == 0) continue;
      ascending.push_back(days[at]);
      expected += letters[at];
    }
    std::sort(ascending.begin(), ascending.end());
    ASSERT_EQ(KioskPmsetDays(ascending), expected) << ascending;
  }
}

TEST(PmsetTimeouts, AreSetForAllPowerSources) {
  EXPECT_EQ(KioskPowerTimeoutArgs(KioskPowerDefault()),
            (Arguments{"-a", "displaysleep", "15", "sleep", "0"}));
  EXPECT_EQ(KioskPowerTimeoutArgs(Policy(240, 1, true)),
            (Arguments{"-a", "displaysleep", "240", "sleep", "1"}));
}

TEST(PmsetSchedule, SleepsAndWakesOnTheSameDays) {
  EXPECT_EQ(
      KioskPowerScheduleArgs(Policy(15, 0, true)),
      (Arguments{"repeat", "sleep", "MTWRF", "22:00:00", "wakeorpoweron", "MTWRF", "07:00:00"}));
}

TEST(PmsetSchedule, TakesTimesAndDaysFromThePolicy) {
  Json policy = Policy(15, 0, true);
  policy["schedule"]["days"] = {0, 3, 6};
  policy["schedule"]["sleepAt"] = "00:05";
  policy["schedule"]["wakeAt"] = "23:59";
  EXPECT_EQ(KioskPowerScheduleArgs(policy),
            (Arguments{"repeat", "sleep", "WSU", "00:05:00", "wakeorpoweron", "WSU", "23:59:00"}));
}

TEST(PmsetSchedule, IsCancelledWhenItIsDisabled) {
  EXPECT_EQ(KioskPowerScheduleArgs(Policy(15, 0, false)), (Arguments{"repeat", "cancel"}));
}

TEST(PmsetSettings, StandOnLinesThatAnyNewlineEnds) {
  for (const char* newline : {"\n", "\r\n", "\r", "\v", "\f", "\u0085", "\u2028", "\u2029"}) {
    const std::string text = std::string("sleep 1") + newline + "displaysleep 2";
    EXPECT_EQ(KioskPowerParsePmset(text), (Json{{"displaysleep", 2}, {"sleep", 1}}))
        << testing::PrintToString(newline);
    EXPECT_EQ(KioskPowerParsePmset(std::string("displaysleep 2\nsleep") + newline + "1"),
              std::nullopt)
        << testing::PrintToString(newline);
  }
}

TEST(PmsetSettings, AreReadFromADesktop) {
  EXPECT_EQ(KioskPowerParsePmset(R"(System-wide power settings:
Currently in use:
 standby              0
 Sleep On Power Button 1
 womp                 1
 hibernatefile        /var/vm/sleepimage
 proximitywake        0
 powernap             0
 networkoversleep     0
 disksleep            10
 standbydelayhigh     86400
 sleep                1 (sleep prevented by UserEventAgent)
 autopoweroffdelay    259200
 hibernatemode        0
 autopoweroff         0
 ttyskeepawake        1
 displaysleep         10
 tcpkeepalive         0
 highstandbythreshold 50
 standbydelaylow      86400)"),
            Settings(10, 1));
}

TEST(PmsetSettings, AreReadBehindASystemWideSettingWithTabs) {
  EXPECT_EQ(KioskPowerParsePmset("System-wide power settings:\n"
                                 " SleepDisabled\t\t0\n"
                                 "Currently in use:\n"
                                 " standby              1\n"
                                 " Sleep On Power Button 1\n"
                                 " autorestartatconnect 0\n"
                                 " autorestart          0\n"
                                 " powernap             1\n"
                                 " networkoversleep     0\n"
                                 " disksleep            10\n"
                                 " sleep                1 (sleep prevented by powerd, "
                                 "runningboardd)\n"
                                 " ttyskeepawake        1\n"
                                 " displaysleep         10\n"
                                 " tcpkeepalive         1\n"
                                 " lowpowermode         0\n"
                                 " womp                 1"),
            Settings(10, 1));
}

TEST(PmsetSettings, AreReadInFrontOfWhatPreventsTheSleep) {
  EXPECT_EQ(KioskPowerParsePmset(R"(System-wide power settings:
 SleepDisabled		0
Currently in use:
 standby              1
 Sleep On Power Button 1
 hibernatefile        /var/vm/sleepimage
 powernap             1
 networkoversleep     0
 disksleep            10
 sleep                0 (sleep prevented by coreaudiod, powerd, HelmApp)
 hibernatemode        3
 ttyskeepawake        1
 displaysleep         20 (display sleep prevented by HelmApp)
 tcpkeepalive         1
 lowpowermode         0
 womp                 1)"),
            Settings(20, 0));
  EXPECT_EQ(KioskPowerParsePmset(R"(System-wide power settings:
 SleepDisabled		1
Currently in use:
 standby              0
 sleep                1 (sleep prevented by Deep Sleep, powerd)
 displaysleep         0
 hibernatefile        /var/vm/sleepimage
 lowpowermode         0)"),
            Settings(0, 1));
}

TEST(PmsetSettings, AreReadFromAnExcerpt) {
  EXPECT_EQ(KioskPowerParsePmset(R"(standby              1
     hibernatefile        /var/vm/sleepimage
     networkoversleep     0
     disksleep            0
     sleep                0 (sleep prevented by caffeinate, caffeinate, WindowServer, powerd)
     hibernatemode        3
     displaysleep         10 (display sleep prevented by caffeinate))"),
            Settings(10, 0));
}

TEST(PmsetSettings, AreNoneWhenOneIsMissing) {
  EXPECT_EQ(KioskPowerParsePmset(" displaysleep 10\n disksleep 10"), std::nullopt);
  EXPECT_EQ(KioskPowerParsePmset(" sleep 10\n Sleep On Power Button 1"), std::nullopt);
  EXPECT_EQ(KioskPowerParsePmset(""), std::nullopt);
  EXPECT_EQ(KioskPowerParsePmset("\n\n"), std::nullopt);
}

TEST(PmsetSettings, ComeFromTheFirstLineThatHasThem) {
  EXPECT_EQ(KioskPowerParsePmset("sleep x\nsleep 1\ndisplaysleep 2\nsleep 3\ndisplaysleep 4"),
            Settings(2, 1));
}

TEST(PmsetSettings, StandAtTheStartOfALine) {
  EXPECT_EQ(KioskPowerParsePmset("sleep 1\nno displaysleep 2"), std::nullopt);
  EXPECT_EQ(KioskPowerParsePmset("sleep 1 displaysleep 2"), std::nullopt);
  EXPECT_EQ(KioskPowerParsePmset("\t\u00A0sleep\u2003\t1\n\n\n  displaysleep 2"), Settings(2, 1));
}

TEST(PmsetSettings, AreNumbersOfOneToFiveDigits) {
  EXPECT_EQ(KioskPowerParsePmset("sleep 99999\ndisplaysleep 00007"), Settings(7, 99'999));
  for (const char* value : {"123456", "-1", "+1", "never", "", "1x", "1_", "0x1", "1\u00E9"}) {
    EXPECT_EQ(KioskPowerParsePmset(std::string("displaysleep 2\nsleep ") + value), std::nullopt)
        << value;
  }
  for (const char* value : {"1", "1 ", "1.5", "1-2", "1,", "1(x)", "1\t", "1\u2003x"}) {
    EXPECT_EQ(KioskPowerParsePmset(std::string("displaysleep 2\nsleep ") + value), Settings(2, 1))
        << value;
  }
}

TEST(PmsetSettings, NeedSpaceBetweenNameAndNumber) {
  EXPECT_EQ(KioskPowerParsePmset("displaysleep 2\nsleep1"), std::nullopt);
  EXPECT_EQ(KioskPowerParsePmset("displaysleep 2\nsleep:1"), std::nullopt);
  EXPECT_EQ(KioskPowerParsePmset("displaysleep 2\nsleep\n1"), std::nullopt);
  EXPECT_EQ(KioskPowerParsePmset("displaysleep 2\nSleep 1"), std::nullopt);
}

std::string NearlySetting(Random& random) {
  static const std::vector<std::string> spaces{"", " ", "\t", "  ", "\u00A0", " \u2003"};
  static const std::vector<std::string> keys{"sleep",        "displaysleep", "sleep",
                                             "displaysleep", "disksleep",    "Sleep"};
  static const std::vector<std::string> tails{"",  "",   " (sleep prevented by x)",
                                              "x", ".5", "\u00E9"};
  std::string line = random.pick(spaces) + random.pick(keys) + random.pick(spaces) +
                     random.text("0123456789", random.below(8)) + random.pick(tails);
  if (!line.empty() && random.oneIn(10)) line.erase(random.below(line.size()), 1);
  return line;
}

TEST(PmsetSettings, AgreeWithThePatternOnRandomOutput) {
  static const std::vector<std::string> newlines{"\n", "\n",     "\r\n",   "\r",
                                                 "\f", "\u0085", "\u2028", "\u2029"};
  Random random(31);
  int found = 0;
  for (int round = 0; round < 1'500; ++round) {
    std::string text;
    for (std::size_t lines = random.below(9); lines > 0; --lines) {
      text += NearlySetting(random) + random.pick(newlines);
    }
    const std::optional<Json> expected = PowerSettingsByPattern(text);
    found += expected ? 1 : 0;
    ASSERT_EQ(KioskPowerParsePmset(text), expected) << testing::PrintToString(text);
  }
  EXPECT_GT(found, 150);
  EXPECT_LT(found, 1'350);
}

}  // namespace
