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
