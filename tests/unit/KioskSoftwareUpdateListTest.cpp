#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "core/KioskText.h"
#include "tests/unit/OutputRules.h"
#include "tests/unit/Random.h"
#include "tests/unit/UpdatePatterns.h"
#include "updates/KioskSoftwareUpdate.h"

namespace {

constexpr std::int64_t kKilo = 1'024;
constexpr std::int64_t kMega = 1'048'576;
constexpr std::int64_t kGiga = 1'073'741'824;
constexpr std::int64_t kLargestSize = std::numeric_limits<std::int64_t>::max();

Json Update(const std::string& id, const std::string& title, std::int64_t bytes, bool restart) {
  return {{"id", id}, {"title", title}, {"sizeBytes", bytes}, {"restartRequired", restart}};
}

/// A list of one update, "Browser-1", with these lines below its label.
std::string OneUpdate(const std::string& lines) { return "* Label: Browser-1\n" + lines; }

/// What is read of such a list.
Json One(const std::string& lines) {
  const Json updates = KioskSoftwareUpdateParse(OneUpdate(lines));
  return updates.size() == 1 ? updates[0] : updates;
}

TEST(UpdateList, IsEmptyWhenNothingIsNew) {
  for (const char* text :
       {"", "\n", "Software Update Tool\n\nNo new software available.\n",
        "Software Update Tool\n\nFinding available software\nNo new software available.\n"}) {
    EXPECT_EQ(KioskSoftwareUpdateParse(text), Json::array()) << text;
  }
}

TEST(UpdateList, IsReadFromAReleaseThatUsesTabs) {
  EXPECT_EQ(
      KioskSoftwareUpdateParse(
          "Software Update Tool\n\nFinding available software\n"
          "Software Update found the following new or updated software:\n"
          "* Label: Safari27.0TahoeAuto-27.0\n"
          "\tTitle: Safari, Version: 27.0, Size: 249465KiB, Recommended: YES, \n"
          "* Label: macOS Tahoe 26.7-25G229\n"
          "\tTitle: macOS Tahoe 26.7, Version: 26.7, Size: 2960352KiB, Recommended: YES, "
          "Action: restart, \n"
          "* Label: macOS 27-26A428\n"
          "\tTitle: macOS 27, Version: 27, Size: 11727573KiB, Recommended: YES, Action: restart, "
          "\n"),
      Json::array({Update("Safari27.0TahoeAuto-27.0", "Safari 27.0", 249'465 * kKilo, false),
                   Update("macOS Tahoe 26.7-25G229", "macOS Tahoe 26.7", 2'960'352 * kKilo, true),
                   Update("macOS 27-26A428", "macOS 27", 11'727'573 * kKilo, true)}));
}

TEST(UpdateList, IsReadWithoutBlanksAtTheEndsOfLines) {
  EXPECT_EQ(
      KioskSoftwareUpdateParse(
          "Software Update Tool\n\nFinding available software\n"
          "Software Update found the following new or updated software:\n"
          "* Label: Command Line Tools for Xcode 26.5-26.5\n"
          "\tTitle: Command Line Tools for Xcode 26.5, Version: 26.5, Size: 920416KiB, "
          "Recommended: YES,\n"
          "* Label: macOS Tahoe 26.5-25F71\n"
          "\tTitle: macOS Tahoe 26.5, Version: 26.5, Size: 3690218KiB, Recommended: YES, "
          "Action: restart,\n"),
      Json::array({Update("Command Line Tools for Xcode 26.5-26.5",
                          "Command Line Tools for Xcode "
                          "26.5",
                          920'416 * kKilo, false),
                   Update("macOS Tahoe 26.5-25F71", "macOS Tahoe 26.5", 3'690'218 * kKilo, true)}));
}

TEST(UpdateList, IsReadAmongNoise) {
  EXPECT_EQ(
      KioskSoftwareUpdateParse(
          "Software Update Tool\n\nFinding available software\n"
          "2024-09-09 11:07:46.969 softwareupdate[25532:32872565] XType: com.apple.fonts is not "
          "accessible.\n"
          "2024-09-09 11:07:46.969 softwareupdate[25532:32872565] XType: XTFontStaticRegistry is "
          "enabled.\n"
          "Software Update found the following new or updated software:\n"
          "* Label: Safari17.6MontereyAuto-17.6\n"
          "    Title: Safari, Version: 17.6, Size: 152370KiB, Recommended: YES, \n"
          "* Label: macOS Monterey 12.7.6-21H1320\n"
          "2024-09-09 11:07:47.001 softwareupdate[25532:32872565] XType: noise in between\n"
          "    Title: macOS Monterey 12.7.6, Version: 12.7.6, Size: 1765616K, Recommended: YES, "
          "Action: restart, \n"
          "* Label: macOS Sonoma 14.6.1-23G93\n"
          "    Title: macOS Sonoma 14.6.1, Version: 14.6.1, Size: 6327722K, Recommended: YES, "
          "Action: restart, \n"),
      Json::array(
          {Update("Safari17.6MontereyAuto-17.6", "Safari 17.6", 152'370 * kKilo, false),
           Update("macOS Monterey 12.7.6-21H1320", "macOS Monterey 12.7.6", 1'765'616 * kKilo,
                  true),
           Update("macOS Sonoma 14.6.1-23G93", "macOS Sonoma 14.6.1", 6'327'722 * kKilo, true)}));
}

TEST(UpdateList, IsReadWithBothSpellingsOfKilobytes) {
  EXPECT_EQ(KioskSoftwareUpdateParse(
                "Software Update Tool\n\n"
                "Software Update found the following new or updated software:\n"
                "* Label: Command Line Tools for Xcode-14.3\n"
                "\tTitle: Command Line Tools for Xcode, Version: 14.3, Size: 711888KiB, "
                "Recommended: YES, \n"
                "* Label: macOS Ventura 13.4 Beta-22F5027f\n"
                "\tTitle: macOS Ventura 13.4 Beta, Version: 13.4, Size: 11487824K, Recommended: "
                "YES, Action: restart, \n"),
            Json::array({Update("Command Line Tools for Xcode-14.3",
                                "Command Line Tools for Xcode 14.3", 711'888 * kKilo, false),
                         Update("macOS Ventura 13.4 Beta-22F5027f", "macOS Ventura 13.4 Beta",
                                11'487'824 * kKilo, true)}));
}

TEST(UpdateList, IsReadFromManyReleases) {
  struct Listed {
    const char* label;
    const char* titleLine;
    Json update;
  };
  const std::vector<Listed> lists{
      {"* Label: macOS Ventura 13.3 Beta 3-22E5236f",
       "\tTitle: macOS Ventura 13.3 Beta 3, Version: 13.3, Size: 3310848K, Recommended: YES, "
       "Action: restart, ",
       Update("macOS Ventura 13.3 Beta 3-22E5236f", "macOS Ventura 13.3 Beta 3", 3'310'848 * kKilo,
              true)},
      {"* Label: macOS Ventura 13.3.1-22E261",
       "\tTitle: macOS Ventura 13.3.1, Version: 13.3.1, Size: 868648KiB, Recommended: YES, "
       "Action: restart,",
       Update("macOS Ventura 13.3.1-22E261", "macOS Ventura 13.3.1", 868'648 * kKilo, true)},
      {"* Label: Safari14.0CatalinaAuto-14.0",
       "\tTitle: Safari, Version: 14.0, Size: 65417K, Recommended: YES,",
       Update("Safari14.0CatalinaAuto-14.0", "Safari 14.0", 65'417 * kKilo, false)},
      {"* Label: Command Line Tools for Xcode-11.0",
       "\tTitle: Command Line Tools for Xcode, Version: 11.0, Size: 224868K, Recommended: YES, ",
       Update("Command Line Tools for Xcode-11.0", "Command Line Tools for Xcode 11.0",
              224'868 * kKilo, false)},
      {"* Label: macOS Big Sur 11.1 Beta 2-20C5061b",
       "\tTitle: macOS Big Sur 11.1 Beta 2, Version: 11.1, Size: 2746951K, Recommended: YES, "
       "Action: restart, ",
       Update("macOS Big Sur 11.1 Beta 2-20C5061b", "macOS Big Sur 11.1 Beta 2", 2'746'951 * kKilo,
              true)},
      {"* Label: Safari15.0BigSurAuto-15.0",
       "  Title: Safari, Version: 15.0, Size: 119059K, Recommended: YES,",
       Update("Safari15.0BigSurAuto-15.0", "Safari 15.0", 119'059 * kKilo, false)},
      {"* Label: MRTConfigData_10_15-1.93",
       "    Title: MRTConfigData, Version: 1.93, Size: 4595KiB, Recommended: YES,",
       Update("MRTConfigData_10_15-1.93", "MRTConfigData 1.93", 4'595 * kKilo, false)},
      {"* Label: XProtectPlistConfigData_10_15-2174",
       "\tTitle: XProtectPlistConfigData, Version: 2174, Size: 50K, Recommended: YES,",
       Update("XProtectPlistConfigData_10_15-2174", "XProtectPlistConfigData 2174", 51'200, false)},
      {"* Label: Command Line Tools for Xcode-16.4",
       "\tTitle: Command Line Tools for Xcode, Version: 16.4, Size: 745661KiB, Recommended: NO, "
       "Action: ,",
       Update("Command Line Tools for Xcode-16.4", "Command Line Tools for Xcode 16.4",
              745'661 * kKilo, false)},
      {"* Label: BridgeOSUpdateCustomer",
       "    Title: BridgeOSUpdateCustomer, Version: 10.15.0.1.1.1560926689, Size: 390674K, "
       "Recommended: YES, Action: shut down,",
       Update("BridgeOSUpdateCustomer", "BridgeOSUpdateCustomer 10.15.0.1.1.1560926689",
              390'674 * kKilo, false)}};
  for (const Listed& list : lists) {
    const std::string text = std::string(list.label) + "\n" + list.titleLine + "\n";
    EXPECT_EQ(KioskSoftwareUpdateParse(text), Json::array({list.update})) << text;
    EXPECT_EQ(KioskSoftwareUpdateParse("\nSoftware Update Tool\n\n" + text),
              Json::array({list.update}));
  }
}

TEST(UpdateList, IsReadAcrossEmptyLines) {
  EXPECT_EQ(
      KioskSoftwareUpdateParse("* Label: a-1\n\n\t\n  Title: a, Version: 1, Size: 1K,\n\n"
                               "* Label: b-2\n\n\n  Title: b, Version: 2, Size: 2K,\n"),
      Json::array({Update("a-1", "a 1", kKilo, false), Update("b-2", "b 2", 2 * kKilo, false)}));
}

TEST(UpdateList, KnowsUpdatesThatAreNotRecommendedByTheirTitleLinesOnly) {
  EXPECT_EQ(
      KioskSoftwareUpdateParse(
          "* Label: Command Line Tools beta 5 for Xcode-11.0\n"
          "    Title: Command Line Tools beta 5 for Xcode, Version: 11.0, Size: 224804K, "
          "Recommended: YES,\n"
          "* Label: macOS Catalina Developer Beta-6\n"
          "    Title: macOS Catalina Public Beta, Version: 5, Size: 3084292K, Recommended: YES, "
          "Action: restart,\n"
          "- Label: iCal-1.0.2\n"
          "    Title: iCal, Version: 1.0.2, Size: 6520K,\n"),
      Json::array({Update("Command Line Tools beta 5 for Xcode-11.0",
                          "Command Line Tools beta 5 for Xcode 11.0", 224'804 * kKilo, false),
                   Update("macOS Catalina Developer Beta-6", "iCal 1.0.2", 6'520 * kKilo, false)}));
}

TEST(UpdateList, IsEmptyInTheFormOfOldReleases) {
  for (const char* text :
       {"   * Safari14.0MojaveAuto-14.0\n\tSafari (14.0), 67309K [recommended]\n"
        "Software Update Tool\n",
        "   * macOS 10.14.1 Update\n    macOS 10.14.1 Update (10.14.1), 199140K [recommended] "
        "[restart]\n   - iCal-1.0.2\n    iCal, (1.0.2), 6520K\n",
        "   * macOS High Sierra 10.13.6 Update-\n         macOS High Sierra 10.13.6 Update ( ), "
        "1931648K [recommended] [restart]\n",
        "   * Command Line Tools (macOS High Sierra version 10.13) for Xcode-9.4\n"}) {
    EXPECT_EQ(KioskSoftwareUpdateParse(text), Json::array()) << text;
  }
}

TEST(UpdateList, IsEmptyInOutputOfOtherKinds) {
  for (const char* text :
       {"Scan finished with error: Error Domain=SUMacControllerError Code=7507 "
        "\"[SUMacControllerErrorAccessRequestDenied=7507] Access request was denied\"\n",
        "Can't connect to the Apple Software Update server, because you are not connected to the "
        "Internet.\n\n",
        "\nLabel: macOS Sequoia 15.7-24G222\nTitle: macOS Sequoia 15.7, Version: 15.7, Size: "
        "2049623KiB, Recommended: YES, Action: restart,\n",
        "* Title: macOS Ventura, Version: 13.2, Size: 12261428KiB, Build: 22D49, Deferred: YES\n",
        "Downloading: 0.10%Downloading: 100.00%\nDownloaded: macOS Tahoe 26.7\n"}) {
    EXPECT_EQ(KioskSoftwareUpdateParse(text), Json::array()) << text;
  }
}

TEST(UpdateList, EndsLinesAtEveryNewline) {
  for (const char* newline :
       {"\n", "\r\n", "\r", "\v", "\f", "\u0085", "\u2028", "\u2029", "\n\n"}) {
    std::string text;
    for (const char* line : {"* Label: a-1", "\tTitle: a, Version: 1, Size: 1K, Action: restart",
                             "* Label: b-2", "\tTitle: b, Version: 2, Size: 2K, "}) {
      text += std::string(line) + newline;
    }
    EXPECT_EQ(KioskSoftwareUpdateParse(text), Json::array({Update("a-1", "a 1", kKilo, true),
                                                           Update("b-2", "b 2", 2 * kKilo, false)}))
        << testing::PrintToString(newline);
  }
}

TEST(UpdateLabel, MakesAnUpdateByItself) {
  EXPECT_EQ(KioskSoftwareUpdateParse("* Label: a-1"),
            Json::array({Update("a-1", "a-1", 0, false)}));
  EXPECT_EQ(KioskSoftwareUpdateParse("* Label: a-1\n* Label: a-1\n"),
            Json::array({Update("a-1", "a-1", 0, false), Update("a-1", "a-1", 0, false)}));
}

TEST(UpdateLabel, IsTrimmed) {
  for (const char* line : {"* Label: a 1 ", "\t * Label: a 1\t", "* Label:  \ta 1"}) {
    EXPECT_EQ(KioskSoftwareUpdateParse(line), Json::array({Update("a 1", "a 1", 0, false)}))
        << line;
  }
}

TEST(UpdateLabel, HasTheFormThatTheToolWrites) {
  for (const char* line :
       {"* Label:", "* Label: ", "* Label: \t", "* Label:a", "*Label: a", "*  Label: a",
        "*\tLabel: a", "* label: a", "** Label: a", "x * Label: a", "- Label: a", "Label: a"}) {
    EXPECT_EQ(KioskSoftwareUpdateParse(line), Json::array()) << line;
  }
  EXPECT_EQ(KioskSoftwareUpdateParse("* Label: * Label: a"),
            Json::array({Update("* Label: a", "* Label: a", 0, false)}));
}

TEST(UpdateLabel, MayHaveAnyCharacters) {
  const std::string label = "\u00C9t\u00E9 \U0001F600, Version: \"1\"\\";
  EXPECT_EQ(KioskSoftwareUpdateParse("* Label: " + label),
            Json::array({Update(label, label, 0, false)}));
}

TEST(UpdateTitle, BeforeAnyLabelIsIgnored) {
  EXPECT_EQ(KioskSoftwareUpdateParse("Title: a, Version: 1, Size: 1K, Action: restart\n"
                                     "* Label: b-2\n"),
            Json::array({Update("b-2", "b-2", 0, false)}));
}

TEST(UpdateTitle, NamesTheVersionOnce) {
  EXPECT_EQ(One("Title: Browser 17.5, Version: 17.5, Size: 1K")["title"], "Browser 17.5");
  EXPECT_EQ(One("Title: Browser, Version: 17.5, Size: 1K")["title"], "Browser 17.5");
  EXPECT_EQ(One("Title: Browser, Version: , Size: 1K")["title"], "Browser");
  EXPECT_EQ(One("Title: Browser 17.51, Version: 7.5, Size: 1K")["title"], "Browser 17.51");
  EXPECT_EQ(One("Title: Browser X, Version: x")["title"], "Browser X x");
}

TEST(UpdateTitle, GoesToTheFirstVersionAndTheVersionToTheNextComma) {
  EXPECT_EQ(One("Title: a, b, Version: 1, Size: 2K")["title"], "a, b 1");
  EXPECT_EQ(One("Title: a, Version: 1, Version: 2")["title"], "a 1");
  EXPECT_EQ(One("Title: a, Version: b c: d")["title"], "a b c: d");
  EXPECT_EQ(One("Title: a, Version:  1 , x")["title"], "a  1 ");
  EXPECT_EQ(One("Title:  a , Version: 1")["title"], " a  1");
  EXPECT_EQ(One("Title: , Version: 1")["title"], " 1");
  EXPECT_EQ(One("Title: , Version: , Size: 1")["title"], "");
  EXPECT_EQ(One("Title: a, Version: ,")["title"], "a");
}

TEST(UpdateTitle, StaysTheLabelWithoutAVersion) {
  for (const char* line : {"Title: a", "Title: a, Size: 1K", "Title:a, Version: 1",
                           "Title:, Version: 1", "Title: a,Version: 1", "Title: a, Version:1",
                           "Title: a, version: 1", "Title: a, Version: ", "title: a, Version: 1",
                           "x Title: a, Version: 1", "- Title: a, Version: 1"}) {
    EXPECT_EQ(One(line)["title"], "Browser-1") << line;
  }
}

TEST(UpdateTitle, MayHaveAnyCharacters) {
  EXPECT_EQ(One("Title: \u00C9t\u00E9 \U0001F600\", Version: \u0663\\, x")["title"],
            "\u00C9t\u00E9 \U0001F600\" \u0663\\");
}

TEST(UpdateTitle, ChangesTheLastUpdateOnly) {
  EXPECT_EQ(KioskSoftwareUpdateParse("* Label: a\n* Label: b\nTitle: c, Version: 1, Size: 1K, "
                                     "Action: restart"),
            Json::array({Update("a", "a", 0, false), Update("b", "c 1", kKilo, true)}));
}

TEST(UpdateTitle, OfALaterLineOverwritesWhatItSays) {
  EXPECT_EQ(One("Title: a, Version: 1, Size: 1K\nTitle: b, Version: 2, Size: 2K"),
            Update("Browser-1", "b 2", 2 * kKilo, false));
  EXPECT_EQ(One("Title: a, Version: 1, Size: 1K\nTitle: b"),
            Update("Browser-1", "a 1", kKilo, false));
}

TEST(UpdateSize, IsInBytes) {
  struct Written {
    const char* text;
    std::int64_t bytes;
  };
  for (const Written& size :
       {Written{"1200KiB", 1'228'800}, Written{"3 GB", 3'221'225'472}, Written{"512", 512},
        Written{"512B", 512}, Written{"512 B", 512}, Written{"7K", 7 * kKilo},
        Written{"7Ki", 7 * kKilo}, Written{"7KB", 7 * kKilo}, Written{"7M", 7 * kMega},
        Written{"7 Mi", 7 * kMega}, Written{"7MB", 7 * kMega}, Written{"7 MiB", 7 * kMega},
        Written{"7G", 7 * kGiga}, Written{"7GiB", 7 * kGiga}, Written{"0K", 0},
        Written{"007K", 7 * kKilo}, Written{"7KX", 7 * kKilo}, Written{"7 , x", 7}}) {
    EXPECT_EQ(One(std::string("Title: a, Version: 1, Size: ") + size.text + ", x")["sizeBytes"],
              size.bytes)
        << size.text;
    EXPECT_EQ(One(std::string("Title: Size: ") + size.text)["sizeBytes"], size.bytes) << size.text;
  }
}

TEST(UpdateSize, IsInBytesWhenItsUnitIsNone) {
  for (const char* unit : {"kb", "kib", " k", "m", "g", "b", "  K", "\tK", "T", "TB", "iB", "x"}) {
    EXPECT_EQ(One(std::string("Title: a, Size: 100") + unit)["sizeBytes"], 100) << unit;
  }
}

TEST(UpdateSize, EndsAtADecimalPoint) {
  EXPECT_EQ(KioskSoftwareUpdateParse("* Label: macOS Sonoma 14.7-23H311\n"
                                     "\tTitle: macOS Sonoma 14.7, Version: 14.7, Size: 5.2G, "
                                     "Recommended: YES, Action: restart,\n"),
            Json::array({Update("macOS Sonoma 14.7-23H311", "macOS Sonoma 14.7", 5, true)}));
  EXPECT_EQ(One("Title: a, Size: 1,200K")["sizeBytes"], 1);
}

TEST(UpdateSize, IsZeroUntilItIsRead) {
  for (const char* text : {"Size: ", "Size: K", "Size: -5K", "Size: +5K", "Size:5K", "size: 5K",
                           "Size:  5K", "Size: \u0665K", "Size 5K", "Size: .5K"}) {
    EXPECT_EQ(One(std::string("Title: a, Version: 1, ") + text)["sizeBytes"], 0) << text;
  }
  EXPECT_EQ(One("Size: 5K\nxTitle: Size: 5K")["sizeBytes"], 0);
}

TEST(UpdateSize, IsTheFirstOneOfItsLine) {
  EXPECT_EQ(One("Title: a, Size: 1K, Size: 2K")["sizeBytes"], kKilo);
  EXPECT_EQ(One("Title: a, Size: none, Size: 2K")["sizeBytes"], 2 * kKilo);
  EXPECT_EQ(One("Title: a, Size: Size: 2K")["sizeBytes"], 2 * kKilo);
  EXPECT_EQ(One("Title:DownloadSize: 2K")["sizeBytes"], 2 * kKilo);
}

TEST(UpdateSize, NeverExceedsTheLargestInteger) {
  const auto sizeOf = [](const std::string& size) {
    return One("Title: a, Version: 1, Size: " + size + ", x")["sizeBytes"];
  };
  EXPECT_EQ(sizeOf("9223372036854775807"), kLargestSize);
  EXPECT_EQ(sizeOf("9223372036854775806B"), kLargestSize - 1);
  EXPECT_EQ(sizeOf("9223372036854775808"), kLargestSize);
  EXPECT_EQ(sizeOf("18446744073709551616"), kLargestSize);
  EXPECT_EQ(sizeOf("18446744073709551617 KiB"), kLargestSize);
  EXPECT_EQ(sizeOf("9007199254740991K"), kLargestSize - 1'023);
  EXPECT_EQ(sizeOf("9007199254740992K"), kLargestSize);
  EXPECT_EQ(sizeOf("8589934591G"), kLargestSize - kGiga + 1);
  EXPECT_EQ(sizeOf("8589934592G"), kLargestSize);
  EXPECT_EQ(sizeOf(std::string(5'000, '9') + "G"), kLargestSize);
  EXPECT_EQ(sizeOf(std::string(5'000, '0') + "3G"), 3 * kGiga);
}

TEST(UpdateRestart, IsRequiredWhenTheLineSaysSo) {
  for (const char* line :
       {"Title: a, Version: 1, Action: restart,", "Title:Action: restart", "Title: [restart]",
        "Title: a, Version: 1, Size: 1K, Action: restarting", "Title: a (1), 1K [restart]"}) {
    EXPECT_EQ(One(line)["restartRequired"], true) << line;
  }
  for (const char* line :
       {"Title: a, Version: 1, Action: ,", "Title: a, Action: shut down,", "Title: [shut down]",
        "Title: restart", "Title: a, action: restart", "Title: a, Action:restart",
        "Title: a, Action: Restart", "Title: [Restart]", "Title: [restart", "Title: a\n[restart]",
        "Title: a\nAction: restart"}) {
    EXPECT_EQ(One(line)["restartRequired"], false) << line;
  }
}

TEST(UpdateRestart, IsWhatTheLastTitleLineSays) {
  EXPECT_EQ(One("Title: a, Action: restart\nTitle: a")["restartRequired"], false);
  EXPECT_EQ(One("Title: a\nTitle: a, Action: restart")["restartRequired"], true);
  EXPECT_EQ(One("Title: a, Action: restart\nx")["restartRequired"], true);
}

TEST(UpdateList, OfManyUpdatesKeepsTheirOrder) {
  std::string text;
  Json expected = Json::array();
  for (int number = 5'000; number > 0; --number) {
    const std::string name = std::to_string(number);
    text += "* Label: " + name + "\n\tTitle: a, Version: " + name + ", Size: " + name + ", \n";
    expected.push_back(Update(name, "a " + name, number, false));
  }
  EXPECT_EQ(KioskSoftwareUpdateParse(text), expected);
}

TEST(UpdateList, MayHaveVeryLongLines) {
  const std::string label(1 << 20, 'a');
  std::string sizes;
  while (sizes.size() < 1 << 20) sizes += "Size: , Version:";
  EXPECT_EQ(KioskSoftwareUpdateParse("* Label: " + label + "\nTitle: " + sizes),
            Json::array({Update(label, label, 0, false)}));
}

std::string NearlyLabelLine(Random& random) {
  static const std::vector<std::string> starts{
      "* Label: ", "* Label: ", "* Label: ",    "* Label: ",
      "* Label:",  "- Label: ", "\t * Label: ", "*  Label: "};
  static const std::vector<std::string> names{
      "Safari17-17", "macOS 27-26A428", "a ", "", " \tb", ","};
  return random.pick(starts) + random.pick(names);
}

std::string NearlyTitleLine(Random& random) {
  using Choice = std::vector<std::string>;
  static const Choice starts{"\tTitle: ", "\tTitle: ", "  Title: ", "Title:", "* Title: ", ""};
  static const Choice titles{"Safari", "Safari 17", "a, b", "", " 5 "};
  static const Choice versions{", Version: 17", ", Version: ", ", Version:", ", Version: 5 ", ""};
  static const Choice sizes{", Size: ", ", Size: ", "Size: ", ", Size:", ", Size: x", ""};
  static const Choice numbers{"5", "1200", "99999999999999999999", "7 ", "5.2", ""};
  static const Choice units{"K", "KiB", " GB", "M", "kb", "B", "iB", ""};
  static const Choice actions{"[restart]", ", Action: restart", ", Action: ", "[shut down]", ""};
  std::string line = random.pick(starts) + random.pick(titles) + random.pick(versions);
  for (std::size_t fields = random.below(6); fields > 0; --fields) {
    if (random.oneIn(4)) line += random.pick(versions);
    if (random.oneIn(2)) line += random.pick(sizes) + random.pick(numbers) + random.pick(units);
    if (random.oneIn(4)) line += random.pick(actions);
  }
  return line;
}

std::string NearlyList(Random& random) {
  static const std::vector<std::string> newlines{"\n", "\n", "\n", "\r\n", "\r", "\n\n", "\u2028"};
  std::string text;
  for (std::size_t lines = random.below(9); lines > 0; --lines) {
    std::string line = random.oneIn(3) ? NearlyLabelLine(random) : NearlyTitleLine(random);
    if (!line.empty() && random.oneIn(10)) line.erase(random.below(line.size()), 1);
    text += line + random.pick(newlines);
  }
  return text;
}

TEST(UpdateList, AgreesWithThePatternsOnRandomLists) {
  Random random(53);
  int titles = 0;
  int sizes = 0;
  for (int round = 0; round < 4'000; ++round) {
    const std::string text = NearlyList(random);
    const Json expected = UpdatesByPattern(text);
    ASSERT_EQ(KioskSoftwareUpdateParse(text), expected) << testing::PrintToString(text);
    for (const Json& update : expected) {
      titles += update["title"] == update["id"] ? 0 : 1;
      sizes += update["sizeBytes"] == 0 ? 0 : 1;
    }
  }
  EXPECT_GT(titles, 500);
  EXPECT_GT(sizes, 500);
}

/// Whether the value is an update as it may be published.
bool IsUpdate(const Json& update) {
  return update.is_object() && update.size() == 4 && update["id"].is_string() &&
         update["title"].is_string() && update["sizeBytes"].is_number_integer() &&
         update["sizeBytes"] >= 0 && update["restartRequired"].is_boolean();
}

TEST(UpdateList, IsWellFormedWhateverTheTextIs) {
  static const std::vector<std::string> pieces{
      "* Label: ", "Title: ",   ", Version: ", "Size: ",     "9",  "99999999999999999999",
      "G",         "[restart]", "\n",          "\r",         "\t", "\u00A0",
      "\u0085",    "\u2029",    "\u00E9",      "\U0001F600", " ",  ",",
      "a"};
  Random random(54);
  for (int round = 0; round < 5'000; ++round) {
    std::string text;
    for (std::size_t count = random.below(30); count > 0; --count) text += random.pick(pieces);
    const Json updates = KioskSoftwareUpdateParse(text);
    ASSERT_TRUE(updates.is_array());
    for (const Json& update : updates) {
      ASSERT_TRUE(IsUpdate(Json(update))) << update;
      ASSERT_TRUE(KioskIsUtf8(update["id"].get<std::string>())) << testing::PrintToString(text);
      ASSERT_TRUE(KioskIsUtf8(update["title"].get<std::string>())) << testing::PrintToString(text);
    }
  }
}

TEST(UpdateList, IsReadFromAnyBytes) {
  Random random(55);
  for (int round = 0; round < 3'000; ++round) {
    std::string text = "* Label: a\nTitle: b, Version: 1, Size: 10 KiB, [restart]\n";
    for (std::size_t changes = random.below(20); changes > 0; --changes) {
      text[random.below(text.size())] = static_cast<char>(random.bits());
    }
    text.resize(random.below(text.size() + 1));
    const Json updates = KioskSoftwareUpdateParse(text);
    ASSERT_TRUE(updates.is_array());
    for (const Json& update : updates) ASSERT_TRUE(IsUpdate(Json(update)));
  }
}

}  // namespace
