#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tests/portal/Portal.h"

namespace {

class CommandLine : public PortalTest {
 protected:
  int run(const std::vector<std::string>& arguments) const { return command(arguments).status; }
  /// Types into the terminal of "exit-password -" once it no longer echoes.
  ProgramResult typePassword(const std::string& keys) const;
  Json show() const { return Json::parse(command({"--json", "show", "-"}).output, nullptr, false); }
};

ProgramResult CommandLine::typePassword(const std::string& keys) const {
  const std::string folder = dir();
  int terminal = -1;
  const pid_t process = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (process == 0) {
    execl(PORTAL_PROGRAM, PORTAL_PROGRAM, "--dir", folder.c_str(), "exit-password", "-", nullptr);
    _exit(127);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  termios settings{};
  while (tcgetattr(terminal, &settings) == 0 && (settings.c_lflag & ECHO) != 0 &&
         std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  ProgramResult result;
  EXPECT_EQ(write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  // The last read of a terminal that nobody has open any more fails.
  char next = 0;
  while (read(terminal, &next, 1) == 1) result.output += next;
  close(terminal);
  int status = 0;
  if (waitpid(process, &status, 0) == process && WIFEXITED(status))
    result.status = WEXITSTATUS(status);
  return result;
}

TEST_F(CommandLine, DoesAllThatAnAdministratorDoes) {
  const std::string code = newCode();
  EXPECT_NE(command({"codes"}).output.find(code), std::string::npos);
  EXPECT_EQ(run({"claim", code.substr(0, 4) + "-" + code.substr(4), "--name", "Lobby"}), 0);
  EXPECT_NE(command({"terminals"}).output.find("Lobby"), std::string::npos);
  EXPECT_EQ(run({"rename", "Lobby", "Entrance hall"}), 0);
  EXPECT_EQ(run({"sign-in", "-", "--microsoft", "off", "--host", "a.example.com", "--host",
                 "b.example.com"}),
            0);
  EXPECT_EQ(command({"exit-password", "Entrance hall"}, "secret\n").status, 0);
  EXPECT_EQ(run({"power", "-", R"({"screenOffMinutes":1,"sleepMinutes":2})", "--source", "device"}),
            0);
  EXPECT_EQ(run({"updates", "-", R"({"automatic":true})"}), 0);
  const Json terminal = show();
  EXPECT_EQ(terminal["name"], "Entrance hall");
  EXPECT_EQ(terminal["signIn"], Json({{"microsoft", false},
                                      {"email", false},
                                      {"extraHosts", {"a.example.com", "b.example.com"}}}));
  EXPECT_EQ(terminal["exitPasswordSet"], true);
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
  EXPECT_NE(ambiguous.output.find("use the id"), std::string::npos);
}

TEST_F(CommandLine, MeansNoTerminalByAnEmptyId) {
  pair();
  const ProgramResult revoked = command({"revoke", ""});
  EXPECT_EQ(revoked.status, 1);
  EXPECT_NE(revoked.output.find("an empty ID means no terminal"), std::string::npos);
  EXPECT_EQ(show()["status"], "enrolled");
}

TEST_F(CommandLine, ListsATerminalThatReportsAsDeepAsItMay) {
  Json deep = Json::array();
  for (int depth = 2; depth < 63; ++depth) deep = Json::array({deep});
  const std::string token = pair();
  ASSERT_EQ(checkIn(token, {{"osUpdates", {{"error", deep}}}}).status, 200);
  EXPECT_EQ(checkIn(token, {{"osUpdates", {{"error", {deep}}}}}).status, 400);
  EXPECT_EQ(run({"terminals"}), 0);
  EXPECT_EQ(show()["osUpdates"]["error"], deep);
  EXPECT_EQ(run({"revoke", "-"}), 0);
  EXPECT_EQ(run({"forget", "-"}), 0);
}

TEST_F(CommandLine, ShowsNoControlCharactersThatATerminalSends) {
  Json request = PairRequest();
  request["hostname"] = "\x1b[2J\xc2\x9b\x7f\u00fcber\r\n";
  request["osVersion"] = "\x1b]0;x\x07";
  const Json code = device("POST", "/api/kiosk/pair", request.dump()).body["pairingCode"];
  std::string shown = command({"codes"}).output;
  ASSERT_EQ(run({"claim", code}), 0);
  shown += command({"terminals"}).output + command({"show", "-"}).output;
  EXPECT_NE(shown.find("?[2J??\u00fcber??"), std::string::npos) << shown;
  for (const char* control : {"\x1b", "\x07", "\r", "\x7f", "\xc2\x9b"})
    EXPECT_EQ(shown.find(control), std::string::npos);
}

TEST_F(CommandLine, ReadsThePasswordWhereNobodyElseDoes) {
  const std::string token = pair();
  const ProgramResult refused = command({"exit-password", "-", "secret"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_NE(refused.output.find("give it on standard input"), std::string::npos);
  EXPECT_EQ(refused.output.find("secret"), std::string::npos);
  EXPECT_FALSE(checkIn(token).body.contains("exitPassword"));
  EXPECT_EQ(command({"exit-password", "-", "-"}, "one\nmore\n").status, 0);
  EXPECT_EQ(checkIn(token).body["exitPassword"], "one");
  EXPECT_EQ(command({"exit-password", "-"}, "no line end").status, 0);
  EXPECT_EQ(checkIn(token).body["exitPassword"], "no line end");
  for (const std::string& none : {std::string(), std::string("\n"), std::string(1025, 'x')})
    EXPECT_EQ(command({"exit-password", "-"}, none).status, 1);
  EXPECT_EQ(checkIn(token).body["exitPassword"], "no line end");
}

TEST_F(CommandLine, ReadsThePasswordFromATerminalWithoutEcho) {
  const std::string token = pair();
  const ProgramResult typed = typePassword("secret\nsecret\n");
  EXPECT_EQ(typed.status, 0) << typed.output;
  EXPECT_NE(typed.output.find("Password: "), std::string::npos);
  EXPECT_EQ(typed.output.find("secret"), std::string::npos);
  EXPECT_EQ(checkIn(token).body["exitPassword"], "secret");
  EXPECT_EQ(typePassword("one\nother\n").status, 1);
  EXPECT_EQ(checkIn(token).body["exitPassword"], "secret");
}

TEST_F(CommandLine, NeverShowsAPassword) {
  pair();
  EXPECT_EQ(show()["exitPasswordSet"], false);
  ProgramResult result = command({"--json", "exit-password", "-"}, "secret");
  EXPECT_EQ(Json::parse(result.output, nullptr, false)["exitPasswordSet"], true);
  result.output +=
      command({"--json", "terminals"}).output + command({"--json", "show", "-"}).output;
  EXPECT_EQ(result.output.find("secret"), std::string::npos);
}

TEST_F(CommandLine, EndsWithTwoWhenItIsMisused) {
  EXPECT_EQ(run({}), 2);
  EXPECT_EQ(run({"dance"}), 2);
  EXPECT_EQ(run({"claim"}), 2);
  EXPECT_EQ(run({"power", "-"}), 2);
  EXPECT_EQ(run({"power", "-", "{"}), 2);
  EXPECT_EQ(run({"power", "-", "{}", "--none"}), 2);
  EXPECT_EQ(run({"exit-password", "-", "secret"}), 2);
  EXPECT_EQ(run({"sign-in", "-", "--email", "maybe"}), 2);
  EXPECT_EQ(run({"serve", "--port", "65536"}), 2);
}

TEST_F(CommandLine, SaysHowLongANameMayBe) {
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"rename", "-", std::string(81, 'x')},
           {"claim", "ABCD2345", "--name", std::string(81, 'x')}}) {
    const ProgramResult refused = command(arguments);
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.output.find("has 81 characters, not 1 to 80"), std::string::npos)
        << refused.output;
  }
}

TEST_F(CommandLine, EndsWithThreeWhenThePortalDoesNotRun) {
  stop();
  EXPECT_EQ(run({"terminals"}), 3);
  EXPECT_EQ(run({"revoke", "-"}), 3);
}

TEST_F(CommandLine, ExplainsEveryCommand) {
  for (const char* name : {"serve", "terminals", "codes", "show", "claim", "expire", "rename",
                           "sign-in", "exit-password", "power", "updates", "branding", "photo",
                           "revoke", "forget", "misbehave"}) {
    const ProgramResult help = command({name, "--help"});
    EXPECT_EQ(help.status, 0) << name;
    EXPECT_NE(help.output.find("Usage"), std::string::npos) << name;
  }
  for (const char* name : {"add", "list", "remove"}) {
    const ProgramResult help = command({"photo", "-", name, "--help"});
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
