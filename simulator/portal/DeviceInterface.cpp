#include "simulator/portal/DeviceInterface.h"

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "simulator/portal/Branding.h"
#include "simulator/portal/JsonText.h"
#include "simulator/portal/Pairing.h"
#include "simulator/portal/Secrets.h"
#include "simulator/portal/Shapes.h"
#include "simulator/portal/Times.h"

namespace portal {
namespace {

HttpResponse Refuse(const char* status) {
  HttpResponse response = JsonResponse(401, {{"status", status}});
  response.headers["www-authenticate"] = "Bearer";
  return response;
}

Json* FindByToken(State& state, const std::string& digest) {
  for (Json& terminal : state.terminals) {
    if (terminal.contains("tokenDigest") &&
        SameSecret(terminal["tokenDigest"].get_ref<const std::string&>(), digest)) {
      return &terminal;
    }
  }
  return nullptr;
}

/// What the administrator set, nothing else.
HttpResponse Enrolled(const Json& terminal) {
  Json body = {{"status", "enrolled"}};
  for (const char* key : {"name", "signIn", "exitPassword", "power", "powerSource", "updates",
                          "updatesSource", "branding", "tenantId"})
    if (terminal.contains(key)) body[key] = terminal[key];
  HttpResponse response = JsonResponse(200, body);
  response.misbehaved = !IsCheckInAnswer(body);
  return response;
}

HttpResponse CheckIn(Json& terminal, const std::optional<Json>& report) {
  if (!report || !IsCheckInRequest(*report)) return ErrorResponse(400, "bad_request");
  terminal.update(*report);
  terminal["lastCheckInAt"] = Now();
  terminal["checkIns"] = terminal["checkIns"].get<std::int64_t>() + 1;
  return Enrolled(terminal);
}

/// What was stored unchecked must not get into a header.
std::string ContentTypeOf(const Json& photo) {
  const auto type = photo.find("contentType");
  return type != photo.end() && IsContentType(*type) ? type->get<std::string>() : "image/jpeg";
}

HttpResponse Misbehaved(int status, const char* type, std::string body) {
  HttpResponse response;
  response.status = status;
  response.headers = {{"content-type", type}};
  response.body = std::move(body);
  return response;
}

HttpResponse Garbage(const Json&) {
  using namespace std::string_literals;
  return Misbehaved(200, "application/json", "\x16\x03\x01{\"status\": enrol\0\xff\xfe"s);
}

HttpResponse ErrorPage(const Json&) {
  return Misbehaved(500, "text/html",
                    "<!DOCTYPE html>\n<html><head><title>500</title></head>"
                    "<body><h1>Internal Server Error</h1></body></html>\n");
}

HttpResponse GivenStatus(const Json& settings) {
  const auto body = settings.find("body");
  return Misbehaved(settings["status"].get<int>(), "application/json",
                    body == settings.end() ? "" : JsonText(*body));
}

/// Another byte in the middle: a photo keeps its header, but not its digest.
void Corrupt(HttpResponse& response) {
  if (!response.body.empty()) response.body[response.body.size() / 2] ^= 1;
}

/// What becomes of answers to requests that are served.
const std::map<std::string, void (*)(HttpResponse&), std::less<>>& Spoilings() {
  static const std::map<std::string, void (*)(HttpResponse&), std::less<>> kSpoilings = {
      {"cut", [](HttpResponse& response) { response.cut = true; }},
      {"empty", [](HttpResponse& response) { response.body.clear(); }},
      {"corrupt", Corrupt}};
  return kSpoilings;
}

/// Answers that are made up without the request being looked at.
const std::map<std::string, HttpResponse (*)(const Json&), std::less<>>& MadeUpAnswers() {
  static const std::map<std::string, HttpResponse (*)(const Json&), std::less<>> kAnswers = {
      {"garbage", Garbage}, {"html500", ErrorPage}, {"status", GivenStatus}};
  return kAnswers;
}

}  // namespace

DeviceInterface::DeviceInterface(Store& store, const PhotoFiles& photos, Misbehaviour& misbehaviour)
    : _store(store),
      _photos(photos),
      _misbehaviour(misbehaviour),
      _routes{
          {"POST", "/api/kiosk/pair",
           [this](const HttpRequest& request, const PathArguments&) { return pair(request); }},
          {"GET", "/api/kiosk/pair/{}",
           [this](const HttpRequest&, const PathArguments& at) {
             return _store.run([&](State& state) { return PollCode(state, at[0], Now()); });
           }},
          {"POST", "/api/kiosk/check-in",
           [this](const HttpRequest& request, const PathArguments&) { return checkIn(request); }},
          {"GET", "/api/kiosk/branding/photos/{}",
           [this](const HttpRequest& request, const PathArguments& at) {
             return photo(request, at[0]);
           }},
      } {}

HttpResponse DeviceInterface::answer(const HttpRequest& request) {
  const std::optional<Misbehaviour::Use> use = _misbehaviour.takeForRequest(request.path);
  return use ? misbehave(*use, request) : Dispatch(_routes, request);
}

HttpResponse DeviceInterface::misbehave(const Misbehaviour::Use& use, const HttpRequest& request) {
  const std::string& mode = use.settings["mode"].get_ref<const std::string&>();
  if (mode == "slow") {
    _misbehaviour.delay(use);
    return Dispatch(_routes, request);
  }
  const auto madeUp = MadeUpAnswers().find(mode);
  HttpResponse response =
      madeUp != MadeUpAnswers().end() ? madeUp->second(use.settings) : Dispatch(_routes, request);
  const auto spoiling = Spoilings().find(mode);
  if (spoiling != Spoilings().end()) spoiling->second(response);
  response.misbehaved = true;
  return response;
}

HttpResponse DeviceInterface::pair(const HttpRequest& request) {
  const std::optional<Json> device = ParseJson(request.body);
  if (!device || !IsPairRequest(*device)) return ErrorResponse(400, "bad_request");
  return _store.run([&](State& state) { return IssueCode(state, *device, Now()); });
}

HttpResponse DeviceInterface::checkIn(const HttpRequest& request) {
  const std::optional<Json> report = ParseJson(request.body);
  return forTerminal(request, [&](Json& terminal) { return CheckIn(terminal, report); });
}

HttpResponse DeviceInterface::photo(const HttpRequest& request, const std::string& digest) {
  return forTerminal(request, [&](const Json& terminal) {
    const Json* const listed = IsDigest(digest) ? FindPhoto(terminal, digest) : nullptr;
    std::optional<std::string> bytes = listed != nullptr ? _photos.read(digest) : std::nullopt;
    if (!bytes) return ErrorResponse(404, "not_found");
    HttpResponse response;
    response.headers = {{"content-type", ContentTypeOf(*listed)}, {"cache-control", "no-store"}};
    response.body = std::move(*bytes);
    return response;
  });
}

/// Hands the terminal whose token the request bears to a step that answers it.
HttpResponse DeviceInterface::forTerminal(const HttpRequest& request,
                                          const std::function<HttpResponse(Json&)>& step) {
  // To be told that its token is unknown would cost the terminal its kiosk in the end.
  const std::optional<std::string> digest = Sha256Hex(BearerToken(request));
  if (!digest) return ErrorResponse(500, "internal");
  return _store.run([&](State& state) {
    Json* const terminal = FindByToken(state, *digest);
    if (terminal == nullptr) return Refuse("unknown");
    return (*terminal)["status"] == "revoked" ? Refuse("revoked") : step(*terminal);
  });
}

}  // namespace portal
