#include <unistd.h>

#include "simulator/mac/Limits.h"
#include "simulator/mac/SettingsFile.h"
#include "tests/simmac/TestMac.h"

namespace simmac {
namespace {

class Updates : public SimulatedMacTest {
 protected:
  static RunResult updates(const TestMac& mac, const Words& arguments = {}) {
    return mac.simmac("updates", arguments);
  }

  static RunResult add(const TestMac& mac, const Words& options) {
    Words arguments = {"add"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return updates(mac, arguments);
  }

  static Json catalogue(const TestMac& mac) {
    return Json::parse(mac.read(kUpdateCatalogue), nullptr, false);
  }

  static std::string noCatalogue(const TestMac& mac) {
    return "simmac: " + mac.path(kUpdateCatalogue) +
           " is no catalogue of updates; \"updates MAC clear\" replaces it.\n";
  }
};

const Json kNew = {{"format", "modern"},
                   {"progress", "lines"},
                   {"reachable", true},
                   {"updates", Json::array()},
                   {"installed", Json::array()}};

TEST_F(Updates, AreNoneOnANewMac) {
  const TestMac mac;
  EXPECT_EQ(catalogue(mac), kNew);
  EXPECT_EQ(updates(mac).out, "the Mac has macOS 14.6.1 (23G93)\nno updates\n");
  EXPECT_EQ(Json::parse(updates(mac, {"--json"}).out), kNew);
}

TEST_F(Updates, AreAddedWithAllThatTheyMayHave) {
  const TestMac mac;
  EXPECT_EQ(add(mac, {"--label",
                      "L-1",
                      "--title",
                      "T",
                      "--macos",
                      "--version",
                      "14.7",
                      "--build",
                      "23H124",
                      "--size",
                      "1024",
                      "--unit",
                      "K",
                      "--action",
                      "shut down",
                      "--not-recommended",
                      "--deferred",
                      "--restart-notice",
                      "--duration-ms",
                      "4000",
                      "--failure-status",
                      "3",
                      "--failure-text",
                      "no",
                      "--password"})
                .err,
            "");
  EXPECT_EQ(catalogue(mac)["updates"], Json::array({{{"label", "L-1"},
                                                     {"title", "T"},
                                                     {"macos", true},
                                                     {"version", "14.7"},
                                                     {"build", "23H124"},
                                                     {"size", 1024},
                                                     {"unit", "K"},
                                                     {"action", "shut down"},
                                                     {"recommended", false},
                                                     {"deferred", true},
                                                     {"restartNotice", true},
                                                     {"durationMs", 4000},
                                                     {"failure", {{"status", 3}, {"text", "no"}}},
                                                     {"password", true}}}));
  EXPECT_EQ(add(mac, {"--label", "plain"}).status, 0);
  EXPECT_EQ(catalogue(mac)["updates"][1], Json({{"label", "plain"}}));
}

TEST_F(Updates, AreShownToPeople) {
  const TestMac mac;
  EXPECT_EQ(add(mac, {"--label", "L-1", "--title", "T", "--version", "2", "--size", "7", "--action",
                      "restart", "--deferred", "--password"})
                .status,
            0);
  EXPECT_EQ(updates(mac, {"set", "--progress", "returns", "--reachable", "no"}).status, 0);
  Json all = catalogue(mac);
  all["updates"].push_back(5);
  all["installed"] = Json::array({"old one"});
  all["atNextBoot"] = {{"version", "14.7"}, {"build", "23H124"}};
  mac.write(kUpdateCatalogue, all.dump());
  EXPECT_EQ(updates(mac).out,
            "the Mac has macOS 14.6.1 (23G93)\n"
            "from the next boot on: macOS 14.7 (23H124)\n"
            "progress: \"returns\"\n"
            "reachable: false\n"
            "on offer: L-1: T, version 2, 7 KiB, restart, deferred, fails\n"
            "not usable: 1\n"
            "installed: old one\n");
}

TEST_F(Updates, CanBeMadeToComeInEveryWay) {
  const TestMac mac;
  EXPECT_EQ(updates(mac, {"set", "--format", "old", "--progress", "together", "--scan-error",
                          "Scan finished", "--scan-ms", "5", "--noise", "-one", "--noise", "two",
                          "--list-status", "2", "--install-status", "3", "--free-space", "100"})
                .err,
            "");
  EXPECT_EQ(catalogue(mac), Json({{"format", "old"},
                                  {"progress", "together"},
                                  {"reachable", true},
                                  {"scanError", "Scan finished"},
                                  {"scanMs", 5},
                                  {"noise", Json::array({"-one", "two"})},
                                  {"listStatus", 2},
                                  {"installStatus", 3},
                                  {"freeSpace", 100},
                                  {"updates", Json::array()},
                                  {"installed", Json::array()}}));
  EXPECT_EQ(updates(mac, {"set", "--reachable", "yes", "--scan-error", ""}).status, 0);
  EXPECT_EQ(catalogue(mac)["scanError"], "");
  EXPECT_EQ(mac.run({"/usr/sbin/softwareupdate", "-l"}).status, 2);
}

TEST_F(Updates, CanBeMadeToComeAsBefore) {
  const TestMac mac;
  EXPECT_EQ(updates(mac, {"set", "--noise", "one", "--list-status", "2", "--install-status", "3",
                          "--free-space", "100"})
                .status,
            0);
  EXPECT_NE(catalogue(mac), kNew);
  EXPECT_EQ(updates(mac, {"set", "--list-status", ""}).err, "");
  EXPECT_EQ(mac.run({"/usr/sbin/softwareupdate", "-l"}).status, 0);
  EXPECT_EQ(catalogue(mac)["installStatus"], 3);
  EXPECT_EQ(updates(mac, {"set", "--noise", "", "--install-status", "", "--free-space", ""}).err,
            "");
  EXPECT_EQ(catalogue(mac), kNew);
}

TEST_F(Updates, HaveNoControlCharactersInTheirList) {
  const TestMac mac;
  for (const Words& options :
       {Words{"--label", "A\nB"}, Words{"--label", "A\x1b[2J"}, Words{"--label", "A\x7f"},
        Words{"--label", "A", "--title", "a\tb"}, Words{"--label", "A", "--version", "1\n"},
        Words{"--label", "A", "--macos", "--version", "1", "--build", "2\r"}}) {
    const RunResult result = add(mac, options);
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("There is a control character in it"), std::string::npos)
        << result.err;
  }
  EXPECT_EQ(catalogue(mac), kNew);
  EXPECT_EQ(add(mac, {"--label", "\u00c4-1"}).status, 0);
}

TEST_F(Updates, AreRefusedWithWhatMeansNothing) {
  const TestMac mac;
  for (const Words& arguments :
       {Words{"add"}, Words{"add", "--label", ""},
        Words{"add", "--label", "A", "--action", "explode"},
        Words{"add", "--label", "A", "--macos"}, Words{"add", "--label", "A", "--build", "23H124"},
        Words{"add", "--label", "A", "--size=-1"},
        Words{"add", "--label", "A", "--size", "1000000001"},
        Words{"add", "--label", "A", "--unit", "MB"},
        Words{"add", "--label", "A", "--duration-ms", "3600001"},
        Words{"add", "--label", "A", "--failure-status", "256"}, Words{"set"},
        Words{"set", "--format", "new"}, Words{"set", "--progress", "dots"},
        Words{"set", "--reachable", "maybe"}, Words{"set", "--list-status=-1"},
        Words{"set", "--list-status", "256"}, Words{"set", "--install-status", "1x"},
        Words{"set", "--free-space", "1000000001"}, Words{"remove"}}) {
    const RunResult result = updates(mac, arguments);
    EXPECT_EQ(result.status, 2) << arguments.back();
    EXPECT_NE(result.err.find("; --help tells more.\n"), std::string::npos) << result.err;
  }
  EXPECT_EQ(catalogue(mac), kNew);
}

TEST_F(Updates, AreOnOfferOnce) {
  const TestMac mac;
  EXPECT_EQ(add(mac, {"--label", "A"}).status, 0);
  const RunResult again = add(mac, {"--label", "A", "--title", "other"});
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.err, "simmac: The update A is on offer already.\n");
  EXPECT_EQ(catalogue(mac)["updates"], Json::array({{{"label", "A"}}}));
}

TEST_F(Updates, AreNotTooMany) {
  const TestMac mac;
  Json all = kNew;
  for (std::size_t i = 0; i < kMaxUpdates; ++i) all["updates"].push_back(i);
  mac.write(kUpdateCatalogue, all.dump());
  EXPECT_EQ(add(mac, {"--label", "A"}).err, "simmac: There are too many updates on offer.\n");
  EXPECT_EQ(catalogue(mac), all);
}

TEST_F(Updates, AreNotReplacedWhenTheyCannotBeRead) {
  const TestMac mac;
  for (const char* damaged :
       {R"({"updates": [{"label": "A",}]})", "[]", R"({"updates": {}})", ""}) {
    mac.write(kUpdateCatalogue, damaged);
    for (const Words& arguments :
         {Words{}, Words{"--json"}, Words{"add", "--label", "A"}, Words{"set", "--scan-ms", "5"}}) {
      const RunResult result = updates(mac, arguments);
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.err, noCatalogue(mac));
    }
    EXPECT_EQ(mac.read(kUpdateCatalogue), damaged);
  }
  EXPECT_EQ(updates(mac, {"clear"}).status, 0);
  EXPECT_EQ(catalogue(mac), kNew);
}

TEST_F(Updates, CanBeClearedAndBegunAnew) {
  const TestMac mac;
  EXPECT_EQ(add(mac, {"--label", "A"}).status, 0);
  EXPECT_EQ(updates(mac, {"set", "--reachable", "no"}).status, 0);
  EXPECT_EQ(updates(mac, {"clear"}).status, 0);
  EXPECT_EQ(catalogue(mac), kNew);
  ASSERT_EQ(unlink(mac.path(kUpdateCatalogue).c_str()), 0);
  EXPECT_EQ(Json::parse(updates(mac, {"--json"}).out), kNew);
  EXPECT_EQ(add(mac, {"--label", "A"}).status, 0);
  EXPECT_EQ(catalogue(mac)["updates"], Json::array({{{"label", "A"}}}));
}

TEST_F(Updates, AreExplained) {
  const TestMac mac;
  for (const Words& arguments : {Words{"--help"}, Words{"add", "--help"}, Words{"set", "--help"}}) {
    const RunResult help = updates(mac, arguments);
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Usage: simmac updates"), std::string::npos) << help.out;
  }
  EXPECT_EQ(RunProgram({SIMMAC_EXECUTABLE, "updates", "/nonexistent"}).err,
            "simmac: /nonexistent is not a simulated Mac.\n");
}

}  // namespace
}  // namespace simmac
