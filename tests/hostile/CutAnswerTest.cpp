// The portal's connection ends after each byte of an answer: what is not whole is no answer.
#include <algorithm>

#include "tests/daemon/BrandingPhoto.h"
#include "tests/hostile/HostileTest.h"

namespace {

constexpr char kCode[] = "ABCD2345";
constexpr char kPollCall[] = "GET /api/kiosk/pair/ABCD2345";
constexpr std::uint64_t kLongestBackOffNs = 600 * virtual_time::kSecondNs;

class CutAnswer : public HostileTest {
 protected:
  // Fires the check-in whose answer is cut: nothing is stored, and the portal counts as away.
  void expectCheckInUnreached(const std::string& stateBefore) {
    const std::uint64_t before = virtual_time::NanosecondsUntilNext().value_or(0);
    runNextCheckIn();
    EXPECT_EQ(mac.read(kStateFile), stateBefore);
    EXPECT_EQ(virtual_time::NanosecondsUntilNext(), std::min(before * 2, kLongestBackOffNs));
  }

  void expectNothingOfACheckIn(int status, const Json& answer) {
    startAtRawPortal();
    const std::string before = mac.read(kStateFile);
    const Json statusBefore = this->status();
    cutEverywhere(kCheckInCall, framings(status, answer.dump()),
                  [&] { expectCheckInUnreached(before); });
    EXPECT_EQ(this->status(), statusBefore);
    EXPECT_GT(countLinesThatBegin("POST /api/kiosk/check-in: not reached ("), 0U);
    EXPECT_EQ(countLinesThatBegin("tearing down"), 0U);
  }

  // The whole answer, which is taken: the cuts were of answers that count.
  void answerWhole(const std::string& call, int status, const Json& answer) {
    answerRaw(call, framed(status, answer.dump()));
  }

  // A daemon without a token that has a code to wait for.
  void startWithCode() {
    otherwise = Json{{"pairingCode", kCode}}.dump();
    answerRaw("none", "");
    startDaemon({{"authBaseUrl", raw.url()}});
    ASSERT_EQ(send({{"cmd", "pair.begin"}})["code"], kCode);
  }

  std::string check() {
    const Json reply = send({{"cmd", "pair.check"}, {"code", kCode}});
    return reply.value("ok", true) ? reply.dump() : reply.value("error", "");
  }

  // The cut answers of a poll leave the code waiting and the terminal unenrolled.
  void expectNothingOfAPoll(const std::vector<Framed>& answers) {
    startWithCode();
    const std::string before = mac.read(kStateFile);
    cutEverywhere(kPollCall, answers, [&] {
      const std::string error = check();
      EXPECT_TRUE(error == "unreachable" || error == "pairing_failed") << error;
    });
    EXPECT_EQ(mac.read(kStateFile), before);
    EXPECT_EQ(this->status()["enrolled"], Json(0));
  }
};

TEST_F(CutAnswer, OfACheckInChangesNothing) {
  const Json answer = {{"status", "enrolled"},
                       {"name", "Hall"},
                       {"exitPassword", "sesame"},
                       {"signIn", {{"email", true}}},
                       {"power", {{"screenOffMinutes", 5}, {"sleepMinutes", 0}}}};
  expectNothingOfACheckIn(200, answer);
  answerWhole(kCheckInCall, 200, answer);
  runNextCheckIn();
  EXPECT_EQ(mac.state()["terminalName"], "Hall");
  EXPECT_EQ(virtual_time::NanosecondsUntilNext(), 30 * virtual_time::kSecondNs);
}

TEST_F(CutAnswer, OfARevocationTearsNothingDown) {
  const Json answer = {{"status", "revoked"}};
  expectNothingOfACheckIn(401, answer);
  answerWhole(kCheckInCall, 401, answer);
  runNextCheckIn();
  EXPECT_FALSE(mac.state().contains("token"));
}

TEST_F(CutAnswer, OfAnUnknownTokenStartsNoDayOfGrace) {
  const Json answer = {{"status", "unknown"}};
  expectNothingOfACheckIn(401, answer);
  answerWhole(kCheckInCall, 401, answer);
  runNextCheckIn();
  EXPECT_TRUE(mac.state().contains("tokenUnknownSince"));
}

TEST_F(CutAnswer, OfPairBeginGivesNoCodeAndKeepsTheFormerOne) {
  startWithCode();
  // Three tools look at the Mac before each; without them that takes no time.
  mac.remove("/usr/bin/fdesetup");
  mac.remove("/usr/bin/defaults");
  const std::string before = mac.read(kStateFile);
  const Json answer = {{"pairingCode", "WXYZ6789"}, {"expiresInSeconds", 600}};
  cutEverywhere(kPairCall, framings(200, answer.dump()), [&] {
    const Json reply = send({{"cmd", "pair.begin"}});
    const std::string error = reply.value("error", "");
    EXPECT_TRUE(error == "unreachable" || error == "pairing_failed") << reply;
  });
  EXPECT_EQ(mac.read(kStateFile), before);
  answerRaw(kPollCall, framed(202, "{}"));
  EXPECT_EQ(check(), R"({"ok":true,"paired":false})") << "the former code is still waited for";
  answerWhole(kPairCall, 200, answer);
  EXPECT_EQ(send({{"cmd", "pair.begin"}}),
            (Json{{"ok", true}, {"code", "WXYZ6789"}, {"expiresInSeconds", 600}}));
}

TEST_F(CutAnswer, OfPairCheckEnrolsNobodyAndKeepsTheCode) {
  expectNothingOfAPoll(framings(200, R"({"deviceToken":"device-token"})"));
  otherwise = R"({"status":"none"})";
  answerWhole(kPollCall, 200, {{"deviceToken", "device-token"}});
  EXPECT_EQ(check(), R"({"ok":true,"paired":true,"provisioned":false})");
  EXPECT_EQ(mac.state()["token"], "device-token");
}

TEST_F(CutAnswer, OfARefusalOfTheCodeKeepsTheCode) {
  for (const int status : {404, 409, 410}) {
    // Without the one whose body may end anywhere: there a refusal is whole without any.
    std::vector<Framed> answers = framings(status, R"({"error":"gone"})");
    answers.pop_back();
    expectNothingOfAPoll(answers);
    answerRaw(kPollCall, answers.front().bytes);
    EXPECT_EQ(check(), status == 409 ? "claimed" : "expired");
  }
}

TEST_F(CutAnswer, OfAPhotoIsNotKept) {
  const BrandingPhoto photo = PhotoOf(std::string("\x89PNG\r\n\0\xff hills", 14));
  const Json branding = {{"displayName", "Acme"}, {"photos", {{{"sha256", photo.digest}}}}};
  otherwise = Json{{"status", "enrolled"}, {"branding", branding}}.dump();
  answerRaw("GET /api/kiosk/branding/", "");
  startSettled({{"authBaseUrl", raw.url()}});
  ASSERT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  const std::string before = mac.read(kStateFile);
  cutEverywhere("GET /api/kiosk/branding/photos/" + photo.digest, framings(200, photo.bytes), [&] {
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
    EXPECT_EQ(mac.list(kBrandingCache), std::vector<std::string>{kBrandingJson});
  });
  EXPECT_EQ(mac.read(kStateFile), before);
  EXPECT_EQ(mac.countErrors(photo.failedLine(0)), 1U) << "said once until it succeeds";
  answerRaw("GET /api/kiosk/branding/", framed(200, photo.bytes));
  checkIn();
  EXPECT_EQ(mac.read(std::string(kBrandingCache) + "/" + photo.digest), photo.bytes);
}

}  // namespace
