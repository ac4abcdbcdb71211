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

class PhotoMisbehaviour : public Misbehaviour {
 protected:
  void SetUp() override {
    Misbehaviour::SetUp();
    std::string id;
    _token = pair(&id);
    const Json branding = {{"branding", {{"displayName", "Hotel"}}}};
    ASSERT_EQ(admin("PATCH", "/api/admin/terminals/" + id, branding).status, 200);
    ASSERT_EQ(upload(id, _bytes).status, 201);
  }

  void spoil(Json settings) {
    settings.update({{"path", "/api/kiosk/branding/photos/"}, {"times", 1}});
    misbehave(settings);
  }
  Answer fetch() { return photo(DigestOf(_bytes), _token); }
  void fetchesTheRightBytes() { EXPECT_EQ(fetch().text, _bytes); }

  const std::string _bytes = PngPhoto(640, 480, "the picture itself");
  std::string _token;
};

TEST_F(PhotoMisbehaviour, BringsAPhotoOfAnotherDigest) {
  spoil({{"mode", "corrupt"}});
  EXPECT_EQ(checkIn(_token).status, 200);
  const Answer spoiled = fetch();
  EXPECT_EQ(spoiled.status, 200);
  EXPECT_EQ(spoiled.headers.at("content-type"), "image/png");
  EXPECT_EQ(spoiled.text.size(), _bytes.size());
  EXPECT_NE(spoiled.text, _bytes);
  fetchesTheRightBytes();
}

TEST_F(PhotoMisbehaviour, BringsNothingForAPhoto) {
  spoil({{"mode", "empty"}});
  const Answer spoiled = fetch();
  EXPECT_EQ(spoiled.status, 200);
  EXPECT_EQ(spoiled.headers.at("content-type"), "image/png");
  EXPECT_EQ(spoiled.text, "");
  fetchesTheRightBytes();
}

TEST_F(PhotoMisbehaviour, CutsAPhotoOff) {
  spoil({{"mode", "cut"}});
  EXPECT_EQ(fetch().status, 0);
  fetchesTheRightBytes();
}

TEST_F(PhotoMisbehaviour, BringsAPhotoLate) {
  spoil({{"mode", "slow"}, {"delayMs", 300}});
  const auto begin = std::chrono::steady_clock::now();
  fetchesTheRightBytes();
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
}

TEST_F(PhotoMisbehaviour, BringsAnErrorForAPhoto) {
  spoil({{"mode", "status"}, {"status", 503}});
  EXPECT_EQ(fetch().status, 503);
  fetchesTheRightBytes();
}

TEST_F(Misbehaviour, ServesARequestButEmptiesOrSpoilsItsAnswer) {
  const std::string code = newCode();
  ASSERT_EQ(admin("POST", "/api/admin/codes/" + code + "/claim").status, 200);
  misbehave({{"mode", "empty"}, {"times", 1}});
  const Answer empty = device("GET", "/api/kiosk/pair/" + code);
  EXPECT_EQ(empty.status, 200);
  EXPECT_EQ(empty.text, "");
  misbehave({{"mode", "corrupt"}, {"times", 1}});
  const Answer spoiled = device("GET", "/api/kiosk/pair/" + code);
  EXPECT_EQ(spoiled.status, 409);
  EXPECT_NE(spoiled.body, Json({{"error", "claimed"}}));
  EXPECT_EQ(device("GET", "/api/kiosk/pair/" + code).body, Json({{"error", "claimed"}}));
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
                                                {{"mode", "corrupt"}, {"delayMs", 5}},
                                                {{"mode", "empty"}, {"status", 200}},
                                                {{"mode", "cut"}, {"path", "api"}}})
    EXPECT_EQ(admin("PUT", "/api/admin/misbehaviour", settings).status, 400) << settings;
  EXPECT_EQ(mode(), "none");
}

TEST_F(Misbehaviour, SparesTheAdministrator) {
  misbehave({{"mode", "garbage"}});
  EXPECT_EQ(admin("GET", "/api/admin/terminals").status, 200);
}

}  // namespace
