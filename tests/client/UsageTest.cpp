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
  };
  for (const std::vector<std::string>& arguments : wrong) {
    const ChildResult result = run(arguments);
    EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors, "");
  }
  EXPECT_EQ(connections(), 0);
}

TEST_F(Usage, HelpsWithEveryVerb) {
  for (const char* const verb : {"status", "pair", "check", "restart", "send"}) {
    EXPECT_THAT(run({"--help"}).output, HasSubstr(verb));
    const ChildResult result = run({verb, "--help"});
    EXPECT_EQ(result.status, 0) << verb;
    EXPECT_THAT(result.output, HasSubstr("--json"));
    EXPECT_THAT(result.output, HasSubstr("--timeout"));
  }
}

}  // namespace
