#include <chrono>
#include <future>

#include "tests/portal/Portal.h"

namespace {

constexpr char kPoll[] = "/api/kiosk/pair/ABCD2345";

class Misbehaviour : public PortalTest {
 protected:
  void misbehave(const Json& settings) {
    ASSERT_EQ(admin("PUT", "/api/admin/misbehaviour", settings).status, 200) << settings;
  }
  std::string mode() { return admin("GET", "/api/admin/misbehaviour").body["mode"]; }
  Answer poll() { return device("GET", kPoll); }
};

TEST_F(Misbehaviour, AnswersLateWhenSlow) {
  misbehave({{"mode", "slow"}, {"delayMs", 300}, {"times", 1}});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(poll().status, 404);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
  EXPECT_EQ(mode(), "none");
}

TEST_F(Misbehaviour, AnswersAtOnceWhenItIsNoLongerSlow) {
  misbehave({{"mode", "slow"}, {"delayMs", 600000}});
  portal::HttpsClient client = deviceClient();
  client.setTimeout(50);
  EXPECT_EQ(Exchange(client, "GET", kPoll, "", "").status, 0);
  misbehave({{"mode", "none"}});
  EXPECT_EQ(poll().status, 404);
}

TEST_F(Misbehaviour, ServesARequestButCutsItsAnswer) {
  const std::string code = newCode();
  ASSERT_EQ(admin("POST", "/api/admin/codes/" + code + "/claim").status, 200);
  misbehave({{"mode", "cut"}, {"times", 1}});
  const Answer cut = device("GET", "/api/kiosk/pair/" + code);
  EXPECT_EQ(cut.status, 0);
  EXPECT_EQ(cut.error, "Read");
  EXPECT_EQ(device("GET", "/api/kiosk/pair/" + code).status, 409);
}

TEST_F(Misbehaviour, AnswersGarbage) {
  misbehave({{"mode", "garbage"}});
  const Answer answer = poll();
  EXPECT_EQ(answer.status, 200);
  EXPECT_TRUE(answer.body.is_null());
  EXPECT_FALSE(answer.text.empty());
}

TEST_F(Misbehaviour, AnswersWithAnErrorPage) {
  misbehave({{"mode", "html500"}});
  const Answer answer = poll();
  EXPECT_EQ(answer.status, 500);
  EXPECT_EQ(answer.headers.at("content-type"), "text/html");
}

TEST_F(Misbehaviour, AnswersWithAGivenStatusAndBody) {
  misbehave({{"mode", "status"}, {"status", 403}, {"body", {{"status", "revoked"}}}});
  const Answer answer = poll();
  EXPECT_EQ(answer.status, 403);
  EXPECT_EQ(answer.body, Json({{"status", "revoked"}}));
  misbehave({{"mode", "status"}, {"status", 204}});
  EXPECT_EQ(poll().status, 204);
}

TEST_F(Misbehaviour, ShowsACertificateOfAnotherAuthorityToNewAndOldClients) {
  portal::HttpsClient old = deviceClient();
  ASSERT_EQ(Exchange(old, "GET", kPoll, "", "").status, 404);
  misbehave({{"mode", "wrongCertificate"}});
  EXPECT_EQ(poll().error, "SSLServerVerification");
  EXPECT_EQ(Exchange(old, "GET", kPoll, "", "").status, 0);
  misbehave({{"mode", "none"}});
  EXPECT_EQ(poll().status, 404);
}

TEST_F(Misbehaviour, CountsConnectionsThatSeeTheWrongCertificate) {
  misbehave({{"mode", "wrongCertificate"}, {"times", 1}});
  EXPECT_EQ(poll().status, 0);
  EXPECT_EQ(poll().status, 404);
}

TEST_F(Misbehaviour, RefusesNewConnectionsAndEndsOldOnes) {
  portal::HttpsClient old = deviceClient();
  ASSERT_EQ(Exchange(old, "GET", kPoll, "", "").status, 404);
  for (int i = 0; i < 3; ++i) {
    misbehave({{"mode", "refuse"}});
    EXPECT_EQ(poll().status, 0);
    EXPECT_EQ(Exchange(old, "GET", kPoll, "", "").status, 0);
    misbehave({{"mode", "none"}});
    EXPECT_EQ(Exchange(old, "GET", kPoll, "", "").status, 404);
  }
}

TEST_F(Misbehaviour, RefusesConnectionsEvenWhileAnAnswerIsDelayed) {
  misbehave({{"mode", "slow"}, {"delayMs", 600000}});
  auto delayed = std::async(std::launch::async, [this] { return poll(); });
  misbehave({{"mode", "refuse"}});
  delayed.wait();
  EXPECT_EQ(poll().status, 0);
}

TEST_F(Misbehaviour, IsLimitedToAPathAndANumberOfRequests) {
  misbehave({{"mode", "html500"}, {"path", "/api/kiosk/check-in"}, {"times", 2}});
  EXPECT_EQ(poll().status, 404);
  EXPECT_EQ(checkIn("x").status, 500);
  EXPECT_EQ(admin("GET", "/api/admin/misbehaviour").body["times"], 1);
  EXPECT_EQ(checkIn("x").status, 500);
  EXPECT_EQ(checkIn("x").status, 401);
}

TEST_F(Misbehaviour, RefusesSettingsThatMakeNoSense) {
  for (const Json& settings : std::vector<Json>{Json::object(),
                                                {{"mode", "rude"}},
                                                {{"mode", 5}},
                                                {{"mode", "slow"}},
                                                {{"mode", "status"}},
                                                {{"mode", "status"}, {"status", 99}},
                                                {{"mode", "refuse"}, {"times", 1}},
                                                {{"mode", "cut"}, {"times", 0}},
                                                {{"mode", "cut"}, {"path", "api"}}})
    EXPECT_EQ(admin("PUT", "/api/admin/misbehaviour", settings).status, 400) << settings;
  EXPECT_EQ(mode(), "none");
}

TEST_F(Misbehaviour, SparesTheAdministrator) {
  misbehave({{"mode", "garbage"}});
  EXPECT_EQ(admin("GET", "/api/admin/terminals").status, 200);
}

}  // namespace
