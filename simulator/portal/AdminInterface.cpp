#include "simulator/portal/AdminInterface.h"

#include <map>
#include <optional>
#include <utility>

#include "simulator/portal/JsonText.h"
#include "simulator/portal/Pairing.h"
#include "simulator/portal/Secrets.h"
#include "simulator/portal/Shapes.h"
#include "simulator/portal/Times.h"

namespace portal {
namespace {

/// What an administrator can set on a terminal.
const std::map<std::string, Shape>& Settings() {
  static const std::map<std::string, Shape> kSettings = {
      {"name", IsName},           {"signIn", IsSignIn},      {"exitPassword", IsExitPassword},
      {"power", IsPowerPolicy},   {"powerSource", IsSource}, {"updates", IsUpdatesPolicy},
      {"updatesSource", IsSource}};
  return kSettings;
}

/// Unchecked, any value passes, but for the name, so that a list of terminals stays readable.
bool IsChange(const Json& body, AdminInterface::Check check) {
  if (!body.is_object()) return false;
  for (const auto& [key, value] : body.items()) {
    const auto setting = Settings().find(key);
    if (setting == Settings().end()) return false;
    const bool unchecked =
        value.is_null() || (check == AdminInterface::Check::kNothing && key != "name");
    if (!unchecked && !setting->second(value)) return false;
  }
  return true;
}

void Change(const std::string& id, Json& terminal, const Json& body) {
  for (const auto& [key, value] : body.items()) {
    if (!value.is_null())
      terminal[key] = value;
    else if (key == "name")
      terminal[key] = DefaultName(id, terminal);
    else if (key == "signIn")
      terminal[key] = DefaultSignIn();
    else
      terminal.erase(key);
  }
}

/// {"name": …} or nothing at all.
bool IsClaim(const Json& body) {
  return body.is_object() &&
         (body.empty() || (body.size() == 1 && body.contains("name") && IsName(body["name"])));
}

/// Finds a terminal and hands it to a step that answers with its record.
HttpResponse WithTerminal(Store& store, const std::string& id,
                          const std::function<void(Json& terminal)>& step) {
  return store.run([&](State& state) {
    const auto terminal = state.terminals.find(id);
    if (terminal == state.terminals.end()) return ErrorResponse(404, "not_found");
    step(*terminal);
    return JsonResponse(200, TerminalRecord(id, *terminal));
  });
}

}  // namespace

AdminInterface::AdminInterface(Store& store, Misbehaviour& misbehaviour, std::string token,
                               Apply apply)
    : _store(store),
      _misbehaviour(misbehaviour),
      _token(std::move(token)),
      _apply(std::move(apply)),
      _routes(routes()) {}

std::vector<Route> AdminInterface::routes() {
  using Request = const HttpRequest&;
  using Argument = const std::string&;
  return {
      {"GET", "/api/admin/terminals", [this](Request, Argument) { return listTerminals(); }},
      {"GET", "/api/admin/terminals/{}", [this](Request, Argument id) { return showTerminal(id); }},
      {"PATCH", "/api/admin/terminals/{}",
       [this](Request request, Argument id) { return change(request, id, Check::kShapes); }},
      {"PATCH", "/api/admin/terminals/{}/raw",
       [this](Request request, Argument id) { return change(request, id, Check::kNothing); }},
      {"DELETE", "/api/admin/terminals/{}", [this](Request, Argument id) { return forget(id); }},
      {"POST", "/api/admin/terminals/{}/revoke",
       [this](Request, Argument id) { return revoke(id); }},
      {"GET", "/api/admin/codes", [this](Request, Argument) { return listCodes(); }},
      {"POST", "/api/admin/codes/{}/claim",
       [this](Request request, Argument code) { return claim(request, code); }},
      {"POST", "/api/admin/codes/{}/expire",
       [this](Request, Argument code) {
         return _store.run([&](State& state) { return ExpireCode(state, code, Now()); });
       }},
      {"GET", "/api/admin/misbehaviour",
       [this](Request, Argument) { return JsonResponse(200, _misbehaviour.current()); }},
      {"PUT", "/api/admin/misbehaviour",
       [this](Request request, Argument) { return misbehave(request); }},
  };
}

HttpResponse AdminInterface::answer(const HttpRequest& request) {
  if (SameSecret(BearerToken(request), _token)) return Dispatch(_routes, request);
  HttpResponse response = ErrorResponse(401, "unauthorized");
  response.headers["www-authenticate"] = "Bearer";
  return response;
}

HttpResponse AdminInterface::listTerminals() {
  return _store.run([](State& state) {
    Json list = Json::array();
    for (const auto& [id, terminal] : state.terminals.items())
      list.push_back(TerminalRecord(id, terminal));
    return JsonResponse(200, {{"terminals", list}});
  });
}

HttpResponse AdminInterface::listCodes() {
  return _store.run([](State& state) {
    Json list = Json::array();
    for (const auto& [code, record] : state.codes.items())
      list.push_back(CodeRecord(code, record, Now()));
    return JsonResponse(200, {{"codes", list}});
  });
}

HttpResponse AdminInterface::showTerminal(const std::string& id) {
  return WithTerminal(_store, id, [](Json&) {});
}

HttpResponse AdminInterface::claim(const HttpRequest& request, const std::string& code) {
  const std::optional<Json> body =
      request.body.empty() ? std::optional<Json>(Json::object()) : ParseJson(request.body);
  if (!body || !IsClaim(*body)) return ErrorResponse(400, "bad_request");
  std::optional<std::string> name;
  if (body->contains("name")) name = (*body)["name"].get<std::string>();
  return _store.run([&](State& state) { return ClaimCode(state, code, name, Now()); });
}

HttpResponse AdminInterface::change(const HttpRequest& request, const std::string& id,
                                    Check check) {
  const std::optional<Json> body = ParseJson(request.body);
  if (!body || !IsChange(*body, check)) return ErrorResponse(400, "bad_request");
  return WithTerminal(_store, id, [&](Json& terminal) { Change(id, terminal, *body); });
}

HttpResponse AdminInterface::revoke(const std::string& id) {
  return WithTerminal(_store, id, [](Json& terminal) { terminal["status"] = "revoked"; });
}

HttpResponse AdminInterface::forget(const std::string& id) {
  return _store.run([&](State& state) {
    if (state.terminals.erase(id) == 0) return ErrorResponse(404, "not_found");
    for (auto code = state.codes.begin(); code != state.codes.end();)
      code = (*code)["terminal"] == id ? state.codes.erase(code) : std::next(code);
    return JsonResponse(200, Json::object());
  });
}

HttpResponse AdminInterface::misbehave(const HttpRequest& request) {
  const std::optional<Json> settings = ParseJson(request.body);
  if (!settings || !IsMisbehaviour(*settings)) return ErrorResponse(400, "bad_request");
  if (!_apply(*settings)) return ErrorResponse(500, "internal");
  return JsonResponse(200, *settings);
}

}  // namespace portal
