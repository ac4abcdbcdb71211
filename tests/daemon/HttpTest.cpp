// The HTTP client, against a real server on loopback.
#include <chrono>
#include <string>

#include "portal/KioskHttp.h"
#include "tests/daemon/DaemonTest.h"
#include "tests/platform/TestServer.h"

namespace {

constexpr std::size_t kLargestBody = std::size_t{16} << 20;

class Http : public DaemonTest {
 protected:
  KioskHttpResult get(const std::string& path, const std::string& token = "") const {
    return KioskHttp(portal.url(), "GET", path, Json(), token);
  }
  KioskHttpResult post(const std::string& path, const Json& body) const {
    return KioskHttp(portal.url(), "POST", path, body, "");
  }
  void expectUnreached(const KioskHttpResult& result) const {
    EXPECT_FALSE(result.reached);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.body, Json::object());
    EXPECT_EQ(result.data, "");
    EXPECT_FALSE(result.success());
  }
  // The one line of the log says, as information, that this was not reached, and why.
  void expectOneNotReachedLine(const std::string& what) const {
    ASSERT_EQ(mac.log().size(), 1U) << mac.read("/private/var/log/system.log");
    const LogLine line = mac.log().front();
    const std::string start = what + ": not reached (";
    EXPECT_EQ(line.level, "Default");
    EXPECT_TRUE(line.text.starts_with(start) && line.text.ends_with(")")) << line.text;
    EXPECT_GT(line.text.size(), start.size() + 1) << line.text;
  }
};

TEST_F(Http, SendsAGetWithoutBodyAndContentType) {
  get("/some/path");
  ASSERT_EQ(portal.requests().size(), 1U);
  const PortalRequest request = portal.requests().front();
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.path, "/some/path");
  EXPECT_EQ(request.header("accept"), "application/json");
  EXPECT_EQ(request.header("content-type"), std::nullopt);
  EXPECT_EQ(request.header("content-length"), std::nullopt);
  EXPECT_EQ(request.body, "");
}

TEST_F(Http, SendsABodyAsCompactJson) {
  post("/x", {{"b", nullptr}, {"a", {1, "two"}}});
  ASSERT_EQ(portal.requests("POST /x").size(), 1U);
  const PortalRequest request = portal.requests().front();
  EXPECT_EQ(request.body, R"({"a":[1,"two"],"b":null})");
  EXPECT_EQ(request.header("content-type"), "application/json");
  EXPECT_EQ(request.header("accept"), "application/json");
}

TEST_F(Http, SendsAnEmptyObjectAsABody) {
  post("/x", Json::object());
  ASSERT_EQ(portal.requests().size(), 1U);
  EXPECT_EQ(portal.requests().front().body, "{}");
  EXPECT_EQ(portal.requests().front().header("content-type"), "application/json");
}

TEST_F(Http, SendsTheTokenAsBearer) {
  get("/x", "s3cret");
  ASSERT_EQ(portal.requests().size(), 1U);
  EXPECT_EQ(portal.requests().front().header("authorization"), "Bearer s3cret");
}

TEST_F(Http, SendsNoAuthorizationForAnEmptyToken) {
  get("/x", "");
  ASSERT_EQ(portal.requests().size(), 1U);
  EXPECT_EQ(portal.requests().front().header("authorization"), std::nullopt);
}

TEST_F(Http, DownloadsDataOfAnyTypeWithAGet) {
  const std::string bytes("\x89PNG\0\xff", 6);
  portal.answerText("GET /photo", 200, bytes, "image/png");
  const KioskHttpResult result = KioskHttpGetData(portal.url(), "/photo", "s3cret");
  EXPECT_TRUE(result.success());
  EXPECT_EQ(result.data, bytes);
  EXPECT_EQ(result.body, Json::object());
  ASSERT_EQ(portal.requests().size(), 1U);
  const PortalRequest request = portal.requests().front();
  EXPECT_EQ(request.header("accept"), "*/*");
  EXPECT_EQ(request.header("authorization"), "Bearer s3cret");
  EXPECT_EQ(request.header("content-type"), std::nullopt);
  EXPECT_EQ(request.body, "");
}

TEST_F(Http, SharesOneConnectionBetweenAllRequests) {
  const contract::TestServer server([](const std::string&) { return contract::Answered("{}"); });
  KioskHttp(server.url(""), "GET", "/1", Json(), "");
  KioskHttp(server.url(""), "POST", "/2", Json::object(), "token");
  KioskHttpGetData(server.url(""), "/3", "token");
  const std::vector<contract::ReceivedRequest> requests = server.requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[1].clientPort, requests[0].clientPort);
  EXPECT_EQ(requests[2].clientPort, requests[0].clientPort);
}

TEST_F(Http, PutsAddressAndPathTogetherAsTheyAre) {
  KioskHttp(portal.url() + "/kiosk", "GET", "/x", Json(), "");
  KioskHttp(portal.url() + "/", "GET", "/x", Json(), "");
  ASSERT_EQ(portal.requests().size(), 2U);
  EXPECT_EQ(portal.requests()[0].path, "/kiosk/x");
  EXPECT_EQ(portal.requests()[1].path, "//x");
}

TEST_F(Http, TakesA204WithoutBodyAsSuccess) {
  portal.answerText("GET /x", 204, "", "");
  const KioskHttpResult result = get("/x");
  EXPECT_TRUE(result.reached);
  EXPECT_EQ(result.status, 204);
  EXPECT_TRUE(result.success());
  EXPECT_EQ(result.body, Json::object());
  EXPECT_EQ(result.data, "");
}

TEST_F(Http, ReachesAPortalThatAnswersWithHtml) {
  portal.answerText("GET /x", 500, "<html>oops</html>", "text/html");
  const KioskHttpResult result = get("/x");
  EXPECT_TRUE(result.reached);
  EXPECT_EQ(result.status, 500);
  EXPECT_FALSE(result.success());
  EXPECT_EQ(result.body, Json::object());
  EXPECT_EQ(result.data, "<html>oops</html>");
  EXPECT_EQ(mac.log(), std::vector<LogLine>{});
}

TEST_F(Http, HandsOverTheObjectOfARefusal) {
  portal.answer("GET /x", 401, {{"status", "revoked"}});
  const KioskHttpResult result = get("/x");
  EXPECT_TRUE(result.reached);
  EXPECT_EQ(result.status, 401);
  EXPECT_FALSE(result.success());
  EXPECT_EQ(result.body, (Json{{"status", "revoked"}}));
}

TEST_F(Http, HandsOverTheObjectOfASuccessWithItsBytes) {
  portal.answerText("GET /x", 200, R"({ "a" : 1 })", "text/plain");
  const KioskHttpResult result = get("/x");
  EXPECT_TRUE(result.success());
  EXPECT_EQ(result.body, (Json{{"a", 1}}));
  EXPECT_EQ(result.data, R"({ "a" : 1 })");
}

TEST_F(Http, LeavesTheBodyEmptyWhenItIsNoObject) {
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  for (const std::string& text :
       {std::string("[1,2]"), std::string("5"), std::string("null"), std::string("\"text\""),
        std::string("{\"a\":"), std::string("{\"a\":\"\xff\"}"), std::string(R"({"a":1e999})"),
        deep}) {
    portal.answerText("GET /x", 200, text, "application/json");
    const KioskHttpResult result = get("/x");
    EXPECT_TRUE(result.success()) << text.substr(0, 20);
    EXPECT_EQ(result.body, Json::object()) << text.substr(0, 20);
    EXPECT_EQ(result.data, text) << text.substr(0, 20);
  }
}

TEST_F(Http, ReadsNoJsonThatIsTooLong) {
  constexpr std::size_t kLongest = std::size_t{1} << 20;
  const std::string object = R"({"a": 1})";
  portal.answerText("GET /longest", 200, object + std::string(kLongest - object.size(), ' '),
                    "application/octet-stream");
  portal.answerText("GET /longer", 200, object + std::string(kLongest - object.size() + 1, ' '),
                    "application/octet-stream");
  EXPECT_EQ(get("/longest").body, (Json{{"a", 1}}));
  const KioskHttpResult longer = get("/longer");
  EXPECT_TRUE(longer.success());
  EXPECT_EQ(longer.body, Json::object());
  EXPECT_EQ(longer.data.size(), kLongest + 1);
}

TEST_F(Http, SucceedsFrom200To299Only) {
  for (const auto& [status, success] :
       {std::pair{200, true}, std::pair{299, true}, std::pair{300, false}, std::pair{404, false}}) {
    portal.answer("GET /x", status, Json::object());
    EXPECT_EQ(get("/x").status, status);
    EXPECT_EQ(get("/x").success(), success) << status;
  }
}

TEST_F(Http, IsNoSuccessBeforeAnythingWasReached) {
  KioskHttpResult result;
  result.status = 200;
  EXPECT_FALSE(result.success());
}

TEST_F(Http, SaysOnceThatAPortalIsNotReached) {
  portal.stop();
  expectUnreached(get("/api/x"));
  expectOneNotReachedLine("GET /api/x");
}

TEST_F(Http, ReachesAPortalThatIsBack) {
  portal.answer("GET /x", 200, Json::object());
  EXPECT_TRUE(get("/x").success());
  portal.stop();
  EXPECT_FALSE(get("/x").reached);
  portal.resume();
  EXPECT_TRUE(get("/x").success());
}

TEST_F(Http, GivesUpAfterHalfAMinuteOnAnAnswerThatTricklesIn) {
  portal.drip("GET /x", 90);
  const auto start = std::chrono::steady_clock::now();
  expectUnreached(get("/x"));
  const auto end = std::chrono::steady_clock::now();
  expectOneNotReachedLine("GET /x");
  EXPECT_GE(end - start, std::chrono::seconds(29)) << "the bytes that came counted as none";
  EXPECT_LT(end - start, std::chrono::seconds(60)) << "the answer goes on for a minute and a half";
}

TEST_F(Http, RefusesAnAddressThatIsNone) {
  for (const char* url : {"http://", "http://[::1", "http://127.0.0.1:99999", "http://a b",
                          "http://host\n", "http://%zz", "1:2"}) {
    const std::string path = std::string(url) == "http://" ? " x" : "/x";
    const std::size_t before = mac.countErrors("POST " + path + ": bad URL");
    expectUnreached(KioskHttp(url, "POST", path, Json::object(), ""));
    EXPECT_EQ(mac.countErrors("POST " + path + ": bad URL"), before + 1) << url;
  }
  EXPECT_EQ(mac.log().size(), 7U);
}

TEST_F(Http, SpeaksNothingButHttp) {
  mac.write("/private/tmp/x", "{}");
  expectUnreached(KioskHttp("file://", "GET", "/private/tmp/x", Json(), ""));
  expectOneNotReachedLine("GET /private/tmp/x");
}

TEST_F(Http, DoesNotGuessTheSchemeOfAnAddress) {
  const std::string address = "localhost" + portal.url().substr(portal.url().rfind(':'));
  expectUnreached(KioskHttp(address, "GET", "/x", Json(), ""));
  expectOneNotReachedLine("GET /x");
  EXPECT_EQ(portal.requests().size(), 0U);
}

TEST_F(Http, DoesNotSendATokenThatWouldForgeAHeader) {
  expectUnreached(get("/x", "token\r\nX-Forged: yes"));
  expectOneNotReachedLine("GET /x");
  EXPECT_EQ(portal.requests().size(), 0U);
}

TEST_F(Http, FollowsARedirect) {
  portal.redirect("GET /old", 302, "/new");
  portal.answer("GET /new", 200, {{"here", true}});
  const KioskHttpResult result = get("/old");
  EXPECT_EQ(result.status, 200);
  EXPECT_EQ(result.body, (Json{{"here", true}}));
}

TEST_F(Http, RepeatsABodyWhereARedirectAsksForIt) {
  portal.redirect("POST /old", 307, "/new");
  portal.answer("POST /new", 200, Json::object());
  EXPECT_EQ(post("/old", {{"a", 1}}).status, 200);
  ASSERT_EQ(portal.requests("POST /new").size(), 1U);
  EXPECT_EQ(portal.requests("POST /new").front().body, R"({"a":1})");
}

TEST_F(Http, KeepsTheTokenFromAnotherHostThatARedirectNames) {
  ScriptedPortal other;
  portal.redirect("GET /x", 302, other.url() + "/x");
  get("/x", "s3cret");
  ASSERT_EQ(other.requests("GET /x").size(), 1U);
  EXPECT_EQ(other.requests().front().header("authorization"), std::nullopt);
}

TEST_F(Http, GivesUpOnRedirectsThatGoRoundInCircles) {
  portal.redirect("GET /x", 302, "/x");
  expectUnreached(get("/x"));
  expectOneNotReachedLine("GET /x");
  EXPECT_LT(portal.requests().size(), 50U);
}

TEST_F(Http, DoesNotFollowARedirectToAFile) {
  mac.write("/private/tmp/x", R"({"status": "enrolled"})");
  portal.redirect("GET /x", 302, "file:///private/tmp/x");
  expectUnreached(get("/x"));
}

TEST_F(Http, TakesTheLargestBodyAndNothingLarger) {
  constexpr char kBytes[] = "application/octet-stream";  // which the server does not compress
  portal.answerText("GET /largest", 200, std::string(kLargestBody, 'x'), kBytes);
  portal.answerText("GET /larger", 200, std::string(kLargestBody + 1, 'x'), kBytes);
  EXPECT_EQ(get("/largest").data.size(), kLargestBody);
  expectUnreached(get("/larger"));
  expectOneNotReachedLine("GET /larger");
}

}  // namespace
