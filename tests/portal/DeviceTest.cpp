#include <fstream>

#include "tests/portal/Portal.h"

namespace {

using DeviceInterface = PortalTest;

const Json kEmpty = Json::object();

TEST_F(DeviceInterface, HandsOutACodeThatCanBeReadAloud) {
  const Answer answer = device("POST", "/api/kiosk/pair", PairRequest().dump());
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body["expiresInSeconds"], 900);
  const std::string code = answer.body["pairingCode"];
  EXPECT_EQ(code.size(), 8U);
  EXPECT_EQ(code.find_first_not_of("ABCDEFGHJKLMNPQRSTUVWXYZ23456789"), code.npos);
}

TEST_F(DeviceInterface, PairsATerminalWithoutAHostName) {
  Json request = PairRequest();
  request["hostname"] = "";
  const Answer code = device("POST", "/api/kiosk/pair", request.dump());
  ASSERT_EQ(code.status, 200);
  const std::string path = "/api/admin/codes/" + code.body["pairingCode"].get<std::string>();
  EXPECT_TRUE(
      admin("POST", path + "/claim").body["name"].get<std::string>().starts_with("Terminal"));
}

TEST_F(DeviceInterface, RefusesAPairRequestOfAnotherShape) {
  for (const char* key : {"hostname", "platform", "osVersion", "appVersion"}) {
    Json missing = PairRequest();
    missing.erase(key);
    EXPECT_EQ(device("POST", "/api/kiosk/pair", missing.dump()).status, 400) << key;
    Json number = PairRequest();
    number[key] = 7;
    EXPECT_EQ(device("POST", "/api/kiosk/pair", number.dump()).status, 400) << key;
  }
  Json other = PairRequest();
  other["more"] = true;
  EXPECT_EQ(device("POST", "/api/kiosk/pair", other.dump()).status, 400);
  other = PairRequest();
  other["platform"] = "Windows";
  EXPECT_EQ(device("POST", "/api/kiosk/pair", other.dump()).status, 400);
  other = PairRequest();
  other["hostname"] = std::string(256, 'x');
  EXPECT_EQ(device("POST", "/api/kiosk/pair", other.dump()).status, 400);
  EXPECT_EQ(device("POST", "/api/kiosk/pair", "no json").status, 400);
  EXPECT_EQ(device("POST", "/api/kiosk/pair").status, 400);
}

TEST_F(DeviceInterface, RefusesBodiesThatAreTooLargeOrTooDeep) {
  const Answer large = device("POST", "/api/kiosk/pair", std::string(64 * 1024 + 1, ' '));
  EXPECT_EQ(large.status, 413);
  EXPECT_EQ(large.body, Json({{"error", "too_large"}}));
  EXPECT_EQ(device("POST", "/api/kiosk/pair", std::string(60000, '[')).status, 400);
  Json report = CheckInRequest();
  report["osUpdates"] = {{"error", std::string(100, '[')}};
  EXPECT_EQ(device("POST", "/api/kiosk/check-in", report.dump(), pair()).status, 200);
}

TEST_F(DeviceInterface, HandsOutTheTokenExactlyOnce) {
  const std::string code = newCode();
  const std::string path = "/api/kiosk/pair/" + code;
  const Answer pending = device("GET", path);
  EXPECT_EQ(pending.status, 202);
  EXPECT_EQ(pending.body, kEmpty);
  EXPECT_EQ(admin("POST", "/api/admin/codes/" + code + "/claim", {{"name", "Lobby"}}).status, 200);
  const Answer first = device("GET", path);
  EXPECT_EQ(first.status, 200);
  EXPECT_EQ(first.body["deviceToken"].get<std::string>().size(), 64U);
  const Answer second = device("GET", path);
  EXPECT_EQ(second.status, 409);
  EXPECT_EQ(second.body, Json({{"error", "claimed"}}));
}

TEST_F(DeviceInterface, DoesNotKnowACodeThatItDidNotHandOut) {
  const Answer answer = device("GET", "/api/kiosk/pair/ABCD2345");
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(answer.body, Json({{"error", "not_found"}}));
}

TEST_F(DeviceInterface, RefusesAnExpiredCode) {
  const std::string code = newCode();
  EXPECT_EQ(admin("POST", "/api/admin/codes/" + code + "/expire").body["status"], "expired");
  const Answer answer = device("GET", "/api/kiosk/pair/" + code);
  EXPECT_EQ(answer.status, 410);
  EXPECT_EQ(answer.body, Json({{"error", "expired"}}));
}

TEST_F(DeviceInterface, AnswersACheckInWithWhatTheAdministratorSetAndNothingElse) {
  std::string id;
  const std::string token = pair(&id);
  const Json bare = {
      {"status", "enrolled"},
      {"name", "lobby.local"},
      {"signIn", {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}}}};
  EXPECT_EQ(checkIn(token).body, bare);
  const Json settings = {
      {"name", "Lobby"},
      {"signIn", {{"microsoft", false}, {"email", true}, {"extraHosts", {"login.example.com"}}}},
      {"exitPassword", "secret"},
      {"power",
       {{"screenOffMinutes", 5}, {"sleepMinutes", 240}, {"schedule", {{"enabled", false}}}}},
      {"powerSource", "tenant"},
      {"updates", {{"automatic", true}}},
      {"updatesSource", "device"}};
  ASSERT_EQ(admin("PATCH", "/api/admin/terminals/" + id, settings).status, 200);
  Json expected = settings;
  expected["status"] = "enrolled";
  EXPECT_EQ(checkIn(token).body, expected);
}

TEST_F(DeviceInterface, KeepsWhatATerminalReports) {
  std::string id;
  const std::string token = pair(&id);
  const Json report = {
      {"appVersion", "3.0"},
      {"powerLocal",
       {{"screenOffMinutes", 1},
        {"sleepMinutes", 0},
        {"schedule",
         {{"enabled", true}, {"sleepAt", "22:00"}, {"wakeAt", "07:00"}, {"days", {0, 6}}}}}},
      {"powerError", "wake_unavailable"},
      {"osUpdates", {{"lastResult", "ok"}, {"pending", 0}}}};
  ASSERT_EQ(checkIn(token, report).status, 200);
  const Json terminal = admin("GET", "/api/admin/terminals/" + id).body;
  for (const auto& [key, value] : report.items()) EXPECT_EQ(terminal[key], value) << key;
  EXPECT_EQ(terminal["checkIns"], 1);
  EXPECT_TRUE(terminal["lastCheckInAt"].is_string());
  EXPECT_FALSE(terminal.contains("tokenDigest"));
}

TEST_F(DeviceInterface, RefusesACheckInOfAnotherShape) {
  const std::string token = pair();
  for (const char* key : {"appVersion", "powerLocal", "powerError", "osUpdates"}) {
    Json body = CheckInRequest();
    body.erase(key);
    EXPECT_EQ(device("POST", "/api/kiosk/check-in", body.dump(), token).status, 400) << key;
    EXPECT_EQ(checkIn(token, {{key, 5}}).status, 400) << key;
  }
  EXPECT_EQ(checkIn(token, {{"more", 1}}).status, 400);
  EXPECT_EQ(checkIn(token, {{"powerLocal", {{"screenOffMinutes", 1}, {"sleepMinutes", 0}}}}).status,
            400);
  EXPECT_EQ(checkIn(token, {{"powerError", std::string(1025, 'x')}}).status, 400);
  EXPECT_EQ(device("POST", "/api/kiosk/check-in", "{", token).body,
            Json({{"error", "bad_request"}}));
}

TEST_F(DeviceInterface, TellsRevokedAndUnknownTerminalsApart) {
  std::string id;
  const std::string token = pair(&id);
  EXPECT_EQ(checkIn("0123").body, Json({{"status", "unknown"}}));
  EXPECT_EQ(checkIn("").status, 401);
  ASSERT_EQ(admin("POST", "/api/admin/terminals/" + id + "/revoke").body["status"], "revoked");
  const Answer revoked = checkIn(token);
  EXPECT_EQ(revoked.status, 401);
  EXPECT_EQ(revoked.body, Json({{"status", "revoked"}}));
  EXPECT_EQ(revoked.headers.at("www-authenticate"), "Bearer");
  ASSERT_EQ(admin("DELETE", "/api/admin/terminals/" + id).body, kEmpty);
  const Answer forgotten = checkIn(token);
  EXPECT_EQ(forgotten.status, 401);
  EXPECT_EQ(forgotten.body, Json({{"status", "unknown"}}));
}

TEST_F(DeviceInterface, KnowsNoOtherPathsAndMethods) {
  EXPECT_EQ(device("GET", "/").status, 404);
  EXPECT_EQ(device("GET", "/api/admin/terminals").status, 404);
  EXPECT_EQ(device("GET", "/api/kiosk/pair/A/B").status, 404);
  const Answer answer = device("GET", "/api/kiosk/check-in");
  EXPECT_EQ(answer.status, 405);
  EXPECT_EQ(answer.headers.at("allow"), "POST");
  EXPECT_EQ(device("DELETE", "/api/kiosk/pair").status, 405);
}

TEST_F(DeviceInterface, KeepsTheConnectionBetweenRequests) {
  portal::HttpsClient client = deviceClient();
  for (int i = 0; i < 20; ++i)
    EXPECT_EQ(Exchange(client, "GET", "/api/kiosk/pair/ABCD2345", "", "").status, 404);
}

TEST_F(DeviceInterface, RemembersAThousandCodesAndThenForgetsOnlyUselessOnes) {
  std::string code = newCode();
  stop();
  Json stored = Json::parse(FileText(dir() / "portal.json"));
  for (int i = 1; i < 1000; ++i) stored["codes"][std::to_string(i)] = stored["codes"][code];
  std::ofstream(dir() / "portal.json") << stored;
  start();
  const Answer refused = device("POST", "/api/kiosk/pair", PairRequest().dump());
  EXPECT_EQ(refused.status, 429);
  EXPECT_EQ(refused.body, Json({{"error", "too_many_codes"}}));
  ASSERT_EQ(admin("POST", "/api/admin/codes/" + code + "/expire").status, 200);
  EXPECT_EQ(device("POST", "/api/kiosk/pair", PairRequest().dump()).status, 200);
  EXPECT_EQ(device("GET", "/api/kiosk/pair/" + code).status, 404);
}

}  // namespace
