// What the command line makes of answers that the portal never gives.
#include <fstream>

#include "simulator/portal/Certificates.h"
#include "simulator/portal/HttpsServer.h"
#include "tests/portal/Portal.h"

namespace {

/// Something that only looks like a portal: it answers every request alike.
class PortalAnswer : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(dir());
    std::string problem;
    const auto authority = portal::LoadOrMakeAuthority(dir(), problem);
    ASSERT_TRUE(authority) << problem;
    const auto identity = portal::MakeServerIdentity(*authority);
    ASSERT_TRUE(identity);
    _server = std::make_unique<portal::HttpsServer>(
        [this](const portal::HttpRequest&) { return _answer; }, [identity] { return *identity; });
    ASSERT_TRUE(_server->reserve(0) && _server->accept());
    const std::string url = "https://127.0.0.1:" + std::to_string(_server->port());
    std::ofstream(dir() / "ready.json") << Json{{"adminUrl", url}, {"adminToken", "x"}};
  }

  void answer(int status, const std::string& body) {
    _answer.status = status;
    _answer.body = body;
  }

  ProgramResult command(const std::vector<std::string>& arguments) const {
    std::vector<std::string> whole = {PORTAL_PROGRAM, "--dir", dir()};
    whole.insert(whole.end(), arguments.begin(), arguments.end());
    return RunProgram(whole, "secret\n");
  }

  std::filesystem::path dir() const { return _folder.path("portal"); }

 private:
  TemporaryFolder _folder;
  portal::HttpResponse _answer;
  std::unique_ptr<portal::HttpsServer> _server;
};

TEST_F(PortalAnswer, IsRefusedWhenItMakesNoSense) {
  for (const char* body :
       {"", "no JSON", "null", "[]", "{}", R"({"terminals": 5, "codes": {}})",
        R"({"terminals": [5], "codes": [5]})", R"({"terminals": [{"id": 5, "name": "x"}]})",
        R"({"terminals": [{"id": "5", "name": 5}], "photos": [{}]})"}) {
    answer(200, body);
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"terminals"},
                                               {"codes"},
                                               {"show", "-"},
                                               {"exit-password", "-"},
                                               {"sign-in", "-", "--email", "on"},
                                               {"updates", "-", "--automatic", "on"},
                                               {"branding", "-", "--display-name", "x"},
                                               {"photo", "-", "list"},
                                               {"photo", "-", "remove", "0000"},
                                               {"revoke", "-"},
                                               {"forget", "-"},
                                               {"claim", "ABCD2345"}}) {
      const ProgramResult result = command(arguments);
      EXPECT_EQ(result.status, 1) << arguments[0] << " " << body;
      EXPECT_NE(result.output.find("the portal's answer makes no sense"), std::string::npos)
          << result.output;
    }
  }
}

TEST_F(PortalAnswer, IsRefusedWhenItsPhotosMakeNoSense) {
  for (const char* photos : {"5", "[5]", "[{}]", R"([{"sha256": 5}])"}) {
    answer(200, R"({"terminals": [{"id": "0123", "name": "x"}], "photos": )" + std::string(photos) +
                    "}");
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"photo", "-", "list"}, {"photo", "-", "remove", "0000"}}) {
      const ProgramResult result = command(arguments);
      EXPECT_EQ(result.status, 1) << photos;
      EXPECT_NE(result.output.find("the portal's answer makes no sense"), std::string::npos)
          << result.output;
    }
  }
}

TEST_F(PortalAnswer, IsARefusalByItsStatusWhateverItsBody) {
  for (const char* body : {"", "<html>", "[]", R"({"error": 5})"}) {
    answer(500, body);
    const ProgramResult result = command({"revoke", "-"});
    EXPECT_EQ(result.status, 1) << body;
    EXPECT_NE(result.output.find("(HTTP 500)"), std::string::npos) << result.output;
  }
}

TEST_F(PortalAnswer, MayLackWhatIsShownOnlyWhereItIsThere) {
  answer(200, R"({"terminals": [{"id": "0123", "name": "x"}]})");
  EXPECT_EQ(command({"terminals"}).status, 0);
  EXPECT_EQ(command({"show", "-"}).status, 0);
  EXPECT_EQ(command({"sign-in", "-", "--email", "on"}).status, 1);
}

}  // namespace
