#include "tests/client/ChannelTest.h"

namespace {

using testing::HasSubstr;

class Usage : public ChannelTest {};

TEST_F(Usage, RefusesWhatItDoesNotUnderstand) {
  script({Replies(R"({"ok":true})")});
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"dance"},
      {"status", "extra"},
      {"status", "--no-wait"},
      {"check"},
      {"send"},
      {"send", "{}", "{}"},
      {"status", "--timeout"},
      {"status", "--timeout", "soon"},
      {"status", "--timeout", "0"},
      {"status", "--timeout", "-1"},
      {"status", "--timeout", "nan"},
      {"status", "--timeout", "1e9"},
      {"pair", "--interval", "inf"},
      {"status", "restart"},
      {"unlock", "password"},
      {"power"},
      {"power", "show", "set"},
      {"power", "set"},
      {"power", "set", "--screen-off", "5"},
      {"power", "set", "--sleep", "5"},
      {"power", "set", "--screen-off", "five", "--sleep", "5"},
      {"power", "set", "--screen-off", "5", "--sleep", "1.5"},
      {"power", "set", "--screen-off", "5", "--sleep", ""},
      {"power", "set", "--screen-off", "5", "--sleep", "99999999999999999999"},
      {"power", "set", "--screen-off", "5", "--sleep", "5", "--schedule", "maybe"},
      {"power", "set", "--screen-off", "5", "--sleep", "5", "--days", "mon"},
      {"power", "set", "--screen-off", "5", "--sleep", "5", "--sleep-at", "22:00"},
      {"power", "set", "--screen-off", "5", "--sleep", "5", "--schedule", "on", "--days", "mo"},
      {"net", "dhcp"},
      {"net", "static", "en0"},
      {"net", "static", "en0", "10.0.0.1"},
      {"net", "static", "en0", "10.0.0.1/"},
      {"net", "static", "en0", "10.0.0.1/255.0.0.0"},
      {"net", "dhcp", "en0", "en1"},
      {"proxy", "auto"},
      {"proxy", "manual"},
      {"proxy", "none", "x"},
      {"time", "zone"},
      {"time", "now"},
      {"updates"},
      {"updates", "remove"},
      {"updates", "list", "--no-wait"},
      {"updates", "install", "Safari"},
      {"updates", "check", "--interval", "0"},
      {"session"},
      {"session", "busy"},
      {"session", "live", "idle"},
  };
  for (const std::vector<std::string>& arguments : wrong) {
    const ChildResult result = run(arguments);
    EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors, "");
  }
  EXPECT_EQ(connections(), 0);
}

TEST_F(Usage, SaysWhichArgumentIsWrong) {
  EXPECT_THAT(run({"power", "set", "--screen-off", "x", "--sleep", "5"}).errors,
              HasSubstr("--screen-off: not a whole number\n"));
  EXPECT_THAT(run({"net", "static", "en0", "10.0.0.1"}).errors,
              HasSubstr("IP/PREFIX: no slash in it\n"));
  EXPECT_THAT(run({"power", "set", "--screen-off", "5", "--sleep", "5", "--schedule", "on",
                   "--days", "Monday"})
                  .errors,
              HasSubstr("--days: mon, tue, wed, thu, fri, sat and sun are known\n"));
}

TEST_F(Usage, NamesAVerbThatIsNotThereAndThoseThatAre) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> unknown = {
      {{"updates", "foo"}, "\"foo\" here: list, check, install"},
      {{"session", "busy", "--json"}, "\"busy\" here: live, signed-in, idle"},
      {{"--timeout", "5", "time", "now"}, "\"now\" here: zone, sync, show"},
      {{"power", "\033[2J"}, "\"?[2J\" here: show, set, follow"},
      {{"net", "wifi", "en0"}, "\"wifi\" here: dhcp, static"},
      {{"proxy", "off"}, "\"off\" here: none, auto, manual"}};
  for (const auto& [arguments, text] : unknown) {
    EXPECT_EQ(run(arguments).errors,
              "There is no " + text + "\nRun with --help for more information.\n");
  }
  EXPECT_THAT(run({"dance"}).errors,
              testing::StartsWith("There is no \"dance\" here: status, pair, "));
  EXPECT_THAT(run({"updates"}).errors, HasSubstr("A subcommand is required\n"));
  EXPECT_THAT(run({"updates", "--json"}).errors, HasSubstr("A subcommand is required\n"));
  EXPECT_THAT(run({"power", "set"}).errors, HasSubstr("--screen-off is required\n"));
}

TEST_F(Usage, NamesTheRangeOfSeconds) {
  const std::vector<std::vector<std::string>> wrong = {{"updates", "check", "--interval", "-1"},
                                                       {"updates", "install", "--interval", "0"},
                                                       {"pair", "--interval", "86401"},
                                                       {"pair", "--interval", "nan"}};
  for (const std::vector<std::string>& arguments : wrong) {
    EXPECT_THAT(run(arguments).errors,
                HasSubstr("--interval: not in the range of 0.001 to 86400 seconds\n"));
  }
  EXPECT_THAT(run({"status", "--timeout", "0"}).errors,
              HasSubstr("--timeout: not in the range of 0.001 to 86400 seconds\n"));
}

TEST_F(Usage, HelpsWithEveryVerb) {
  const std::vector<std::vector<std::string>> verbs = {{"status"},
                                                       {"pair"},
                                                       {"check"},
                                                       {"restart"},
                                                       {"send"},
                                                       {"unlock"},
                                                       {"maintenance"},
                                                       {"power"},
                                                       {"power", "show"},
                                                       {"power", "set"},
                                                       {"power", "follow"},
                                                       {"net"},
                                                       {"net", "dhcp"},
                                                       {"net", "static"},
                                                       {"proxy"},
                                                       {"proxy", "none"},
                                                       {"proxy", "auto"},
                                                       {"proxy", "manual"},
                                                       {"time"},
                                                       {"time", "zone"},
                                                       {"time", "sync"},
                                                       {"time", "show"},
                                                       {"updates"},
                                                       {"updates", "list"},
                                                       {"updates", "check"},
                                                       {"updates", "install"},
                                                       {"session"},
                                                       {"session", "live"},
                                                       {"session", "signed-in"},
                                                       {"session", "idle"}};
  for (std::vector<std::string> verb : verbs) {
    EXPECT_THAT(run({"--help"}).output, HasSubstr("\n  " + verb.front() + " "));
    verb.emplace_back("--help");
    const ChildResult result = run(verb);
    EXPECT_EQ(result.status, 0) << testing::PrintToString(verb);
    EXPECT_THAT(result.output, HasSubstr("--json"));
    EXPECT_THAT(result.output, HasSubstr("--timeout"));
    EXPECT_THAT(result.output, HasSubstr("Exit status: "));
  }
}

}  // namespace
