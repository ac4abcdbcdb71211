#include "simulator/portal/Store.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "simulator/portal/Files.h"
#include "simulator/portal/JsonText.h"
#include "simulator/portal/Shapes.h"

namespace portal {
namespace {

bool HasInteger(const Json& record, const char* key) {
  return record.contains(key) && record[key].is_number_integer();
}

bool HasText(const Json& record, const char* key) {
  return record.contains(key) && record[key].is_string();
}

bool HasIntegerOrNull(const Json& record, const char* key) {
  return HasInteger(record, key) || (record.contains(key) && record[key].is_null());
}

bool IsTerminal(const Json& record) {
  return record.is_object() && HasText(record, "name") && HasText(record, "hostname") &&
         HasText(record, "platform") && HasText(record, "osVersion") &&
         HasText(record, "appVersion") && HasInteger(record, "pairedAt") &&
         HasIntegerOrNull(record, "lastCheckInAt") && HasInteger(record, "checkIns") &&
         record.contains("signIn") && record.contains("powerLocal") &&
         record.contains("powerError") && record.contains("osUpdates") &&
         (!record.contains("tokenDigest") || record["tokenDigest"].is_string()) &&
         HasText(record, "status") &&
         (record["status"] == "enrolled" || record["status"] == "revoked");
}

bool IsCode(const Json& record) {
  return record.is_object() && record.contains("device") && IsPairRequest(record["device"]) &&
         HasInteger(record, "createdAt") && HasInteger(record, "expiresAt") &&
         record.contains("terminal") &&
         (record["terminal"].is_null() || record["terminal"].is_string()) &&
         record.contains("collected") && record["collected"].is_boolean();
}

bool AreRecords(const Json& document, const char* key, Shape shape) {
  return document.contains(key) && document[key].is_object() &&
         std::all_of(document[key].begin(), document[key].end(), shape);
}

std::optional<State> Parse(const std::string& text) {
  Json document = Json::parse(text, nullptr, false);
  if (!document.is_object() || document.value("version", Json()) != 1) return std::nullopt;
  if (!AreRecords(document, "terminals", IsTerminal) || !AreRecords(document, "codes", IsCode))
    return std::nullopt;
  return State{std::move(document["terminals"]), std::move(document["codes"])};
}

std::string Text(const State& state) {
  const Json document = {{"version", 1}, {"terminals", state.terminals}, {"codes", state.codes}};
  return JsonText(document) + "\n";
}

}  // namespace

Store::Store(std::filesystem::path path, std::size_t limit, State state)
    : _path(std::move(path)), _limit(limit), _state(std::move(state)) {}

std::unique_ptr<Store> Store::open(const std::filesystem::path& path, std::string& problem,
                                   std::size_t limit) {
  std::error_code error;
  if (!std::filesystem::exists(path, error) && !error)
    return std::unique_ptr<Store>(new Store(path, limit, {}));
  const std::optional<std::string> text = ReadFile(path, limit);
  std::optional<State> state = text ? Parse(*text) : std::nullopt;
  if (state) return std::unique_ptr<Store>(new Store(path, limit, std::move(*state)));
  problem = path.string() + (text ? " is not a portal's file" : " cannot be read") +
            "; repair it or move it away";
  return nullptr;
}

HttpResponse Store::run(const std::function<HttpResponse(State&)>& step) {
  const std::lock_guard lock(_mutex);
  State next = _state;
  HttpResponse response = step(next);
  if (response.status >= 400 || next == _state) return response;
  if (!keep(next)) return ErrorResponse(500, "storage");
  _state = std::move(next);
  return response;
}

bool Store::keep(const State& state) const {
  const std::string text = Text(state);
  return text.size() <= _limit && ReplaceFile(_path, text, 0600);
}

}  // namespace portal
