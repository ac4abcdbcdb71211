// The right status and the wrong types everywhere: whatever stands at whichever place of an answer,
// the state is the one that the rules give.
#include <set>

#include "core/KioskJson.h"
#include "tests/daemon/BrandingPhoto.h"
#include "tests/daemon/DaemonTest.h"
#include "tests/hostile/CheckInRules.h"
#include "tests/hostile/Substitutions.h"
#include "tests/unit/ProjectionRules.h"

namespace {

using virtual_time::kSecondNs;

constexpr char kCode[] = "ABCD2345";
constexpr char kPollCall[] = "GET /api/kiosk/pair/ABCD2345";
constexpr char kCache[] = "/Library/Application Support/Brindlex/Kiosk/Branding";
constexpr std::size_t kLongestCode = 256;

class WrongTypes : public DaemonTest {
 protected:
  WrongTypes() {
    // The tools look at the Mac at each step. What they do has tests of its own, and without them
    // the thousands of answers here take no time.
    for (const char* tool : {"/usr/bin/fdesetup", "/usr/bin/defaults", "/usr/bin/pmset",
                             "/usr/sbin/dseditgroup", "/usr/sbin/createhomedir"}) {
      mac.remove(tool);
    }
  }

  /// An answer with everything that there is, in two versions that differ everywhere.
  Json fullAnswer(bool second) const {
    const Json days = second ? Json{2, 4} : Json{1, 3};
    return {{"status", "enrolled"},
            {"tenantId", second ? "tenant-2" : "tenant-1"},
            {"name", second ? "Hall" : "Lobby"},
            {"exitPassword", second ? "sesame" : "mellon"},
            {"signIn",
             {{"microsoft", !second},
              {"email", second},
              {"extraHosts", {second ? "b.example.org" : "a.example.org", "c.example.org"}}}},
            {"powerSource", second ? "device" : "tenant"},
            {"power",
             {{"screenOffMinutes", second ? 5 : 10},
              {"sleepMinutes", second ? 0 : 30},
              {"schedule",
               {{"enabled", second},
                {"sleepAt", second ? "21:00" : "22:30"},
                {"wakeAt", second ? "06:00" : "07:30"},
                {"days", days}}}}},
            {"updatesSource", second ? "tenant" : "device"},
            {"updates",
             {{"automatic", false},
              {"window",
               {{"start", second ? "01:00" : "02:00"},
                {"end", second ? "03:00" : "04:00"},
                {"days", days}}}}},
            {"branding",
             {{"displayName", second ? "Umbrella" : "Acme"},
              {"signInSubtitle", second ? "Welcome back" : "Welcome"},
              {"photos",
               {{{"sha256", photo.digest},
                 {"contentType", "image/png"},
                 {"width", second ? 640 : 320},
                 {"height", second ? 480 : 240},
                 {"credit", second ? "Jo" : "Al"}}}}}}};
  }

  /// The state, without what comes of applying a power policy.
  Json stored() const {
    Json state = mac.state();
    for (const char* key : {"powerApplied", "powerError", "powerRepeatArmed"}) state.erase(key);
    return state;
  }

  /// The next check-in is answered with this: the state is as the rules have it, the next one comes
  /// in 30 seconds or later and later, and "status" says what is stored.
  void expectByTheRules(int httpStatus, const Json& answer) {
    const Json expected = httpStatus == 200 ? StateByTheRules(_state, answer) : _state;
    const bool enrolled =
        httpStatus == 200 && answer.is_object() && answer.value("status", Json()) == "enrolled";
    portal.answer(kCheckInCall, httpStatus, answer);
    runNextCheckIn();
    _interval = enrolled ? 30 : std::min<std::uint64_t>(_interval * 2, 600);
    EXPECT_EQ(virtual_time::NanosecondsUntilNext(), _interval * kSecondNs);
    EXPECT_TRUE(stored() == expected);  // not _EQ: the texts may be huge
    expectStatusSays(expected);
    if (enrolled) expectBranding(answer);
    _state = expected;
  }

  void expectStatusSays(const Json& state) {
    const Json reply = Json::parse(KioskJsonText(status()).value_or(""), nullptr, false);
    ASSERT_TRUE(reply.is_object());
    EXPECT_EQ(reply["ok"], true);
    EXPECT_EQ(reply["enrolled"], Json(1));
    EXPECT_EQ(reply["terminalName"], state.value("terminalName", ""));
    EXPECT_EQ(reply["signIn"], state["signIn"]);
  }

  void expectBranding(const Json& answer) const {
    const std::optional<Json> projection =
        ProjectionByTheTable(answer.value("branding", Json()), answer.value("tenantId", Json()));
    EXPECT_EQ(mac.exists(kCache), projection.has_value());
    if (!projection) return;
    EXPECT_TRUE(mac.readJson(std::string(kCache) + "/" + kBrandingJson) == *projection);
    EXPECT_EQ(mac.list(kCache).size(), 1 + (*projection)["photos"].size());
  }

  void startAndAnswerOnce() {
    portal.answerText("GET /api/kiosk/branding/photos/" + photo.digest, 200, photo.bytes, "x/y");
    startSettled({{"authBaseUrl", portal.url()}});
    _state = mac.state();
    expectByTheRules(200, fullAnswer(false));
  }

  /// A daemon without a token that has a code to wait for.
  void startWithCode() {
    startDaemon();
    portal.answer(kPairCall, 200, {{"pairingCode", kCode}});
    ASSERT_EQ(send({{"cmd", "pair.begin"}})["ok"], true);
  }

  const BrandingPhoto photo = PhotoOf("hills");

 private:
  Json _state;
  std::uint64_t _interval = 30;
};

TEST_F(WrongTypes, InACheckInLeaveTheOldValueOrWhatTheRulesSay) {
  startAndAnswerOnce();
  std::size_t answers = 0;
  // Each version in turn, so that what is stored differs from what is offered.
  ForEachSubstitution({fullAnswer(true), fullAnswer(false)},
                      [&](const Json& answer, const std::string& what) {
                        if (HasFailure()) return;
                        SCOPED_TRACE(what);
                        expectByTheRules(200, answer);
                        ++answers;
                      });
  EXPECT_GT(answers, 40 * SubstituteCount()) << "there are so many places at least";
  expectByTheRules(200, fullAnswer(true));
}

TEST_F(WrongTypes, InARefusalTearNothingDown) {
  startAndAnswerOnce();
  for (const char* status : {"revoked", "unknown"}) {
    ForEachSubstitution({Json{{"status", status}, {"more", {status}}}},
                        [&](const Json& answer, const std::string& what) {
                          SCOPED_TRACE(what);
                          // Another place than the status: that would be a true refusal.
                          if (answer.is_object() && answer.value("status", Json()) == status)
                            return;
                          expectByTheRules(401, answer);
                        });
  }
  EXPECT_EQ(mac.countLog("check-in: HTTP 401 treated as unreachable"), 4 * SubstituteCount());
}

TEST_F(WrongTypes, InTheAnswerToPairBeginGiveACodeOrAnError) {
  startDaemon();
  const std::string before = mac.read(kStateFile);
  ForEachSubstitution({Json{{"pairingCode", kCode}, {"expiresInSeconds", 600}}}, [&](const Json&
                                                                                         answer,
                                                                                     const std::
                                                                                         string&
                                                                                             what) {
    SCOPED_TRACE(what);
    portal.answer(kPairCall, 200, answer);
    const Json reply = Json::parse(KioskJsonText(send({{"cmd", "pair.begin"}})).value_or("null"));
    const Json code = answer.is_object() ? answer.value("pairingCode", Json()) : Json();
    if (!code.is_string() || code.get<std::string>().size() > kLongestCode) {
      EXPECT_EQ(reply, (Json{{"ok", false}, {"error", "pairing_failed"}}));
      return;
    }
    const Json expires = answer.value("expiresInSeconds", Json());
    const bool isNumber = expires.is_number() || expires.is_boolean();
    EXPECT_EQ(
        reply,
        (Json{{"ok", true}, {"code", code}, {"expiresInSeconds", isNumber ? expires : Json(900)}}));
  });
  EXPECT_EQ(mac.read(kStateFile), before);
}

TEST_F(WrongTypes, InTheAnswerToPairCheckEnrolNobody) {
  startWithCode();
  const Json failed = {{"ok", false}, {"error", "pairing_failed"}};
  std::size_t refused = 0;
  ForEachSubstitution(
      {Json{{"deviceToken", "device-token"}}}, [&](const Json& answer, const std::string& what) {
        SCOPED_TRACE(what);
        const Json token = answer.is_object() ? answer.value("deviceToken", Json()) : Json();
        if (token.is_string() && token != "") return;  // that is a token
        portal.answer(kPollCall, 200, answer);
        EXPECT_EQ(send({{"cmd", "pair.check"}, {"code", kCode}}), failed);
        EXPECT_FALSE(mac.state().contains("token"));
        ++refused;
      });
  EXPECT_EQ(refused, 29U);
  portal.answer(kPollCall, 200, {{"deviceToken", "device-token"}});
  send({{"cmd", "pair.check"}, {"code", kCode}});
  EXPECT_EQ(mac.state()["token"], "device-token") << "the code was still waited for";
}

TEST_F(WrongTypes, InAPhotosPlaceAreDiscarded) {
  startAndAnswerOnce();
  mac.remove(std::string(kCache) + "/" + photo.digest);
  ForEachSubstitution({Json()}, [&](const Json& value, const std::string& what) {
    SCOPED_TRACE(what);
    portal.answer("GET /api/kiosk/branding/photos/" + photo.digest, 200, value);
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
    EXPECT_EQ(mac.list(kCache), std::vector<std::string>{kBrandingJson});
  });
  EXPECT_EQ(mac.countErrors(photo.mismatchLine()), SubstituteCount());
}

}  // namespace
