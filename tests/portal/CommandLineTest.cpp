#include "tests/portal/Portal.h"

namespace {

class CommandLine : public PortalTest {
 protected:
  int run(const std::vector<std::string>& arguments) const { return command(arguments).status; }
  Json show() const { return Json::parse(command({"--json", "show", "-"}).output, nullptr, false); }
};

TEST_F(CommandLine, DoesAllThatAnAdministratorDoes) {
  const std::string code = newCode();
  EXPECT_NE(command({"codes"}).output.find(code), std::string::npos);
  EXPECT_EQ(run({"claim", code.substr(0, 4) + "-" + code.substr(4), "--name", "Lobby"}), 0);
  EXPECT_NE(command({"terminals"}).output.find("Lobby"), std::string::npos);
  EXPECT_EQ(run({"rename", "Lobby", "Entrance hall"}), 0);
  EXPECT_EQ(run({"sign-in", "-", "--microsoft", "off", "--host", "a.example.com", "--host",
                 "b.example.com"}),
            0);
  EXPECT_EQ(run({"exit-password", "Entrance hall", "secret"}), 0);
  EXPECT_EQ(run({"power", "-", R"({"screenOffMinutes":1,"sleepMinutes":2})", "--source", "device"}),
            0);
  EXPECT_EQ(run({"updates", "-", R"({"automatic":true})"}), 0);
  const Json terminal = show();
  EXPECT_EQ(terminal["name"], "Entrance hall");
  EXPECT_EQ(terminal["signIn"], Json({{"microsoft", false},
                                      {"email", false},
                                      {"extraHosts", {"a.example.com", "b.example.com"}}}));
  EXPECT_EQ(terminal["exitPassword"], "secret");
  EXPECT_EQ(terminal["power"], Json({{"screenOffMinutes", 1}, {"sleepMinutes", 2}}));
  EXPECT_EQ(terminal["powerSource"], "device");
  EXPECT_EQ(terminal["updates"], Json({{"automatic", true}}));
}

TEST_F(CommandLine, RemovesAPolicyAndHosts) {
  pair();
  ASSERT_EQ(run({"power", "-", "{}", "--source", "tenant", "--raw"}), 0);
  ASSERT_EQ(show()["power"], Json::object());
  EXPECT_EQ(run({"power", "-", "--none"}), 0);
  EXPECT_EQ(run({"sign-in", "-", "--host", "a.example.com"}), 0);
  EXPECT_EQ(run({"sign-in", "-", "--no-hosts"}), 0);
  const Json terminal = show();
  EXPECT_FALSE(terminal.contains("power"));
  EXPECT_FALSE(terminal.contains("powerSource"));
  EXPECT_EQ(terminal["signIn"]["extraHosts"], Json::array());
}

TEST_F(CommandLine, EndsWithOneWhenThePortalRefuses) {
  EXPECT_EQ(run({"claim", "ABCD2345"}), 1);
  EXPECT_EQ(run({"show", "nobody"}), 1);
  EXPECT_EQ(run({"misbehave", "rude"}), 1);
  pair();
  EXPECT_EQ(run({"power", "-", "[]"}), 1);
  pair();
  const ProgramResult ambiguous = command({"revoke", "-"});
  EXPECT_EQ(ambiguous.status, 1);
  EXPECT_NE(ambiguous.output.find("more than one"), std::string::npos);
}

TEST_F(CommandLine, EndsWithTwoWhenItIsMisused) {
  EXPECT_EQ(run({}), 2);
  EXPECT_EQ(run({"dance"}), 2);
  EXPECT_EQ(run({"claim"}), 2);
  EXPECT_EQ(run({"power", "-"}), 2);
  EXPECT_EQ(run({"power", "-", "{"}), 2);
  EXPECT_EQ(run({"power", "-", "{}", "--none"}), 2);
  EXPECT_EQ(run({"sign-in", "-", "--email", "maybe"}), 2);
  EXPECT_EQ(run({"serve", "--port", "65536"}), 2);
}

TEST_F(CommandLine, EndsWithThreeWhenThePortalDoesNotRun) {
  stop();
  EXPECT_EQ(run({"terminals"}), 3);
  EXPECT_EQ(run({"revoke", "-"}), 3);
}

TEST_F(CommandLine, ExplainsEveryCommand) {
  for (const char* name :
       {"serve", "terminals", "codes", "show", "claim", "expire", "rename", "sign-in",
        "exit-password", "power", "updates", "revoke", "forget", "misbehave"}) {
    const ProgramResult help = command({name, "--help"});
    EXPECT_EQ(help.status, 0) << name;
    EXPECT_NE(help.output.find("Usage"), std::string::npos) << name;
  }
}

TEST_F(CommandLine, RevokesForgetsAndExpires) {
  std::string id;
  const std::string token = pair(&id);
  EXPECT_EQ(run({"revoke", id.substr(0, 6)}), 0);
  EXPECT_EQ(checkIn(token).body["status"], "revoked");
  EXPECT_EQ(run({"forget", id}), 0);
  EXPECT_EQ(checkIn(token).body["status"], "unknown");
  const std::string code = newCode();
  EXPECT_EQ(run({"expire", code}), 0);
  EXPECT_EQ(device("GET", "/api/kiosk/pair/" + code).status, 410);
}

TEST_F(CommandLine, LetsThePortalMisbehave) {
  EXPECT_EQ(run({"misbehave", "status", "--status", "503", "--body", "{}", "--times", "1", "--path",
                 "/api/kiosk"}),
            0);
  EXPECT_NE(command({"misbehave"}).output.find("503"), std::string::npos);
  EXPECT_EQ(device("GET", "/api/kiosk/pair/ABCD2345").status, 503);
  EXPECT_EQ(run({"misbehave", "slow", "--delay-ms", "0"}), 0);
  EXPECT_EQ(Json::parse(command({"--json", "misbehave", "none"}).output), Json({{"mode", "none"}}));
}

}  // namespace
