#include <gtest/gtest.h>

#include <string>

#include "platform/Calendar.h"
#include "settings/KioskTime.h"
#include "tests/unit/OutputRules.h"
#include "tests/unit/Random.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

std::optional<double> Offset(const std::string& text) {
  double offsetMs = 0;
  if (!KioskSntpParse(text, offsetMs)) return std::nullopt;
  return offsetMs;
}

std::optional<std::string> TimeServer(const std::string& text) {
  return KioskTimeServerParse(text);
}

TEST(TimeZone, IsAnyThatTheSystemKnows) {
  for (const std::string& zone : platform::CalendarKnownTimeZones()) {
    EXPECT_EQ(KioskTimeZoneValid(zone), zone.size() <= 64) << zone;
  }
}

TEST(TimeZone, IsNoOtherName) {
  for (const std::string& zone :
       {std::string("Mars/Base"), std::string(), std::string("Europe/Berlin "),
        std::string("Europe/Berlin\n"), std::string("Europe"), std::string("../Europe/Berlin"),
        std::string("zoneinfo/Europe/Berlin"), std::string(65, 'A')}) {
    EXPECT_FALSE(KioskTimeZoneValid(zone)) << zone;
  }
}

TEST(TimeZone, IsText) {
  for (const char* text : {"null", "1", "true", "{}", "[\"Europe/Berlin\"]"}) {
    EXPECT_FALSE(KioskTimeZoneValid(Json::parse(text))) << text;
  }
}

TEST(ClockOffset, IsReadInMilliseconds) {
  struct Reading {
    const char* text;
    double milliseconds;
  };
  for (const Reading& reading :
       {Reading{"+0.171773 +/- 0.105399 time.apple.com 17.253.60.45", 171.773},
        Reading{"+0.024490 +/- 0.016059 time.apple.com 17.253.2.43", 24.490},
        Reading{"+0.184773 +/- 0.109443 time.apple.com 2620:149:a33:3000::31", 184.773},
        Reading{"+472987.781619 +/- 0.022394 133.243.238.163 133.243.238.163", 472'987'781.619},
        Reading{"+0.000906 +/- 0.022017 ntp.nict.jp 133.243.238.243", 0.906},
        Reading{"-0.020000 +/- 0.01 time.apple.com 17.253.4.125", -20},
        Reading{"-0.0125 +/- 0.01 time.apple.com 17.253.4.125", -12.5}}) {
    const std::optional<double> offset = Offset(reading.text);
    ASSERT_TRUE(offset) << reading.text;
    EXPECT_DOUBLE_EQ(*offset, reading.milliseconds) << reading.text;
  }
}

TEST(ClockOffset, IsFoundOnALaterLine) {
  EXPECT_EQ(Offset("sntp_exchange {\n  result: 6 (Timeout)\n}\n"
                   "-3.250000 +/- 0.014937 time.apple.com 17.253.38.35"),
            -3250);
  for (const char* newline : {"\n", "\r\n", "\r", "\v", "\f", "\u0085", "\u2028", "\u2029"}) {
    EXPECT_EQ(Offset(std::string("noise") + newline + "+1 +/- 1 host"), 1000)
        << testing::PrintToString(newline);
  }
}

TEST(ClockOffset, IsTheFirstOne) { EXPECT_EQ(Offset("x\n+1 +/- 1 host\n+2 +/- 1 host"), 1000); }

TEST(ClockOffset, IsNotInOutputThatTellsOfFailure) {
  for (const char* text :
       {"sntp: Exchange failed: DNS lookup failure\n"
        "sntp_exchange {\n"
        "        result: 1 (DNS lookup failure)\n"
        "        header: 00 (li:0 vn:0 mode:0)\n"
        "       stratum: 00 (0)\n"
        "          poll: 00 (1)\n"
        "     precision: 00 (1.000000e+00)\n"
        "         delay: 0000.0000 (0.000000000)\n"
        "    dispersion: 0000.0000 (0.000000000)\n"
        "}",
        "sntp: Exchange failed: DNS lookup failure\nsntp: Clock select failed",
        "sntp: Exchange failed: Timeout\nsntp: Exchange failed: Timeout\nsntp: Clock select failed",
        "sntp: Exchange failed: Timeout\n"
        "        offset: FFFFFFFFFFFFFFFF.FF7DC11600000000 (-0.001987393)\n"
        "         delay: 0000000000000000.171CCB6C00000000 (0.090283121)",
        "kod_init_kod_db(): Cannot open KoD db file /var/db/ntp-kod: No such file or directory",
        ""}) {
    EXPECT_EQ(Offset(text), std::nullopt) << text;
  }
}

TEST(ClockOffset, IsNotInADescriptionOfTheExchange) {
  EXPECT_EQ(Offset("selected:\n"
                   "sntp_exchange {\n"
                   "        result: 0 (Success)\n"
                   "        header: 24 (li:0 vn:4 mode:4)\n"
                   "       stratum: 02 (2)\n"
                   "          poll: 00 (1)\n"
                   "     precision: FFFFFFE7 (2.980232e-08)\n"
                   "         delay: 0000.0396 (0.014007568)\n"
                   "    dispersion: 0000.0003 (0.000045776)\n"
                   "           ref: ED11CC5F (95.204.17.237)\n"
                   "         t_ref: E92D4E4B.2335A41E (3912060491.137537247)\n"
                   "            t1: E92D4E62.B7E5B856 (3912060514.718348999)\n"
                   "        offset: FFFFFFFFFFFFFFF8.1289A73B00000000 (-0.007587078)\n"
                   "         error: 0000000000000000.01CE000000000000 (0.007049561)\n"
                   "          addr: 10.1.1.1\n"
                   "}"),
            std::nullopt);
}

TEST(ClockOffset, HasTheFormThatSntpWrites) {
  for (const char* text : {"1 +/- 1 ", "+1 +/- 1 x", "-1.5 +/- ... x", "001.50 +/- 0 x"}) {
    EXPECT_TRUE(Offset(text)) << text;
  }
  for (const char* text :
       {" +1 +/- 1 x", "+ 1 +/- 1 x", "+-1 +/- 1 x", "+1. +/- 1 x", "+.5 +/- 1 x", "+1.5.5 +/- 1 x",
        "+1 +- 1 x", "+1  +/- 1 x", "+1 +/-  1 x", "+1 +/- x", "+1 +/- -1 x", "+1 +/- 1",
        "+1 +/- 1x", "+1 +/- 1\tx", "+1e3 +/- 1 x", "+1,5 +/- 1 x", "\u22121 +/- 1 x",
        "+1\u00A0+/- 1 x"}) {
    EXPECT_EQ(Offset(text), std::nullopt) << text;
  }
}

TEST(ClockOffset, LeavesTheResultAloneWhenThereIsNone) {
  double offsetMs = 42;
  EXPECT_FALSE(KioskSntpParse("sntp: Clock select failed", offsetMs));
  EXPECT_EQ(offsetMs, 42);
}

std::string NearlyOffset(Random& random) {
  static const std::vector<std::string> starts{"", "+", "-", "+", " ", "x"};
  static const std::vector<std::string> fractions{"", ".", ".5", ".0125", "."};
  static const std::vector<std::string> middles{" +/- ", " +/- ", " +/- ", " +- "};
  static const std::vector<std::string> ends{"0.01 host", "1 ", "1", "... x", "", "x"};
  std::string line = random.pick(starts) + random.text("0129", random.below(4)) +
                     random.pick(fractions) + random.pick(middles) + random.pick(ends);
  if (random.oneIn(8)) line.erase(random.below(line.size()), 1);
  return line;
}

TEST(ClockOffset, AgreesWithThePatternOnRandomOutput) {
  static const std::vector<std::string> newlines{"\n",     "\r\n",   "\r",     "\v", "\f",
                                                 "\u0085", "\u2028", "\u2029", " ",  "\n\n"};
  Random random(61);
  int found = 0;
  for (int round = 0; round < 3'000; ++round) {
    std::string text;
    for (std::size_t lines = random.below(6); lines > 0; --lines) {
      text += NearlyOffset(random) + random.pick(newlines);
    }
    const std::optional<double> expected = OffsetByPattern(text);
    found += expected ? 1 : 0;
    ASSERT_EQ(Offset(text), expected) << testing::PrintToString(text);
  }
  EXPECT_GT(found, 300);
  EXPECT_LT(found, 2'700);
}

TEST(TimeServer, IsReadFromWhatTheToolSays) {
  EXPECT_EQ(TimeServer("Network Time Server: time.apple.com"), "time.apple.com");
  EXPECT_EQ(TimeServer("Network Time Server: time.euro.apple.com\n"), "time.euro.apple.com");
  EXPECT_EQ(TimeServer("Network Time Server: 169.254.169.123"), "169.254.169.123");
  EXPECT_EQ(TimeServer("Network Time Server:Time-1.example"), "Time-1.example");
}

TEST(TimeServer, IsFoundBehindNoise) {
  EXPECT_EQ(TimeServer("2024-12-09 14:20:14.400 systemsetup[18647:239595] ### Error:-99 "
                       "File:/AppleInternal/InternetServices.m Line:379\n"
                       "Network Time Server: time.apple.com"),
            "time.apple.com");
}

TEST(TimeServer, IsTheFirstWordBehindTheLabel) {
  EXPECT_EQ(TimeServer("Network Time Server: \t\u2003a.b\u00A0c.d"), "a.b");
  EXPECT_EQ(TimeServer("Network Time Server:\n\n a.b\nc.d"), "a.b");
  EXPECT_EQ(TimeServer("Network Time Server: a Network Time Server: b"), "a");
}

TEST(TimeServer, IsNotInOtherOutput) {
  for (const char* text :
       {"Network Time: On", "Network Time: Off", "Time Zone: Europe/Berlin",
        "You need administrator access to run this tool... exiting!", "setUsingNetworkTime: Off",
        "Network Time is already off.", "setNetworkTimeServer: time.aws.com",
        "2024-12-09 14:20:14.400 systemsetup[18647:239595] ### Error:-99 "
        "File:/AppleInternal/InternetServices.m Line:379\nsetcomputersleep: Never",
        "setremotelogin: Turning Remote Login on or off requires Full Disk Access privileges.",
        "Sleep: Computer sleeps after 1 minutes\nSleep: Display sleeps after 10 minutes",
        "Restart After Power Failure: Not supported on this machine.",
        "getAllowPowerButtonToSleepComputer: On", "network time server: a.b",
        "Network  Time Server: a.b", "Network Time Server a.b", ""}) {
    EXPECT_EQ(TimeServer(text), std::nullopt) << text;
  }
}

TEST(TimeServer, HasAnOrdinaryName) {
  for (const char* name :
       {"-a.b", ".a", "a_b", "a/b", "b\u00FC.de", "a,b", "[::1]", "a:1", "", " "}) {
    EXPECT_EQ(TimeServer(std::string("Network Time Server: ") + name), std::nullopt) << name;
  }
  for (const char* name : {"a", "0", "a-", "a.", "a..b", "A.B"}) {
    EXPECT_EQ(TimeServer(std::string("Network Time Server: ") + name), name);
  }
}

TEST(TimeServer, HasANameOfUpTo253Characters) {
  const std::string name(253, 'a');
  EXPECT_EQ(TimeServer("Network Time Server: " + name), name);
  EXPECT_EQ(TimeServer("Network Time Server: " + name + "a"), std::nullopt);
}

TEST(TimeServer, AgreesWithThePatternOnRandomOutput) {
  static const std::vector<std::string> pieces{"Network Time Server:",
                                               "Network Time Server",
                                               "Time",
                                               " ",
                                               "\t",
                                               "\n",
                                               "\u00A0",
                                               "\u2028",
                                               "\u0085",
                                               "time.apple.com",
                                               "-a",
                                               "a_b",
                                               "9",
                                               "A.b-c",
                                               "\u00E9",
                                               ":"};
  Random random(62);
  int found = 0;
  for (int round = 0; round < 10'000; ++round) {
    std::string text;
    for (std::size_t count = random.below(4); count > 0; --count) text += random.pick(pieces);
    if (!random.oneIn(8)) text += "Network Time Server: ";
    for (std::size_t count = random.below(5); count > 0; --count) text += random.pick(pieces);
    const std::optional<std::string> expected = TimeServerByPattern(text);
    found += expected ? 1 : 0;
    ASSERT_EQ(TimeServer(text), expected) << testing::PrintToString(text);
  }
  EXPECT_GT(found, 1'000);
  EXPECT_LT(found, 9'000);
}

}  // namespace
