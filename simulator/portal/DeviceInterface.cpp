#include "simulator/portal/DeviceInterface.h"

#include <map>
#include <optional>
#include <string>
#include <utility>

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
  for (const char* key :
       {"name", "signIn", "exitPassword", "power", "powerSource", "updates", "updatesSource"})
    if (terminal.contains(key)) body[key] = terminal[key];
  HttpResponse response = JsonResponse(200, body);
  response.misbehaved = !IsCheckInAnswer(body);
  return response;
}

HttpResponse CheckIn(State& state, const std::string& digest, const std::optional<Json>& report) {
  Json* const terminal = FindByToken(state, digest);
  if (terminal == nullptr) return Refuse("unknown");
  if ((*terminal)["status"] == "revoked") return Refuse("revoked");
  if (!report || !IsCheckInRequest(*report)) return ErrorResponse(400, "bad_request");
  terminal->update(*report);
  (*terminal)["lastCheckInAt"] = Now();
  (*terminal)["checkIns"] = (*terminal)["checkIns"].get<std::int64_t>() + 1;
  return Enrolled(*terminal);
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

/// Answers that are made up without the request being looked at.
const std::map<std::string, HttpResponse (*)(const Json&), std::less<>>& MadeUpAnswers() {
  static const std::map<std::string, HttpResponse (*)(const Json&), std::less<>> kAnswers = {
      {"garbage", Garbage}, {"html500", ErrorPage}, {"status", GivenStatus}};
  return kAnswers;
}

}  // namespace

DeviceInterface::DeviceInterface(Store& store, Misbehaviour& misbehaviour)
    : _store(store),
      _misbehaviour(misbehaviour),
      _routes{
          {"POST", "/api/kiosk/pair",
           [this](const HttpRequest& request, const std::string&) { return pair(request); }},
          {"GET", "/api/kiosk/pair/{}",
           [this](const HttpRequest&, const std::string& code) {
             return _store.run([&](State& state) { return PollCode(state, code, Now()); });
           }},
          {"POST", "/api/kiosk/check-in",
           [this](const HttpRequest& request, const std::string&) { return checkIn(request); }},
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
  response.cut = mode == "cut";
  response.misbehaved = true;
  return response;
}

HttpResponse DeviceInterface::pair(const HttpRequest& request) {
  const std::optional<Json> device = ParseJson(request.body);
  if (!device || !IsPairRequest(*device)) return ErrorResponse(400, "bad_request");
  return _store.run([&](State& state) { return IssueCode(state, *device, Now()); });
}

HttpResponse DeviceInterface::checkIn(const HttpRequest& request) {
  // To be told that its token is unknown would cost the terminal its kiosk in the end.
  const std::optional<std::string> digest = Sha256Hex(BearerToken(request));
  if (!digest) return ErrorResponse(500, "internal");
  const std::optional<Json> report = ParseJson(request.body);
  return _store.run([&](State& state) { return CheckIn(state, *digest, report); });
}

}  // namespace portal
