#include "simulator/portal/AdminInterface.h"

#include <map>
#include <optional>
#include <utility>

#include "simulator/portal/Branding.h"
#include "simulator/portal/JsonText.h"
#include "simulator/portal/Limits.h"
#include "simulator/portal/Pairing.h"
#include "simulator/portal/PhotoUpload.h"
#include "simulator/portal/Secrets.h"
#include "simulator/portal/Shapes.h"
#include "simulator/portal/Times.h"

namespace portal {
namespace {

constexpr char kPhotosOfTerminal[] = "/api/admin/terminals/{}/photos";

/// What an administrator can set on a terminal.
const std::map<std::string, Shape>& Settings() {
  static const std::map<std::string, Shape> kSettings = {{"name", IsName},
                                                         {"signIn", IsSignIn},
                                                         {"exitPassword", IsExitPassword},
                                                         {"power", IsPowerPolicy},
                                                         {"powerSource", IsSource},
                                                         {"updates", IsUpdatesPolicy},
                                                         {"updatesSource", IsSource},
                                                         {"branding", IsBrandingChange},
                                                         {"tenantId", IsTenantId}};
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

void Change(const std::string& id, Json& terminal, const Json& body, AdminInterface::Check check) {
  for (const auto& [key, value] : body.items()) {
    if (!value.is_null()) {
      const bool merged = key == "branding" && check == AdminInterface::Check::kShapes;
      terminal[key] = merged ? Rebranded(terminal, value) : value;
    } else if (key == "name") {
      terminal[key] = DefaultName(id, terminal);
    } else if (key == "signIn") {
      terminal[key] = DefaultSignIn();
    } else {
      terminal.erase(key);
    }
  }
}

/// {"name": …} or nothing at all.
bool IsClaim(const Json& body) {
  return body.is_object() &&
         (body.empty() || (body.size() == 1 && body.contains("name") && IsName(body["name"])));
}

/// Finds a terminal and hands it to a step that answers.
HttpResponse WithTerminal(Store& store, const std::string& id,
                          const std::function<HttpResponse(Json& terminal)>& step) {
  return store.run([&](State& state) {
    const auto terminal = state.terminals.find(id);
    return terminal == state.terminals.end() ? ErrorResponse(404, "not_found") : step(*terminal);
  });
}

/// As `WithTerminal`; the answer is the terminal's record after the step.
HttpResponse ChangeTerminal(Store& store, const std::string& id,
                            const std::function<void(Json& terminal)>& step) {
  return WithTerminal(store, id, [&](Json& terminal) {
    step(terminal);
    return JsonResponse(200, TerminalRecord(id, terminal));
  });
}

}  // namespace

AdminInterface::AdminInterface(Store& store, const PhotoFiles& photos, Misbehaviour& misbehaviour,
                               std::string token, Apply apply)
    : _store(store),
      _photos(photos),
      _misbehaviour(misbehaviour),
      _token(std::move(token)),
      _apply(std::move(apply)),
      _routes(routes()) {}

std::vector<Route> AdminInterface::routes() {
  using Request = const HttpRequest&;
  using Path = const PathArguments&;
  return {
      {"GET", "/api/admin/terminals", [this](Request, Path) { return listTerminals(); }},
      {"GET", "/api/admin/terminals/{}", [this](Request, Path at) { return showTerminal(at[0]); }},
      {"PATCH", "/api/admin/terminals/{}",
       [this](Request request, Path at) { return change(request, at[0], Check::kShapes); }},
      {"PATCH", "/api/admin/terminals/{}/raw",
       [this](Request request, Path at) { return change(request, at[0], Check::kNothing); }},
      {"DELETE", "/api/admin/terminals/{}", [this](Request, Path at) { return forget(at[0]); }},
      {"POST", "/api/admin/terminals/{}/revoke",
       [this](Request, Path at) { return revoke(at[0]); }},
      {"GET", kPhotosOfTerminal, [this](Request, Path at) { return listPhotos(at[0]); }},
      {"POST", kPhotosOfTerminal,
       [this](Request request, Path at) { return addPhoto(request, at[0]); }},
      {"DELETE", "/api/admin/terminals/{}/photos/{}",
       [this](Request, Path at) { return removePhoto(at[0], at[1]); }},
      {"GET", "/api/admin/codes", [this](Request, Path) { return listCodes(); }},
      {"POST", "/api/admin/codes/{}/claim",
       [this](Request request, Path at) { return claim(request, at[0]); }},
      {"POST", "/api/admin/codes/{}/expire",
       [this](Request, Path at) {
         return _store.run([&](State& state) { return ExpireCode(state, at[0], Now()); });
       }},
      {"GET", "/api/admin/misbehaviour",
       [this](Request, Path) { return JsonResponse(200, _misbehaviour.current()); }},
      {"PUT", "/api/admin/misbehaviour",
       [this](Request request, Path) { return misbehave(request); }},
  };
}

HttpResponse AdminInterface::answer(const HttpRequest& request) {
  if (isAdministrator(request)) return Dispatch(_routes, request);
  HttpResponse response = ErrorResponse(401, "unauthorized");
  response.headers["www-authenticate"] = "Bearer";
  return response;
}

std::size_t AdminInterface::bodyLimit(const HttpRequest& head) const {
  const bool upload = head.method == "POST" && MatchPath(kPhotosOfTerminal, head.path);
  return upload && isAdministrator(head) ? kMaxPhoto : kMaxBody;
}

bool AdminInterface::isAdministrator(const HttpRequest& request) const {
  return SameSecret(BearerToken(request), _token);
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
  return ChangeTerminal(_store, id, [](Json&) {});
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
  HttpResponse response =
      ChangeTerminal(_store, id, [&](Json& terminal) { Change(id, terminal, *body, check); });
  if (body->contains("branding")) RemoveUnlistedPhotos(_store, _photos);
  return response;
}

HttpResponse AdminInterface::revoke(const std::string& id) {
  return ChangeTerminal(_store, id, [](Json& terminal) { terminal["status"] = "revoked"; });
}

HttpResponse AdminInterface::forget(const std::string& id) {
  HttpResponse response = _store.run([&](State& state) {
    if (state.terminals.erase(id) == 0) return ErrorResponse(404, "not_found");
    for (auto code = state.codes.begin(); code != state.codes.end();)
      code = (*code)["terminal"] == id ? state.codes.erase(code) : std::next(code);
    return JsonResponse(200, Json::object());
  });
  RemoveUnlistedPhotos(_store, _photos);
  return response;
}

HttpResponse AdminInterface::listPhotos(const std::string& id) {
  return WithTerminal(_store, id, [](const Json& terminal) {
    return JsonResponse(200, {{"photos", ValidPhotos(terminal)}});
  });
}

HttpResponse AdminInterface::addPhoto(const HttpRequest& request, const std::string& id) {
  HttpResponse refusal;
  const std::optional<Json> photo = DescribePhoto(request, refusal);
  if (!photo) return refusal;
  HttpResponse response = WithTerminal(_store, id, [&](Json& terminal) {
    HttpResponse added = AddPhoto(terminal, *photo, request.query.contains("credit"));
    if (added.status >= 400) return added;
    const bool kept = _photos.keep((*photo)["sha256"].get<std::string>(), request.body);
    return kept ? added : ErrorResponse(500, "storage");
  });
  if (response.status >= 500) RemoveUnlistedPhotos(_store, _photos);
  return response;
}

HttpResponse AdminInterface::removePhoto(const std::string& id, const std::string& digest) {
  HttpResponse response =
      WithTerminal(_store, id, [&](Json& terminal) { return RemovePhoto(terminal, digest); });
  RemoveUnlistedPhotos(_store, _photos);
  return response;
}

HttpResponse AdminInterface::misbehave(const HttpRequest& request) {
  const std::optional<Json> settings = ParseJson(request.body);
  if (!settings || !IsMisbehaviour(*settings)) return ErrorResponse(400, "bad_request");
  if (!_apply(*settings)) return ErrorResponse(500, "internal");
  return JsonResponse(200, *settings);
}

}  // namespace portal
