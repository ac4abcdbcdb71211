#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/KioskText.h"
#include "tests/unit/OutputRules.h"
#include "tests/unit/Random.h"
#include "tests/unit/Spaces.h"
#include "tests/unit/UpdatePatterns.h"
#include "updates/KioskSoftwareUpdate.h"

namespace {

TEST(UpdateProgress, IsUnknownWithoutAPercentage) {
  for (const char* text :
       {"", "%", "50", "50 %", "x%", ".%", "12.%", "5.%", "-%", "\u0665%", "50\uFF05", "50\n%",
        "Software Update Tool\n\nFinding available software\n\nDownloading Command Line Tools for "
        "Xcode\nDone with Command Line Tools for Xcode\nDone.\n"}) {
    EXPECT_EQ(KioskSoftwareUpdateProgress(text), -1.0) << text;
  }
}

TEST(UpdateProgress, IsTheLastPercentage) {
  EXPECT_EQ(KioskSoftwareUpdateProgress("12.5% of it, later 40%"), 40);
  EXPECT_EQ(KioskSoftwareUpdateProgress("40% and 12.5%"), 12.5);
  EXPECT_EQ(KioskSoftwareUpdateProgress("40% 12.% 13 %"), 40);
  EXPECT_EQ(KioskSoftwareUpdateProgress("40%% 100"), 40);
}

TEST(UpdateProgress, IsReadFromRunningOutput) {
  EXPECT_EQ(KioskSoftwareUpdateProgress("Downloading macOS Tahoe 26.7\nDownloading: 0.10%"
                                        "Downloading: 1.00%Downloading: 59.80%"),
            59.8);
  EXPECT_EQ(KioskSoftwareUpdateProgress("\rDownloading: 0.10%\rDownloading: 12.30%\rDownloading: "
                                        "100.00%\nDownloaded: macOS Sequoia 15.7.4\n"),
            100);
  EXPECT_EQ(KioskSoftwareUpdateProgress("042-15018: Package reference is missing\n"
                                        "Installing: 0.0%\nInstall finished successfully\n"),
            0);
}

TEST(UpdateProgress, LiesBetweenZeroAndAHundred) {
  EXPECT_EQ(KioskSoftwareUpdateProgress("0%"), 0);
  EXPECT_EQ(KioskSoftwareUpdateProgress("000%"), 0);
  EXPECT_EQ(KioskSoftwareUpdateProgress("100%"), 100);
  EXPECT_EQ(KioskSoftwareUpdateProgress("100.000%"), 100);
  for (const char* text : {"100.5%", "100.01%", "101%", "250%", "999.9%"}) {
    EXPECT_EQ(KioskSoftwareUpdateProgress(text), -1.0) << text;
  }
}

TEST(UpdateProgress, IsUnknownWhenTheLastPercentageIsOutOfRange) {
  EXPECT_EQ(KioskSoftwareUpdateProgress("40% then 250%"), -1.0);
  EXPECT_EQ(KioskSoftwareUpdateProgress("250% then 40%"), 40);
}

TEST(UpdateProgress, HasUpToThreeDigitsBeforeThePoint) {
  EXPECT_EQ(KioskSoftwareUpdateProgress("1234%"), -1.0);
  EXPECT_EQ(KioskSoftwareUpdateProgress("1034%"), 34);
  EXPECT_EQ(KioskSoftwareUpdateProgress("1000.5%"), 0.5);
  EXPECT_EQ(KioskSoftwareUpdateProgress("99999000100%"), 100);
  EXPECT_EQ(KioskSoftwareUpdateProgress("007%"), 7);
}

TEST(UpdateProgress, BeginsWhereThePatternCanMatch) {
  EXPECT_EQ(KioskSoftwareUpdateProgress(".5%"), 5);
  EXPECT_EQ(KioskSoftwareUpdateProgress("-5%"), 5);
  EXPECT_EQ(KioskSoftwareUpdateProgress("12.5.7%"), 5.7);
  EXPECT_EQ(KioskSoftwareUpdateProgress("12..7%"), 7);
  EXPECT_EQ(KioskSoftwareUpdateProgress("1.1234%"), 1.1234);
  EXPECT_EQ(KioskSoftwareUpdateProgress("1,5%"), 5);
  EXPECT_EQ(KioskSoftwareUpdateProgress("1e2%"), 2);
  EXPECT_EQ(KioskSoftwareUpdateProgress("0x10%20"), 10);
}

TEST(UpdateProgress, MayHaveManyDigits) {
  const std::string zeros(1 << 20, '0');
  EXPECT_EQ(KioskSoftwareUpdateProgress("7." + zeros + "%"), 7);
  EXPECT_EQ(KioskSoftwareUpdateProgress("7." + zeros), -1.0);
  EXPECT_EQ(KioskSoftwareUpdateProgress("7" + zeros + "%"), 0);
  EXPECT_EQ(KioskSoftwareUpdateProgress("7" + zeros), -1.0);
}

TEST(UpdateProgress, IsFoundInManyReadings) {
  std::string text;
  for (int reading = 0; reading < 50'000; ++reading) {
    text += "\rDownloading: " + std::to_string(reading / 500) + ".5%";
  }
  EXPECT_EQ(KioskSoftwareUpdateProgress(text), 99.5);
}

TEST(UpdateProgress, AgreesWithThePatternOnRandomText) {
  Random random(56);
  int found = 0;
  for (int round = 0; round < 30'000; ++round) {
    const std::string text = random.text("0011259...%% x\n", random.below(14));
    const double expected = ProgressByPattern(text);
    found += expected >= 0 ? 1 : 0;
    ASSERT_EQ(KioskSoftwareUpdateProgress(text), expected) << testing::PrintToString(text);
  }
  EXPECT_GT(found, 3'000);
  EXPECT_LT(found, 27'000);
}

TEST(UpdateProgress, IsAPercentageOrUnknownWhateverTheBytesAre) {
  Random random(57);
  for (int round = 0; round < 5'000; ++round) {
    std::string text = random.text("019.%", random.below(20));
    for (char& c : text) {
      if (random.oneIn(6)) c = static_cast<char>(random.bits());
    }
    const double progress = KioskSoftwareUpdateProgress(text);
    ASSERT_TRUE(progress == -1.0 || (progress >= 0 && progress <= 100))
        << testing::PrintToString(text);
  }
}

TEST(UpdateError, IsAboutAuthorizationWhenAPasswordIsAskedFor) {
  for (const char* output :
       {"Password:", "password", "PASSWORD", "a pAsSwOrD b", "xpasswordx", "Passwords are\nfine",
        "Downloading macOS Tahoe 26.7\n\nDownloaded: macOS Tahoe 26.7\nFailed to authenticate\n"
        "Password:",
        "Password:\nInstall failed\n", "\u00C9password\n\n"}) {
    EXPECT_EQ(KioskSoftwareUpdateError(output), "authorization_required") << output;
  }
  for (const char* output : {"pass word", "passwor", "pass\nword", "passw\u00F6rd", "Pass-word"}) {
    EXPECT_NE(KioskSoftwareUpdateError(output), "authorization_required") << output;
  }
}

TEST(UpdateError, IsTheLastLine) {
  EXPECT_EQ(KioskSoftwareUpdateError("Command Line Tools for Xcode-16.2: No such update\n"
                                     "No updates are available."),
            "No updates are available.");
  EXPECT_EQ(
      KioskSoftwareUpdateError("Not enough free disk space: a total of 16.37 GB is required."),
      "Not enough free disk space: a total of 16.37 GB is required.");
  EXPECT_EQ(KioskSoftwareUpdateError("softwareupdate: unrecognized option `--req'"),
            "softwareupdate: unrecognized option `--req'");
  EXPECT_EQ(KioskSoftwareUpdateError("Software Update Tool\n\nFinding available software\n"
                                     "Can\u2019t connect to the Apple Software Update server."),
            "Can\u2019t connect to the Apple Software Update server.");
}

TEST(UpdateError, EndsLinesAtEveryNewline) {
  for (const char* newline :
       {"\n", "\r\n", "\r", "\v", "\f", "\u0085", "\u2028", "\u2029", "\n\n"}) {
    EXPECT_EQ(KioskSoftwareUpdateError(std::string("first") + newline + "last"), "last")
        << testing::PrintToString(newline);
  }
  EXPECT_EQ(KioskSoftwareUpdateError("first\u2027last"), "first\u2027last");
}

TEST(UpdateError, IsTrimmed) {
  EXPECT_EQ(KioskSoftwareUpdateError("first\n \t\u00A0last one\u3000\t "), "last one");
}

TEST(UpdateError, IsAFailureWhenTheLastLineIsEmpty) {
  for (const char* output : {"", " ", "\t", "\n", "last\n", "last\r\n", "last\n \t\u2003 ",
                             "last\u2028", "last\u0085"}) {
    EXPECT_EQ(KioskSoftwareUpdateError(output), "failed") << testing::PrintToString(output);
  }
}

TEST(UpdateError, HasUpTo200Characters) {
  EXPECT_EQ(KioskSoftwareUpdateError("x\n" + std::string(300, 'a')), std::string(200, 'a'));
  EXPECT_EQ(KioskSoftwareUpdateError(std::string(201, 'a')), std::string(200, 'a'));
  EXPECT_EQ(KioskSoftwareUpdateError(std::string(200, 'a')), std::string(200, 'a'));
  EXPECT_EQ(KioskSoftwareUpdateError("  " + std::string(199, 'a') + "  b"),
            std::string(199, 'a') + " ");
}

std::string Repeated(const std::string& text, int times) {
  std::string repeated;
  for (; times > 0; --times) repeated += text;
  return repeated;
}

TEST(UpdateError, CountsCharactersInUnitsOf16Bits) {
  EXPECT_EQ(KioskSoftwareUpdateError(Repeated("\u00E9", 300)), Repeated("\u00E9", 200));
  EXPECT_EQ(KioskSoftwareUpdateError(Repeated("\u20AC", 300)), Repeated("\u20AC", 200));
  EXPECT_EQ(KioskSoftwareUpdateError(Repeated("\U0001F600", 300)), Repeated("\U0001F600", 100));
}

TEST(UpdateError, NeverEndsInHalfAPair) {
  EXPECT_EQ(KioskSoftwareUpdateError("a" + Repeated("\U0001F600", 300)),
            "a" + Repeated("\U0001F600", 99));
  EXPECT_EQ(KioskSoftwareUpdateError(std::string(198, 'a') + "\U0001F600z"),
            std::string(198, 'a') + "\U0001F600");
  EXPECT_EQ(KioskSoftwareUpdateError(std::string(199, 'a') + "\U0001F600"), std::string(199, 'a'));
}

/// The last line of an output that is given by its characters, found, trimmed and cut as
/// characters.
std::string LastLineOf(std::u32string output) {
  const auto newline = [](char32_t point) { return kNewlines.contains(point); };
  while (std::any_of(output.begin(), output.end(), newline)) output.erase(0, 1);
  while (!output.empty() && kWhiteSpace.contains(output.back())) output.pop_back();
  while (!output.empty() && kWhiteSpace.contains(output.front())) output.erase(0, 1);
  std::string line;
  std::size_t units = 0;
  for (const char32_t point : output) {
    units += point > 0xFFFF ? 2 : 1;
    if (units > 200) break;
    line += Utf8(point);
  }
  return line.empty() ? "failed" : line;
}

TEST(UpdateError, AgreesWithTheRuleOnRandomOutput) {
  static const std::u32string points = U"ab. \t\u00A0\u00E9\u20AC\U0001F600\U0010FFFF";
  static const std::u32string newlines = U"\n\v\f\r\u0085\u2028\u2029";
  Random random(58);
  for (int round = 0; round < 1'000; ++round) {
    std::u32string output;
    for (std::size_t count = random.below(400); count > 0; --count) {
      output += random.oneIn(150) ? random.pick(newlines) : random.pick(points);
    }
    std::string text;
    for (const char32_t point : output) text += Utf8(point);
    ASSERT_EQ(KioskSoftwareUpdateError(text), LastLineOf(output)) << testing::PrintToString(text);
  }
}

TEST(UpdateError, FindsThePasswordThatThePatternFinds) {
  static const std::vector<std::string> pieces{"pass", "PASS", "wo", "Wo", "word", "WORD",
                                               "rd",   "RD",   " ",  "\n", "s",    "password"};
  Random random(59);
  int found = 0;
  for (int round = 0; round < 5'000; ++round) {
    std::string text;
    for (std::size_t count = random.below(8); count > 0; --count) text += random.pick(pieces);
    const bool expected = AsksForPasswordByPattern(text);
    found += expected ? 1 : 0;
    ASSERT_EQ(KioskSoftwareUpdateError(text) == "authorization_required", expected)
        << testing::PrintToString(text);
  }
  EXPECT_GT(found, 500);
  EXPECT_LT(found, 4'500);
}

TEST(UpdateError, IsShortAndNeverEmptyWhateverTheBytesAre) {
  Random random(60);
  for (int round = 0; round < 3'000; ++round) {
    std::string text(random.below(300), ' ');
    for (char& c : text) c = static_cast<char>(random.bits());
    const std::string error = KioskSoftwareUpdateError(text);
    ASSERT_FALSE(error.empty());
    ASSERT_LE(error.size(), 800U);
  }
}

}  // namespace
