#include "simulator/portal/PortalConnection.h"

#include <utility>

#include "simulator/portal/Files.h"
#include "simulator/portal/HttpsClient.h"
#include "simulator/portal/JsonText.h"

namespace portal {
namespace {

constexpr std::size_t kMaxReadyFile = 4096;

std::string Text(const Json& object, const char* key) {
  return object.is_object() && object.contains(key) && object[key].is_string()
             ? object[key].get<std::string>()
             : "";
}

}  // namespace

std::optional<PortalAnswer> AskPortal(const std::filesystem::path& dir, const std::string& method,
                                      const std::string& path, const Json& body) {
  HttpRequest request;
  request.method = method;
  request.path = path;
  if (!body.is_null()) {
    request.headers["content-type"] = "application/json";
    request.body = JsonText(body);
  }
  return AskPortal(dir, std::move(request));
}

std::optional<PortalAnswer> AskPortal(const std::filesystem::path& dir, HttpRequest request) {
  const std::optional<std::string> text = ReadFile(dir / "ready.json", kMaxReadyFile);
  const std::optional<Json> ready = text ? ParseJson(*text) : std::nullopt;
  if (!ready) return std::nullopt;
  request.headers["authorization"] = "Bearer " + Text(*ready, "adminToken");
  HttpsClient client(Text(*ready, "adminUrl"), dir / "ca.pem");
  const std::optional<HttpResponse> response = client.send(request);
  if (!response) return std::nullopt;
  return PortalAnswer{response->status,
                      ParseJson(response->body, kMaxAnswerDepth).value_or(Json())};
}

}  // namespace portal
