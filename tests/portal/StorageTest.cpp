#include <sys/stat.h>

#include <fstream>

#include "simulator/portal/Pairing.h"
#include "simulator/portal/Store.h"
#include "tests/portal/Portal.h"

namespace {

using Storage = PortalTest;

mode_t Permissions(const std::filesystem::path& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
}

TEST_F(Storage, RemembersTerminalsAndCodesOverARestart) {
  const std::string token = pair();
  const std::string code = newCode();
  const std::string authority = FileText(dir() / "ca.pem");
  const Json before = admin("GET", "/api/admin/terminals").body;
  EXPECT_EQ(stop(), 0);
  EXPECT_FALSE(std::filesystem::exists(dir() / "ready.json"));
  start();
  EXPECT_EQ(FileText(dir() / "ca.pem"), authority);
  EXPECT_EQ(admin("GET", "/api/admin/terminals").body, before);
  EXPECT_EQ(device("GET", "/api/kiosk/pair/" + code).status, 202);
  EXPECT_EQ(checkIn(token).status, 200);
}

TEST_F(Storage, KeepsItsSecretsToItself) {
  const std::string token = pair();
  for (const char* name : {"portal.json", "ca-key.pem", "ready.json"})
    EXPECT_EQ(Permissions(dir() / name), 0600U) << name;
  EXPECT_EQ(Permissions(record()), 0600U);
  EXPECT_EQ(FileText(dir() / "portal.json").find(token), std::string::npos);
}

TEST_F(Storage, RecordsNeitherTokensNorPasswords) {
  std::string id;
  const std::string token = pair(&id);
  const std::string path = "/api/admin/terminals/" + id;
  ASSERT_EQ(admin("PATCH", path, {{"exitPassword", "correct horse"}}).status, 200);
  ASSERT_EQ(admin("PATCH", path + "/raw", {{"exitPassword", {{"more", 271828}}}}).status, 200);
  portal::HttpsClient client = adminClient();
  ASSERT_EQ(Exchange(client, "PATCH", path, "{\"exitPassword\": \"battery",
                     ready()["adminToken"].get<std::string>())
                .status,
            400);
  ASSERT_EQ(admin("PATCH", path, {{"exitPassword", "correct horse"}}).status, 200);
  ASSERT_EQ(checkIn(token).body["exitPassword"], "correct horse");
  const std::string recorded = FileText(record());
  for (const std::string& secret :
       {token, ready()["adminToken"].get<std::string>(), std::string("correct horse"),
        std::string("271828"), std::string("battery")})
    EXPECT_EQ(recorded.find(secret), std::string::npos) << secret;
  EXPECT_NE(recorded.find("Bearer redacted"), std::string::npos);
  EXPECT_NE(recorded.find("\"exitPassword\":\"redacted\""), std::string::npos);
  EXPECT_NE(recorded.find("\"deviceToken\":\"000"), std::string::npos);
}

TEST_F(Storage, TakesARecordOfBeforeAwayFromOthers) {
  stop();
  ASSERT_EQ(chmod(record().c_str(), 0644), 0);
  start();
  EXPECT_EQ(Permissions(record()), 0600U);
}

TEST_F(Storage, RefusesToGrowLargerThanItCouldReadAgain) {
  const std::filesystem::path path = dir() / "small.json";
  std::string problem;
  const auto add = [](portal::State& state) {
    return portal::IssueCode(state, PairRequest(), 1'800'000'000);
  };
  int added = 0;
  {
    const auto store = portal::Store::open(path, problem, 4096);
    ASSERT_NE(store, nullptr) << problem;
    portal::HttpResponse answer = store->run(add);
    for (; answer.status == 200 && added < 1000; ++added) answer = store->run(add);
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(answer.body, "{\"error\":\"storage\"}");
  }
  EXPECT_LE(std::filesystem::file_size(path), 4096U);
  const auto store = portal::Store::open(path, problem, 4096);
  ASSERT_NE(store, nullptr) << problem;
  store->run([&](portal::State& state) {
    EXPECT_EQ(state.codes.size(), static_cast<std::size_t>(added));
    return portal::JsonResponse(200, {});
  });
}

TEST_F(Storage, WritesNoBlanks) {
  pair();
  const std::string stored = FileText(dir() / "portal.json");
  EXPECT_EQ(stored, Json::parse(stored, nullptr, false).dump() + "\n");
}

TEST_F(Storage, RefusesABrokenFileAndLeavesItAlone) {
  pair();
  stop();
  for (const std::string broken :
       {"{\"version\": 1, \"terminals\": {\"x\": {}}, \"codes\": {}}", "{", ""}) {
    std::ofstream(dir() / "portal.json") << broken;
    const ProgramResult result = command({"serve"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("portal.json is not a portal's file"), std::string::npos);
    EXPECT_EQ(FileText(dir() / "portal.json"), broken);
  }
}

TEST_F(Storage, RefusesABrokenAuthority) {
  stop();
  std::filesystem::remove(dir() / "ca-key.pem");
  EXPECT_EQ(command({"serve"}).status, 1);
}

TEST_F(Storage, IsServedByOnePortalAtATime) {
  const ProgramResult second = command({"serve"});
  EXPECT_EQ(second.status, 1);
  EXPECT_NE(second.output.find("another portal"), std::string::npos);
  EXPECT_EQ(device("GET", "/api/kiosk/pair/ABCD2345").status, 404);
}

TEST_F(Storage, ChangesNothingWhenTheFileCannotBeWritten) {
  std::string id;
  pair(&id);
  // A folder in the place of the temporary file.
  std::filesystem::create_directory(dir() / "portal.json.new");
  const std::string path = "/api/admin/terminals/" + id;
  const Answer answer = admin("PATCH", path, {{"name", "Lobby"}});
  EXPECT_EQ(answer.status, 500);
  EXPECT_EQ(answer.body, Json({{"error", "storage"}}));
  EXPECT_EQ(admin("GET", path).body["name"], "lobby.local");
}

}  // namespace
