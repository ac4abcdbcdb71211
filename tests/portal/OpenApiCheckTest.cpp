#include <fstream>

#include "tests/portal/Portal.h"

namespace {

class OpenApiCheck : public testing::Test {
 protected:
  /// Runs the checker on a record of these exchanges.
  ProgramResult check(const std::vector<Json>& exchanges, bool allowRefusals = false) const {
    const std::filesystem::path record = _folder.path("record.jsonl");
    std::ofstream file(record);
    for (const Json& exchange : exchanges) file << exchange.dump() << "\n";
    file.close();
    std::vector<std::string> command = {OPENAPI_CHECK_PROGRAM};
    if (allowRefusals) command.emplace_back("--allow-refusals");
    command.insert(command.end(), {PORTAL_API_FILE, record});
    return RunProgram(command);
  }

  TemporaryFolder _folder;
};

Json CheckInExchange() {
  return {{"method", "POST"},
          {"path", "/api/kiosk/check-in"},
          {"requestHeaders", {{"authorization", "Bearer x"}, {"content-type", "application/json"}}},
          {"requestBody", CheckInRequest()},
          {"status", 200},
          {"responseHeaders", {{"content-type", "application/json; charset=utf-8"}}},
          {"responseBody",
           {{"status", "enrolled"},
            {"name", "Lobby"},
            {"signIn", {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}}}}}};
}

Json With(const char* pointer, const Json& value) {
  Json exchange = CheckInExchange();
  exchange[Json::json_pointer(pointer)] = value;
  return exchange;
}

TEST_F(OpenApiCheck, AcceptsAnExchangeAsDescribed) {
  const ProgramResult result = check({CheckInExchange()});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "");
}

TEST_F(OpenApiCheck, RefusesWhatIsNotDescribed) {
  const std::map<std::string, Json> wrong = {
      {"path is not described", With("/path", "/api/kiosk/unknown")},
      {"method is not described", With("/method", "GET")},
      {"status is not described", With("/status", 418)},
      {"request: ", With("/requestBody/more", 1)},
      {"request", With("/requestBody/powerLocal", {{"screenOffMinutes", 1}})},
      {"request: content type", With("/requestHeaders/content-type", "text/plain")},
      {"response: ", With("/responseBody/name", "")},
      {"response", With("/responseBody/power", {{"screenOffMinutes", 241}, {"sleepMinutes", 0}})},
      {"response: content type", With("/responseHeaders", Json::object())},
      {"bearer", With("/requestHeaders/authorization", "Basic x")},
      {"not an exchange", {{"method", "GET"}}},
  };
  for (const auto& [sentence, exchange] : wrong) {
    const ProgramResult result = check({CheckInExchange(), exchange});
    EXPECT_EQ(result.status, 1) << sentence;
    EXPECT_NE(result.output.find(sentence), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("record.jsonl:2: "), std::string::npos) << result.output;
  }
}

Json UploadExchange() {
  Json exchange = {
      {"method", "POST"},
      {"path", "/api/admin/terminals/0123456789abcdef/photos"},
      {"query", {{"credit", "5"}, {"width", "640"}}},
      {"requestHeaders", {{"authorization", "Bearer x"}, {"content-type", "image/avif"}}},
      {"requestBody", "3 bytes that are not JSON"},
      {"status", 201},
      {"responseHeaders", {{"content-type", "application/json"}}}};
  exchange["responseBody"] = {{"sha256", std::string(64, '0')},
                              {"contentType", "image/avif"},
                              {"width", 640},
                              {"height", 480},
                              {"credit", "5"}};
  return exchange;
}

TEST_F(OpenApiCheck, HoldsQueriesAndAnyKindOfPictureAgainstTheDescription) {
  EXPECT_EQ(check({UploadExchange()}).output, "");
  const std::map<std::string, std::pair<const char*, Json>> wrong = {
      {"query: width", {"/query/width", "wide"}},
      {"query: height", {"/query/height", "0"}},
      {"query: credit", {"/query/credit", std::string(241, 'x')}},
      {"query: more: is not described", {"/query/more", "1"}},
      {"request: content type", {"/requestHeaders/content-type", "text/plain"}},
      {"not an exchange", {"/query", "credit=5"}}};
  for (const auto& [sentence, change] : wrong) {
    Json exchange = UploadExchange();
    exchange[Json::json_pointer(change.first)] = change.second;
    const ProgramResult result = check({exchange});
    EXPECT_EQ(result.status, 1) << sentence;
    EXPECT_NE(result.output.find(sentence), std::string::npos) << result.output;
  }
}

TEST_F(OpenApiCheck, LooksOnlyAtTheRequestOfAMisbehaviour) {
  Json exchange = With("/responseBody", "garbage");
  exchange["misbehaviour"] = true;
  EXPECT_EQ(check({exchange}).status, 0);
  exchange["requestBody"]["more"] = 1;
  EXPECT_EQ(check({exchange}).status, 1);
}

TEST_F(OpenApiCheck, RefusesARecordWithoutExchanges) { EXPECT_EQ(check({}).status, 1); }

TEST_F(OpenApiCheck, RefusesARecordThatDoesNotExist) {
  const auto missing = _folder.path("missing.jsonl");
  EXPECT_EQ(RunProgram({OPENAPI_CHECK_PROGRAM, PORTAL_API_FILE, missing}).status, 1);
}

TEST_F(OpenApiCheck, ForgivesAWrongRequestOnlyWhenAskedToAndOnlyIfItWasRefused) {
  Json refused = With("/requestBody/more", 1);
  refused.update({{"status", 400}, {"responseBody", {{"error", "bad_request"}}}});
  EXPECT_EQ(check({refused}).status, 1);
  EXPECT_EQ(check({refused}, true).status, 0);
  EXPECT_EQ(check({With("/requestBody/more", 1)}, true).status, 1);
  EXPECT_EQ(check({With("/path", "/api/kiosk/unknown")}, true).status, 1);
}

TEST_F(OpenApiCheck, RefusesADescriptionThatItCannotRead) {
  const auto path = _folder.path("broken.yaml");
  std::ofstream(path) << "openapi: 3.0.3\npaths: {/a: {get: {responses: {$ref: '#/nowhere'}}}}\n";
  EXPECT_EQ(RunProgram({OPENAPI_CHECK_PROGRAM, path, path}).status, 2);
  EXPECT_EQ(RunProgram({OPENAPI_CHECK_PROGRAM}).status, 2);
}

}  // namespace
