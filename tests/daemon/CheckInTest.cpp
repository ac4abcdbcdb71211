// The check-in: what the portal is told, and what its answers do.
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "platform/PropertyList.h"
#include "tests/daemon/BrandingPhoto.h"
#include "tests/daemon/DaemonTest.h"

namespace {

constexpr char kUnknownLine[] =
    "check-in: Keyward does not know this device's token; tearing down if that lasts 24 h";
constexpr char kRevokedLine[] = "tearing down (the portal revoked this device)";
constexpr char kForgottenLine[] =
    "tearing down (Keyward has not known this device's token for over a day)";
constexpr char kInfoPlist[] = "/Applications/Brindlex.app/Contents/Info.plist";
constexpr char kDefaultSignIn[] = "sign-in: microsoft=1 email=0 extraHosts=";
constexpr double kDay = 86400;

std::string TreatedAsUnreachable(int status) {
  return "check-in: HTTP " + std::to_string(status) + " treated as unreachable";
}

const Json kPowerPolicy = {
    {"screenOffMinutes", 10},
    {"sleepMinutes", 0},
    {"schedule", {{"enabled", true}, {"sleepAt", "21:00"}, {"wakeAt", "06:30"}, {"days", {1, 5}}}}};
constexpr char kPowerText[] =
    R"({"schedule":{"days":[1,5],"enabled":true,"sleepAt":"21:00","wakeAt":"06:30"},)"
    R"("screenOffMinutes":10,"sleepMinutes":0})";
// What is logged when it was applied.
constexpr char kPowerApplied[] = "power: screen off 10 min, sleep 0 min, schedule on";
constexpr char kUpdatesText[] =
    R"({"automatic":true,"window":{"days":[0,1,2,3,4,5,6],"end":"05:00","start":"02:00"}})";

class CheckIn : public DaemonTest {
 protected:
  PortalRequest lastRequest() const {
    const std::vector<PortalRequest> all = portal.requests(kCheckInCall);
    return all.empty() ? PortalRequest{} : all.back();
  }

  // Checks in with a settled daemon that the portal answers like this; the lines that were logged.
  std::vector<LogLine> linesOfACheckIn(const Json& keys, const Json& state = Json::object()) {
    startSettled(state);
    answerEnrolled(keys);
    return linesOfTheNextCheckIn();
  }

  std::vector<LogLine> linesOfTheNextCheckIn() {
    const std::size_t before = mac.log().size();
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
    const std::vector<LogLine> all = mac.log();
    return {all.begin() + static_cast<std::ptrdiff_t>(before), all.end()};
  }

  // A settled daemon that a check-in changes nothing of, not even the bytes of its file.
  void expectNothingStored(const Json& keys, const Json& state = Json::object()) {
    startSettled(state);
    answerEnrolled(keys);
    virtual_time::RunReady();
    const std::string before = mac.read(kStateFile) + " ";
    mac.write(kStateFile, before, 0600);
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
    EXPECT_EQ(mac.read(kStateFile), before);
  }

  // The first "unknown" answer, just now.
  void becomeUnknown() {
    startSettled();
    portal.answer(kCheckInCall, 401, {{"status", "unknown"}});
    virtual_time::RunReady();
    ASSERT_EQ(mac.countErrors(kUnknownLine), 1U);
  }
};

// --- what the portal is told
// ----------------------------------------------------------------------

TEST_F(CheckIn, ReportsExactlyFourKeys) {
  startSettled();
  checkIn();
  EXPECT_EQ(lastRequest().json(), (Json{{"appVersion", "3.2.1"},
                                        {"powerLocal", nullptr},
                                        {"powerError", nullptr},
                                        {"osUpdates", nullptr}}));
}

TEST_F(CheckIn, SendsTheTokenAndTheJsonTypes) {
  startSettled();
  checkIn();
  EXPECT_EQ(lastRequest().header("authorization"), "Bearer device-token");
  EXPECT_EQ(lastRequest().header("accept"), "application/json");
  EXPECT_EQ(lastRequest().header("content-type"), "application/json");
}

TEST_F(CheckIn, ReportsTheLocalPowerPolicyTheLastErrorAndTheLastRun) {
  const Json run = {{"lastRunAt", "2026-10-15T02:00:00Z"}, {"lastResult", "ok"}, {"pending", 0}};
  Json local = kPowerPolicy;
  local["unknown"] = true;
  local["schedule"]["days"] = {5, 1, 1};
  startSettled({{"powerLocal", local}, {"powerError", "wake_unavailable"}, {"osUpdates", run}});
  checkIn();
  EXPECT_EQ(lastRequest().json(), (Json{{"appVersion", "3.2.1"},
                                        {"powerLocal", kPowerPolicy},
                                        {"powerError", "wake_unavailable"},
                                        {"osUpdates", run}}));
}

TEST_F(CheckIn, ReportsNullForStoredValuesThatAreNotValid) {
  startSettled({{"powerLocal", {{"screenOffMinutes", 999}}},
                {"powerError", ""},
                {"osUpdates", Json::array({1})}});
  checkIn();
  EXPECT_EQ(lastRequest().json(), (Json{{"appVersion", "3.2.1"},
                                        {"powerLocal", nullptr},
                                        {"powerError", nullptr},
                                        {"osUpdates", nullptr}}));
}

TEST_F(CheckIn, ReportsTheDaemonsVersionOutsideTheApplication) {
  virtual_time::SetExecutablePath("/usr/bin/defaults");
  startSettled();
  checkIn();
  EXPECT_EQ(lastRequest().json()["appVersion"], "2026.10.15");
}

TEST_F(CheckIn, ReportsTheDaemonsVersionForAnApplicationWithoutOne) {
  std::string error;
  const auto list = platform::PropertyListWrite({{"CFBundleExecutable", "Brindlex"}},
                                                platform::PropertyListFormat::kXml, error);
  mac.write(kInfoPlist, list.value_or(""));
  startSettled();
  checkIn();
  EXPECT_EQ(lastRequest().json()["appVersion"], "2026.10.15");
}

TEST_F(CheckIn, AsksTheDefaultPortalWhenNoneIsSet) {
  // Its name leads to an address of this machine at which nobody listens.
  mac.write("/private/etc/hosts", "127.86.75.30 keyward.brindlex.example\n");
  for (const Json& url : {Json(), Json(""), Json(5)}) {
    startSettled({{"authBaseUrl", url}});
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
    const std::string line = mac.log().back().text;
    EXPECT_TRUE(line.starts_with("POST /api/kiosk/check-in: not reached (")) << line;
    EXPECT_NE(line.find("keyward.brindlex.example port 443"), std::string::npos) << line;
  }
}

// --- outcomes
// -------------------------------------------------------------------------------------

TEST_F(CheckIn, StopsWithoutATokenAndAsksNobody) {
  startDaemon();
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
  EXPECT_EQ(portal.requests().size(), 0U);
  EXPECT_EQ(mac.log().size(), 1U);
}

TEST_F(CheckIn, SucceedsWithAnyStatusFrom200To299) {
  startSettled();
  for (const int status : {200, 201, 299}) {
    portal.answer(kCheckInCall, status, {{"status", "enrolled"}});
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled) << status;
  }
}

TEST_F(CheckIn, TakesEveryOtherAnswerForUnreachable) {
  const std::array<std::pair<int, Json>, 13> answers{{{200, {{"status", "Enrolled"}}},
                                                      {200, {{"status", "revoked"}}},
                                                      {200, {{"status", "unknown"}}},
                                                      {200, {{"status", 1}}},
                                                      {200, Json::object()},
                                                      {200, Json::array({"enrolled"})},
                                                      {202, "enrolled"},
                                                      {403, {{"status", "revoked"}}},
                                                      {404, {{"status", "unknown"}}},
                                                      {401, {{"status", "enrolled"}}},
                                                      {401, {{"status", "Revoked"}}},
                                                      {401, Json::object()},
                                                      {500, {{"status", "enrolled"}}}}};
  startSettled({{"terminalName", "Lobby"}});
  const Json before = mac.state();
  for (const auto& [status, body] : answers) {
    portal.answer(kCheckInCall, status, body);
    const std::size_t lines = mac.countLog(TreatedAsUnreachable(status));
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable) << status << body;
    EXPECT_EQ(mac.countLog(TreatedAsUnreachable(status)), lines + 1) << status << body;
  }
  EXPECT_EQ(mac.state(), before);
}

TEST_F(CheckIn, TakesAnAnswerThatIsNoJsonForUnreachable) {
  startSettled();
  portal.answerText(kCheckInCall, 401, "<html>revoked</html>", "text/html");
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.countLog(TreatedAsUnreachable(401)), 1U);
  portal.answerText(kCheckInCall, 204, "", "");
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.countLog(TreatedAsUnreachable(204)), 1U);
}

TEST_F(CheckIn, LogsOneLineWhenThePortalIsNotReached) {
  startSettled();
  portal.stop();
  const std::size_t before = mac.log().size();
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  ASSERT_EQ(mac.log().size(), before + 1);
  EXPECT_EQ(mac.log().back().level, "Default");
  EXPECT_TRUE(mac.log().back().text.starts_with("POST /api/kiosk/check-in: not reached ("));
}

TEST_F(CheckIn, SaysSoWhenThePortalsAddressIsNone) {
  startSettled({{"authBaseUrl", "http://no such host"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.countErrors("POST /api/kiosk/check-in: bad URL"), 1U);
}

TEST_F(CheckIn, FollowsAPortalThatMoved) {
  startSettled();
  portal.redirect(kCheckInCall, 307, "/v2/check-in");
  portal.answer("POST /v2/check-in", 200, {{"status", "enrolled"}, {"name", "Lobby"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  EXPECT_EQ(status()["terminalName"], "Lobby");
}

TEST_F(CheckIn, TearsDownWhenThePortalRevokesTheDevice) {
  startSettled({{"terminalName", "Lobby"}, {"exitPassword", "1234"}});
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
  EXPECT_EQ(mac.countLog(kRevokedLine), 1U);
  EXPECT_EQ(mac.countLog(TreatedAsUnreachable(401)), 0U);
  EXPECT_EQ(mac.state(), (Json{{"authBaseUrl", portal.url()}}));
  EXPECT_EQ(status()["enrolled"], Json(0));
}

TEST_F(CheckIn, ChecksInNoMoreOnceItIsTornDown) {
  startSettled();
  portal.answer(kCheckInCall, 401, {{"status", "revoked"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
  const std::size_t requests = portal.requests().size();
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
  EXPECT_EQ(portal.requests().size(), requests);
}

// --- a token that the portal does not know
// --------------------------------------------------------

TEST_F(CheckIn, NotesWhenThePortalFirstDidNotKnowTheToken) {
  startSettled();
  portal.answer(kCheckInCall, 401, {{"status", "unknown"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.countErrors(kUnknownLine), 1U);
  EXPECT_EQ(mac.countLog(TreatedAsUnreachable(401)), 0U);
  EXPECT_EQ(mac.state()["tokenUnknownSince"], 1'790'000'000.25);
  EXPECT_EQ(mac.state()["token"], "device-token");
}

TEST_F(CheckIn, SaysOnceThatThePortalDoesNotKnowTheToken) {
  becomeUnknown();
  const std::size_t lines = mac.log().size();
  mac.remove(kStateFile);
  virtual_time::Advance(3600 * virtual_time::kSecondNs);
  EXPECT_GT(portal.requests(kCheckInCall).size(), 5U);
  EXPECT_EQ(mac.log().size(), lines);
  EXPECT_FALSE(mac.exists(kStateFile)) << "nothing is saved either";
}

TEST_F(CheckIn, StaysEnrolledForExactlyADayWithAnUnknownToken) {
  becomeUnknown();
  virtual_time::ShiftWallClock(kDay);
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.countLog(kForgottenLine), 0U);
  virtual_time::ShiftWallClock(0.001);
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
  EXPECT_EQ(mac.countLog(kForgottenLine), 1U);
  EXPECT_EQ(mac.state(), (Json{{"authBaseUrl", portal.url()}}));
}

TEST_F(CheckIn, CountsTheDayAcrossRestarts) {
  becomeUnknown();
  virtual_time::ShiftWallClock(kDay);
  restartDaemon();
  virtual_time::RunReady();
  EXPECT_EQ(mac.state()["tokenUnknownSince"], 1'790'000'000.25);
  EXPECT_EQ(mac.countLog(kForgottenLine), 0U);
  virtual_time::ShiftWallClock(0.001);
  restartDaemon();
  virtual_time::RunReady();
  EXPECT_EQ(mac.countLog(kForgottenLine), 1U);
  EXPECT_EQ(mac.countErrors(kUnknownLine), 1U);
  EXPECT_EQ(virtual_time::PendingCount(), 0U);
}

TEST_F(CheckIn, TearsDownOnlyAtAnAnswerThatTheTokenIsUnknown) {
  becomeUnknown();
  virtual_time::ShiftWallClock(2 * kDay);
  portal.answer(kCheckInCall, 500, Json::object());
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  portal.stop();
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.countLog(kForgottenLine), 0U);
  EXPECT_EQ(mac.state()["tokenUnknownSince"], 1'790'000'000.25);
}

TEST_F(CheckIn, ForgetsTheUnknownTokenWhenItIsKnownAgain) {
  becomeUnknown();
  virtual_time::ShiftWallClock(kDay - 60);
  answerEnrolled();
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kEnrolled);
  EXPECT_FALSE(mac.state().contains("tokenUnknownSince"));
  virtual_time::ShiftWallClock(120);
  portal.answer(kCheckInCall, 401, {{"status", "unknown"}});
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.countErrors(kUnknownLine), 2U);
}

TEST_F(CheckIn, StartsTheDayAgainWhenTheClockWasMovedBack) {
  becomeUnknown();
  virtual_time::ShiftWallClock(-3600);
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.state()["tokenUnknownSince"], 1'790'000'000.25 - 3600);
  EXPECT_EQ(mac.countErrors(kUnknownLine), 2U);
  virtual_time::ShiftWallClock(kDay);
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  virtual_time::ShiftWallClock(1);
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop);
}

TEST_F(CheckIn, ReplacesANoteThatIsNoNumber) {
  for (const Json& note : {Json("yesterday"), Json(), Json::array({0}), Json{{"at", 0}}}) {
    startSettled({{"tokenUnknownSince", note}});
    portal.answer(kCheckInCall, 401, {{"status", "unknown"}});
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable) << note;
    EXPECT_EQ(mac.state()["tokenUnknownSince"], 1'790'000'000.25) << note;
  }
  EXPECT_EQ(mac.countErrors(kUnknownLine), 4U);
}

TEST_F(CheckIn, TakesABooleanNoteForASecondLongAgo) {
  for (const bool note : {true, false}) {
    startSettled({{"tokenUnknownSince", note}});
    portal.answer(kCheckInCall, 401, {{"status", "unknown"}});
    EXPECT_EQ(checkIn(), KioskCheckInOutcome::kStop) << note;
  }
  EXPECT_EQ(mac.countErrors(kUnknownLine), 0U);
}

TEST_F(CheckIn, SaysNothingMoreAtTheInstantOfTheNote) {
  becomeUnknown();
  EXPECT_EQ(checkIn(), KioskCheckInOutcome::kUnreachable);
  EXPECT_EQ(mac.countErrors(kUnknownLine), 1U);
}

// --- an answer with everything
// --------------------------------------------------------------------

TEST_F(CheckIn, AppliesAnAnswerInItsOrder) {
  const BrandingPhoto abc = PhotoOf("abc");
  const Json photo = {{"sha256", abc.digest}};
  portal.answerText("GET /api/kiosk/branding/photos/" + abc.digest, 200, abc.bytes, "image/png");
  answerEnrolled({{"exitPassword", "let me out"},
                  {"updates", Json::parse(kUpdatesText)},
                  {"power", kPowerPolicy},
                  {"branding", {{"displayName", "Acme"}, {"photos", Json::array({photo})}}},
                  {"name", "Lobby"},
                  {"signIn", {{"email", true}}}});
  startDaemon({{"token", "device-token"}});
  const std::vector<LogLine> lines = linesOfTheNextCheckIn();
  const std::vector<std::string> beginnings = {
      "sign-in: ",          "terminal name: Lobby",    "branding: cached photo ba7816bf8f01 ",
      "power policy from ", "updates policy from ",    "created BrindlexKiosk ",
      "provisioned: ",      "power: screen off 10 min"};
  ASSERT_EQ(lines.size(), beginnings.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_TRUE(lines[i].text.starts_with(beginnings[i])) << lines[i].text;
  }
  EXPECT_EQ(mac.state()["exitPassword"], "let me out");
}

TEST_F(CheckIn, BrandsTheTerminalBetweenItsNameAndItsPolicies) {
  const std::string digest = PhotoOf("abc").digest;
  const Json photo = {{"sha256", digest}};
  const std::string call = "GET /api/kiosk/branding/photos/" + digest;
  Json stored;
  portal.whenAsked(call, [&] { stored = mac.state(); });
  linesOfACheckIn({{"branding", {{"displayName", "Acme"}, {"photos", Json::array({photo})}}},
                   {"power", kPowerPolicy},
                   {"exitPassword", "1234"},
                   {"name", "Lobby"},
                   {"signIn", {{"email", true}}}});
  EXPECT_EQ(portal.requests(call).size(), 1U);
  EXPECT_EQ(stored["signIn"]["email"], true);
  EXPECT_EQ(stored["terminalName"], "Lobby");
  EXPECT_FALSE(stored.contains("power"));
  EXPECT_FALSE(stored.contains("exitPassword"));
  EXPECT_EQ(mac.state()["power"], kPowerPolicy);
}

// --- sign-in options
// ------------------------------------------------------------------------------

TEST_F(CheckIn, StoresSignInOptionsAndSaysSo) {
  const Json signIn = {
      {"microsoft", false}, {"email", true}, {"extraHosts", {"a.example", "b.example"}}};
  EXPECT_EQ(linesOfACheckIn({{"signIn", signIn}}),
            (std::vector<LogLine>{
                {"Default", "sign-in: microsoft=0 email=1 extraHosts=a.example,b.example"}}));
  EXPECT_EQ(mac.state()["signIn"], signIn);
  EXPECT_EQ(status()["signIn"], signIn);
}

TEST_F(CheckIn, StoresTheSameSignInOptionsOnce) {
  expectNothingStored({{"signIn", {{"email", true}, {"extraHosts", {"a.example"}}}}});
  EXPECT_EQ(mac.countLog("sign-in: microsoft=1 email=1 extraHosts=a.example"), 1U);
}

TEST_F(CheckIn, StoresTheDefaultSignInOptionsWhenTheAnswerHasNone) {
  const Json defaults = {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}};
  for (const Json& signIn : {Json(), Json("all"), Json::array({true}), Json(1)}) {
    startSettled({{"signIn", {{"microsoft", false}}}});
    answerEnrolled({{"signIn", signIn}});
    checkIn();
    EXPECT_EQ(mac.state()["signIn"], defaults) << signIn;
  }
  EXPECT_EQ(mac.countLog(kDefaultSignIn), 4U);
}

TEST_F(CheckIn, StoresTheDefaultSignInOptionsOnATerminalThatHasNone) {
  EXPECT_EQ(linesOfACheckIn(Json::object(), {{"signIn", nullptr}}),
            (std::vector<LogLine>{{"Default", kDefaultSignIn}}));
}

TEST_F(CheckIn, ReadsSignInFlagsAsNumbersAndTheirDefaultsOtherwise) {
  EXPECT_EQ(linesOfACheckIn({{"signIn", {{"microsoft", 0}, {"email", 2}}}}),
            (std::vector<LogLine>{{"Default", "sign-in: microsoft=0 email=1 extraHosts="}}));
  EXPECT_EQ(mac.state()["signIn"]["microsoft"], Json(false));
  EXPECT_EQ(mac.state()["signIn"]["email"], Json(true));
  answerEnrolled({{"signIn", {{"microsoft", "false"}, {"email", "true"}}}});
  EXPECT_EQ(linesOfTheNextCheckIn(), (std::vector<LogLine>{{"Default", kDefaultSignIn}}));
}

TEST_F(CheckIn, StoresNoKeysOfTheSignInOptionsThatItDoesNotKnow) {
  linesOfACheckIn({{"signIn", {{"email", true}, {"google", true}}}});
  EXPECT_EQ(mac.state()["signIn"],
            (Json{{"microsoft", true}, {"email", true}, {"extraHosts", Json::array()}}));
}

TEST_F(CheckIn, KeepsValidExtraHostsAndSaysWhichItIgnores) {
  const Json hosts = {"login.example", "LOGIN.EXAMPLE", "localhost", 5, "login.example"};
  EXPECT_EQ(
      linesOfACheckIn({{"signIn", {{"extraHosts", hosts}}}}),
      (std::vector<LogLine>{{"Error", "sign-in: ignoring extra host LOGIN.EXAMPLE"},
                            {"Error", "sign-in: ignoring extra host localhost"},
                            {"Error", "sign-in: ignoring extra host 5"},
                            {"Error", "sign-in: ignoring extra host login.example"},
                            {"Default", "sign-in: microsoft=1 email=0 extraHosts=login.example"}}));
  EXPECT_EQ(mac.state()["signIn"]["extraHosts"], Json::array({"login.example"}));
}

TEST_F(CheckIn, KeepsTenExtraHostsInTheirOrder) {
  Json hosts = Json::array();
  for (int i = 12; i > 0; --i) hosts.push_back("h" + std::to_string(i) + ".example");
  const std::vector<LogLine> lines = linesOfACheckIn({{"signIn", {{"extraHosts", hosts}}}});
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], (LogLine{"Error", "sign-in: ignoring extra host h2.example"}));
  EXPECT_EQ(lines[1], (LogLine{"Error", "sign-in: ignoring extra host h1.example"}));
  hosts.erase(11);
  hosts.erase(10);
  EXPECT_EQ(mac.state()["signIn"]["extraHosts"], hosts);
}

TEST_F(CheckIn, IgnoresAHostThatALineEndFollows) {
  linesOfACheckIn({{"signIn", {{"extraHosts", {"a.example\n"}}}}});
  EXPECT_EQ(mac.state()["signIn"]["extraHosts"], Json::array());
}

TEST_F(CheckIn, SaysAgainWhichHostsItIgnoresButNotWhatIsStored) {
  const Json signIn = {{"extraHosts", {"UPPER.EXAMPLE"}}};
  linesOfACheckIn({{"signIn", signIn}});
  EXPECT_EQ(linesOfTheNextCheckIn(),
            (std::vector<LogLine>{{"Error", "sign-in: ignoring extra host UPPER.EXAMPLE"}}));
}

TEST_F(CheckIn, TakesExtraHostsThatAreNoListForNone) {
  for (const Json& hosts : {Json("a.example"), Json{{"a.example", true}}, Json(5), Json()}) {
    startSettled();
    answerEnrolled({{"signIn", {{"email", true}, {"extraHosts", hosts}}}});
    checkIn();
    EXPECT_EQ(mac.state()["signIn"]["extraHosts"], Json::array()) << hosts;
  }
}

// --- terminal name
// --------------------------------------------------------------------------------

TEST_F(CheckIn, StoresTheTerminalNameAndSaysSo) {
  EXPECT_EQ(linesOfACheckIn({{"name", " \tLobby Süd\r\n"}}),
            (std::vector<LogLine>{{"Default", "terminal name: Lobby Süd"}}));
  EXPECT_EQ(mac.state()["terminalName"], "Lobby Süd");
  EXPECT_EQ(status()["terminalName"], "Lobby Süd");
}

TEST_F(CheckIn, StoresTheSameTerminalNameOnce) {
  expectNothingStored({{"name", "Lobby"}});
  EXPECT_EQ(mac.countLog("terminal name: Lobby"), 1U);
}

TEST_F(CheckIn, ClearsTheTerminalName) {
  for (const Json& name : {Json(), Json(std::string(100, ' ')), Json(""), Json(5), Json("\n"),
                           Json::array({"Lobby"})}) {
    startSettled({{"terminalName", "Lobby"}});
    answerEnrolled({{"name", name}});
    const std::size_t before = mac.countLog("terminal name: (none)");
    checkIn();
    EXPECT_EQ(mac.countLog("terminal name: (none)"), before + 1) << name;
    EXPECT_FALSE(mac.state().contains("terminalName")) << name;
  }
}

TEST_F(CheckIn, SaysNothingAboutATerminalThatStaysWithoutName) {
  EXPECT_EQ(linesOfACheckIn({{"name", "  "}}), std::vector<LogLine>{});
  EXPECT_EQ(linesOfTheNextCheckIn(), std::vector<LogLine>{});
}

TEST_F(CheckIn, CutsALongTerminalNameWithoutSplittingACharacter) {
  const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";  // one, of 8 code units
  linesOfACheckIn({{"name", std::string(76, 'a') + family}});
  EXPECT_EQ(mac.state()["terminalName"], std::string(76, 'a'));
  answerEnrolled({{"name", std::string(72, 'a') + family}});
  linesOfTheNextCheckIn();
  EXPECT_EQ(mac.state()["terminalName"], std::string(72, 'a') + family);
  answerEnrolled({{"name", std::string(78, 'a') + "  tail"}});
  linesOfTheNextCheckIn();
  EXPECT_EQ(mac.state()["terminalName"], std::string(78, 'a'));
}

TEST_F(CheckIn, HasNoTerminalNameWhenTheFirstCharacterIsTooLong) {
  std::string name = "e";
  for (int i = 0; i < 100; ++i) name += "\u0301";
  linesOfACheckIn({{"name", name}}, {{"terminalName", "Lobby"}});
  EXPECT_FALSE(mac.state().contains("terminalName"));
}

// --- policies
// -------------------------------------------------------------------------------------

TEST_F(CheckIn, StoresPoliciesWithTheirSourcesAndSaysSo) {
  Json power = kPowerPolicy;
  power["schedule"]["days"] = {5, 1, 5};
  power["unknown"] = true;
  const Json keys = {{"power", power},
                     {"powerSource", "tenant"},
                     {"updates", {{"automatic", true}}},
                     {"updatesSource", "device"}};
  EXPECT_EQ(
      linesOfACheckIn(keys),
      (std::vector<LogLine>{{"Default", std::string("power policy from tenant: ") + kPowerText},
                            {"Default", std::string("updates policy from device: ") + kUpdatesText},
                            {"Default", kPowerApplied}}));
  EXPECT_EQ(mac.state()["power"], kPowerPolicy);
  EXPECT_EQ(mac.state()["powerSource"], "tenant");
  EXPECT_EQ(mac.state()["updates"], Json::parse(kUpdatesText));
  EXPECT_EQ(mac.state()["updatesSource"], "device");
}

TEST_F(CheckIn, StoresTheSamePoliciesOnce) {
  expectNothingStored({{"power", kPowerPolicy}, {"updates", {{"automatic", true}}}});
  EXPECT_EQ(mac.countLog(std::string("power policy from default: ") + kPowerText), 1U);
  EXPECT_EQ(mac.countLog(std::string("updates policy from default: ") + kUpdatesText), 1U);
}

TEST_F(CheckIn, ComparesPoliciesWithoutRegardToTheOrderOfKeys) {
  startSettled();
  const std::string stored =
      R"({"powerRepeatArmed":true,"powerBefore":{},"powerApplied":)" + std::string(kPowerText) +
      R"(,"token":"device-token","provisioned":true,"powerSource":"default","power":)"
      R"({"sleepMinutes":0.0,"screenOffMinutes":10,"schedule":{"wakeAt":"06:30",)"
      R"("sleepAt":"21:00","enabled":true,"days":[1,5]}},"signIn":{"microsoft":true,)"
      R"("extraHosts":[],"email":false},"authBaseUrl":")" +
      portal.url() + R"("})";
  mac.write(kStateFile, stored, 0600);
  answerEnrolled({{"power", kPowerPolicy}});
  restartDaemon();
  EXPECT_EQ(linesOfTheNextCheckIn(), std::vector<LogLine>{});
  EXPECT_EQ(mac.read(kStateFile), stored);
}

TEST_F(CheckIn, StoresAPolicyWhoseSourceAloneChanged) {
  linesOfACheckIn({{"power", kPowerPolicy}, {"powerSource", "tenant"}});
  answerEnrolled({{"power", kPowerPolicy}, {"powerSource", "device"}});
  EXPECT_EQ(
      linesOfTheNextCheckIn(),
      (std::vector<LogLine>{{"Default", std::string("power policy from device: ") + kPowerText}}));
  EXPECT_EQ(mac.state()["powerSource"], "device");
}

TEST_F(CheckIn, KnowsTheSourcesDeviceAndTenantOnly) {
  startSettled();
  for (const Json& source : {Json("Tenant"), Json("other"), Json(), Json(5), Json("")}) {
    answerEnrolled({{"power", kPowerPolicy},
                    {"powerSource", source},
                    {"updates", Json::object()},
                    {"updatesSource", source}});
    checkIn();
    EXPECT_EQ(mac.state()["powerSource"], "default") << source;
    EXPECT_EQ(mac.state()["updatesSource"], "default") << source;
  }
}

TEST_F(CheckIn, KeepsStoredPoliciesThatTheAnswerLeavesOut) {
  const Json state = {{"power", kPowerPolicy},
                      {"powerSource", "tenant"},
                      {"updates", Json::parse(kUpdatesText)},
                      {"updatesSource", "device"}};
  expectNothingStored(Json::object(), state);
  expectNothingStored({{"power", nullptr}, {"updates", nullptr}, {"powerSource", "device"}}, state);
  EXPECT_EQ(mac.state()["powerSource"], "tenant");
}

TEST_F(CheckIn, KeepsStoredPoliciesWhenTheNewOnesAreInvalid) {
  const Json state = {{"power", kPowerPolicy}, {"powerSource", "tenant"}};
  const Json keys = {{"power", {{"screenOffMinutes", 241}, {"sleepMinutes", 0}}},
                     {"powerSource", "device"},
                     {"updates", {{"automatic", 1}}}};
  EXPECT_EQ(linesOfACheckIn(keys, state),
            (std::vector<LogLine>{{"Error", "check-in: ignoring an invalid power policy"},
                                  {"Error", "check-in: ignoring an invalid updates policy"},
                                  {"Default", kPowerApplied}}));
  EXPECT_EQ(mac.state()["power"], kPowerPolicy);
  EXPECT_EQ(mac.state()["powerSource"], "tenant");
  EXPECT_FALSE(mac.state().contains("updates"));
  EXPECT_FALSE(mac.state().contains("updatesSource"));
}

TEST_F(CheckIn, StoresAValidPolicyBesideAnInvalidOne) {
  EXPECT_EQ(linesOfACheckIn({{"power", "off"}, {"updates", {{"automatic", true}}}}),
            (std::vector<LogLine>{
                {"Error", "check-in: ignoring an invalid power policy"},
                {"Default", std::string("updates policy from default: ") + kUpdatesText}}));
}

TEST_F(CheckIn, ReadsAStoredPolicyThroughItsParser) {
  startDaemon({{"power", {{"sleepMinutes", 5}, {"screenOffMinutes", 5.0}, {"unknown", 1}}},
               {"powerLocal", {{"sleepMinutes", -1}, {"screenOffMinutes", 5}}},
               {"updates", Json::object()}});
  EXPECT_EQ(daemon->policy("power")->at("screenOffMinutes"), 5);
  EXPECT_FALSE(daemon->policy("power")->contains("unknown"));
  EXPECT_EQ(daemon->policy("powerLocal"), std::nullopt);
  EXPECT_EQ(daemon->policy("updates")->at("automatic"), Json(false));
  EXPECT_EQ(daemon->policy("missing"), std::nullopt);
}

// --- maintenance password
// -------------------------------------------------------------------------

TEST_F(CheckIn, StoresTheMaintenancePasswordWithoutAWord) {
  EXPECT_EQ(linesOfACheckIn({{"exitPassword", "1234"}}), std::vector<LogLine>{});
  EXPECT_EQ(mac.state()["exitPassword"], "1234");
  answerEnrolled({{"exitPassword", "5678"}});
  checkIn();
  EXPECT_EQ(mac.state()["exitPassword"], "5678");
}

TEST_F(CheckIn, StoresTheSameMaintenancePasswordOnce) {
  expectNothingStored({{"exitPassword", "1234"}});
}

TEST_F(CheckIn, KeepsTheMaintenancePasswordThatTheAnswerLeavesOut) {
  for (const Json& keys : {Json::object(), Json{{"exitPassword", nullptr}},
                           Json{{"exitPassword", 1234}}, Json{{"exitPassword", {"1234"}}}}) {
    expectNothingStored(keys, {{"exitPassword", "1234"}});
    EXPECT_EQ(mac.state()["exitPassword"], "1234") << keys;
  }
}

TEST_F(CheckIn, StoresAnEmptyMaintenancePassword) {
  linesOfACheckIn({{"exitPassword", ""}}, {{"exitPassword", "1234"}});
  EXPECT_EQ(mac.state()["exitPassword"], "");
}

// --- the account
// ----------------------------------------------------------------------------------

TEST_F(CheckIn, ProvisionsUntilThatSucceeded) {
  answerEnrolled();
  mac.addFault({{"target", "/usr/sbin/createhomedir"}, {"times", 1}, {"status", 1}});
  startDaemon({{"token", "device-token"}});
  virtual_time::RunReady();
  EXPECT_EQ(mac.state()["lastError"], "home_failed");
  EXPECT_EQ(status()["error"], "home_failed");
  runNextCheckIn();
  EXPECT_EQ(mac.state()["provisioned"], true);
  EXPECT_FALSE(status().contains("error"));
  const std::size_t runs = mac.runs("/usr/sbin/createhomedir").size();
  runNextCheckIn();
  EXPECT_EQ(mac.runs("/usr/sbin/createhomedir").size(), runs);
}

TEST_F(CheckIn, TakesTheAccountOutOfTheAdministratorsAfterEachSuccess) {
  startProvisioned();
  const std::vector<std::string> test{"-o", "checkmember", "-m", "BrindlexKiosk"};
  const std::size_t before = mac.countRuns("/usr/sbin/dseditgroup", test);
  checkIn();
  EXPECT_EQ(mac.countRuns("/usr/sbin/dseditgroup", test), before + 2);
  portal.answer(kCheckInCall, 500, Json::object());
  checkIn();
  EXPECT_EQ(mac.countRuns("/usr/sbin/dseditgroup", test), before + 2);
}

}  // namespace
