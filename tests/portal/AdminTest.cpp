#include "tests/portal/Portal.h"

namespace {

using AdminInterface = PortalTest;

TEST_F(AdminInterface, IsClosedWithoutItsToken) {
  portal::HttpsClient client = adminClient();
  for (const char* token : {"", "wrong"}) {
    const Answer answer = Exchange(client, "GET", "/api/admin/terminals", "", token);
    EXPECT_EQ(answer.status, 401);
    EXPECT_EQ(answer.body, Json({{"error", "unauthorized"}}));
  }
  EXPECT_EQ(Exchange(client, "GET", "/nothing", "", "").status, 401);
}

TEST_F(AdminInterface, ListsTerminalsAndCodes) {
  std::string id;
  pair(&id);
  const std::string pending = newCode();
  const Json terminals = admin("GET", "/api/admin/terminals").body["terminals"];
  ASSERT_EQ(terminals.size(), 1U);
  EXPECT_EQ(terminals[0]["id"], id);
  EXPECT_EQ(terminals[0]["status"], "enrolled");
  std::map<std::string, int> states;
  const Json codes = admin("GET", "/api/admin/codes").body["codes"];
  for (const Json& code : codes) ++states[code["status"].get<std::string>()];
  EXPECT_EQ(states, (std::map<std::string, int>{{"collected", 1}, {"pending", 1}}));
}

TEST_F(AdminInterface, ClaimsACodeOnlyOnceAndOnlyInItsLifetime) {
  const std::string path = "/api/admin/codes/" + newCode();
  EXPECT_EQ(admin("POST", path + "/claim", {{"name", ""}}).status, 400);
  EXPECT_EQ(admin("POST", path + "/claim", {{"name", "Lobby"}}).body["name"], "Lobby");
  EXPECT_EQ(admin("POST", path + "/claim").status, 409);
  const std::string late = "/api/admin/codes/" + newCode();
  EXPECT_EQ(admin("POST", late + "/expire").status, 200);
  EXPECT_EQ(admin("POST", late + "/claim").status, 410);
  EXPECT_EQ(admin("POST", "/api/admin/codes/ABCD2345/claim").status, 404);
  EXPECT_EQ(admin("POST", "/api/admin/codes/ABCD2345/expire").status, 404);
}

TEST_F(AdminInterface, DoesNotExpireACollectedCode) {
  const std::string code = newCode();
  admin("POST", "/api/admin/codes/" + code + "/claim");
  device("GET", "/api/kiosk/pair/" + code);
  EXPECT_EQ(admin("POST", "/api/admin/codes/" + code + "/expire").status, 409);
}

TEST_F(AdminInterface, RemovesASettingThatIsSetToNull) {
  std::string id;
  pair(&id);
  const std::string path = "/api/admin/terminals/" + id;
  ASSERT_EQ(admin("PATCH", path, {{"name", "Lobby"}, {"exitPassword", "x"}}).status, 200);
  const Json changed =
      admin("PATCH", path, {{"name", nullptr}, {"exitPassword", nullptr}, {"signIn", nullptr}})
          .body;
  EXPECT_EQ(changed["name"], "lobby.local");
  EXPECT_EQ(changed["exitPasswordSet"], false);
}

TEST_F(AdminInterface, RefusesInvalidSettingsUnlessToldNotToLook) {
  std::string id;
  const std::string token = pair(&id);
  const std::string path = "/api/admin/terminals/" + id;
  const std::vector<Json> invalid = {
      {{"power", {{"screenOffMinutes", 241}, {"sleepMinutes", 0}}}},
      {{"power", {{"screenOffMinutes", true}, {"sleepMinutes", 0}}}},
      {{"power",
        {{"screenOffMinutes", 1}, {"sleepMinutes", 0}, {"schedule", {{"sleepAt", "24:00"}}}}}},
      {{"power", {{"screenOffMinutes", 1}, {"sleepMinutes", 0}, {"schedule", {{"days", {7}}}}}}},
      {{"power", {{"screenOffMinutes", 1.5}, {"sleepMinutes", 0}}}},
      {{"updates", {{"automatic", 1}}}},
      {{"updates", {{"automatic", "true"}}}},
      {{"updates", {{"window", Json::array()}}}},
      {{"updates", {{"window", {{"start", "24:00"}, {"end", "05:00"}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "7:00"}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "05:60"}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {7}}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {"1"}}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {true}}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {1.5}}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", "mon"}}}}}},
      {{"updates",
        {{"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {0, 1, 2, 3, 4, 5, 6, 6}}}}}}},
      {{"updates", true}},
      {{"branding", {{"displayName", ""}}}},
      {{"branding", {{"displayName", 5}}}},
      {{"branding", {{"signInSubtitle", "x"}}}},
      {{"branding", {{"displayName", "x"}, {"signInSubtitle", nullptr}}}},
      {{"branding", {{"displayName", "x"}, {"photos", Json::array()}}}},
      {{"branding", {{"displayName", std::string(121, 'x')}}}},
      {{"branding", {{"displayName", "x"}, {"signInSubtitle", std::string(241, 'x')}}}},
      {{"branding", "Hotel"}},
      {{"tenantId", ""}},
      {{"tenantId", 5}},
      {{"tenantId", std::string(129, 'x')}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", nullptr}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", Json::array()}}}}}},
      {{"powerSource", "nobody"}},
      {{"signIn", {{"microsoft", 1}, {"email", false}, {"extraHosts", Json::array()}}}},
      {{"signIn", {{"microsoft", true}, {"email", false}, {"extraHosts", {"localhost"}}}}},
      {{"exitPassword", 5}}};
  for (const Json& change : invalid) {
    EXPECT_EQ(admin("PATCH", path, change).status, 400) << change;
    EXPECT_EQ(admin("PATCH", path + "/raw", change).status, 200) << change;
    const auto [key, value] = *change.items().begin();
    EXPECT_EQ(checkIn(token).body[key], value);
  }
  EXPECT_EQ(admin("PATCH", path + "/raw", {{"name", 5}}).status, 400);
  EXPECT_EQ(admin("PATCH", path, {{"status", "revoked"}}).status, 400);
}

TEST_F(AdminInterface, RefusesAScheduleThatATerminalWouldRefuse) {
  std::string id;
  pair(&id);
  const std::string path = "/api/admin/terminals/" + id;
  Json schedule = {{"enabled", true}};
  const auto answer = [&] {
    const Json power = {{"screenOffMinutes", 1}, {"sleepMinutes", 0}, {"schedule", schedule}};
    return admin("PATCH", path, {{"power", power}}).status;
  };
  EXPECT_EQ(answer(), 200);
  schedule["sleepAt"] = "07:00";
  EXPECT_EQ(answer(), 400) << "which is when it wakes by default";
  schedule["wakeAt"] = "07:01";
  EXPECT_EQ(answer(), 200);
  schedule["wakeAt"] = "07:00";
  EXPECT_EQ(answer(), 400);
  schedule["enabled"] = false;
  EXPECT_EQ(answer(), 200);
  schedule = {{"enabled", true}, {"days", Json::array()}};
  EXPECT_EQ(answer(), 400);
  schedule["enabled"] = nullptr;
  EXPECT_EQ(answer(), 200);
}

TEST_F(AdminInterface, AcceptsEveryPolicyThatATerminalAccepts) {
  std::string id;
  const std::string token = pair(&id);
  const Json nulls = {
      {"enabled", nullptr}, {"sleepAt", nullptr}, {"wakeAt", nullptr}, {"days", nullptr}};
  const std::vector<Json> valid = {
      {{"power", {{"screenOffMinutes", 3.0}, {"sleepMinutes", 240}, {"schedule", nullptr}}}},
      {{"power", {{"screenOffMinutes", 0}, {"sleepMinutes", 0}, {"schedule", nulls}}}},
      {{"power", {{"screenOffMinutes", 0}, {"sleepMinutes", 0}, {"more", {{"days", 8}}}}}},
      {{"power",
        {{"screenOffMinutes", 0}, {"sleepMinutes", 0}, {"schedule", {{"days", {1, 1, 2.0}}}}}}},
      {{"updates", {{"automatic", nullptr}, {"window", nullptr}, {"more", 1}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "02:00"}, {"days", nullptr}}}}}},
      {{"updates", {{"window", {{"start", "22:00"}, {"end", "03:00"}, {"more", 1}}}}}},
      {{"updates",
        {{"automatic", true},
         {"window", {{"start", "00:00"}, {"end", "23:59"}, {"days", {3, 1, 1}}}}}}},
      {{"updates", {{"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {6.0}}}}}}}};
  for (const Json& change : valid) {
    EXPECT_EQ(admin("PATCH", "/api/admin/terminals/" + id, change).status, 200) << change;
    const auto [key, value] = *change.items().begin();
    EXPECT_EQ(checkIn(token).body[key], value);
  }
}

TEST_F(AdminInterface, DoesNotKnowAForgottenTerminal) {
  const std::string path = "/api/admin/terminals/0123456789abcdef";
  EXPECT_EQ(admin("GET", path).status, 404);
  EXPECT_EQ(admin("PATCH", path, Json::object()).status, 404);
  EXPECT_EQ(admin("PATCH", path + "/raw", Json::object()).status, 404);
  EXPECT_EQ(admin("DELETE", path).status, 404);
  EXPECT_EQ(admin("POST", path + "/revoke").status, 404);
}

TEST_F(AdminInterface, KnowsNoOtherPathsAndMethods) {
  EXPECT_EQ(admin("GET", "/api/kiosk/pair/ABCD2345").status, 404);
  const Answer answer = admin("PUT", "/api/admin/terminals/0123");
  EXPECT_EQ(answer.status, 405);
  EXPECT_EQ(answer.headers.at("allow"), "GET, PATCH, DELETE");
  EXPECT_EQ(admin("PUT", "/api/admin/misbehaviour", std::string(70000, 'x')).status, 413);
}

}  // namespace
