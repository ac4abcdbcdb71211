#include "tests/portal/RecordCheck.h"

#include <cctype>
#include <fstream>
#include <optional>

#include "tests/portal/OpenApi.h"
#include "tests/portal/SchemaCheck.h"

namespace openapi {
namespace {

bool IsExchange(const Json& exchange) {
  return exchange.is_object() && exchange.value("method", Json()).is_string() &&
         exchange.value("path", Json()).is_string() &&
         exchange.value("query", Json::object()).is_object() &&
         exchange.value("requestHeaders", Json()).is_object() && exchange.contains("requestBody") &&
         exchange.value("status", Json()).is_number_integer() &&
         exchange.value("responseHeaders", Json()).is_object() && exchange.contains("responseBody");
}

std::string Header(const Json& headers, const char* name) {
  const Json value = headers.value(name, Json());
  return value.is_string() ? value.get<std::string>() : "";
}

/// The description of a content type: its own, or that of a range such as "image/*".
/// @return null when there is neither
const Json* FindMedia(const Json& content, const std::string& type) {
  const std::string media = type.substr(0, type.find(';'));
  const std::string range = media.substr(0, media.find('/')) + "/*";
  for (const std::string& key : {media, range})
    if (content.contains(key)) return &content[key];
  return nullptr;
}

/// Holds a value of a query against the schema of its parameter; null when there is none.
/// @return what is wrong
std::optional<std::string> CheckParameter(const Json& schema, const Json& value) {
  if (schema.is_null()) return "is not described";
  if (schema.value("type", "") != "integer" || !value.is_string())
    return FindViolation(schema, value);
  const Json number = Json::parse(value.get<std::string>(), nullptr, false);
  return FindViolation(schema, number.is_discarded() ? value : number);
}

/// Holds a body against the description of a request or response.
/// @return what is wrong
std::optional<std::string> CheckBody(const Json& described, const Json& headers, const Json& body) {
  if (!described.contains("content"))
    return body.is_null() ? std::nullopt : std::optional<std::string>("a body is not described");
  if (body.is_null() && !described.value("required", true)) return std::nullopt;
  const std::string type = Header(headers, "content-type");
  const Json* const media = FindMedia(described["content"], type);
  if (media == nullptr) return "content type \"" + type + "\" is not described";
  return FindViolation(media->value("schema", Json::object()), body);
}

/// One exchange on its way through the checks.
class Check {
 public:
  Check(const Json& description, const Json& exchange, Refusals refusals)
      : _description(description),
        _exchange(exchange),
        _status(exchange["status"].get<int>()),
        _misbehaved(exchange.value("misbehaviour", Json()) == true),
        _refused(refusals == Refusals::kAllowed && _status >= 400 && _status < 500) {}

  std::vector<std::string> run();

 private:
  void report(const std::string& what);
  void checkOperation(const Json& operation);
  void checkRequest(const Json& operation);
  void checkQuery(const Json& operation);
  void checkResponse(const Json& operation);
  void checkSecurity(const Json& operation);
  void checkUndescribed(int expectedStatus, const std::string& what);

  const Json& _description;
  const Json& _exchange;
  const int _status;
  const bool _misbehaved;
  const bool _refused;  ///< a wrong request is no violation
  std::vector<std::string> _violations;
};

std::vector<std::string> Check::run() {
  const Json* const item = FindPath(_description, _exchange["path"].get<std::string>());
  const Json* const operation =
      item == nullptr ? nullptr : FindOperation(*item, _exchange["method"].get<std::string>());
  if (item == nullptr)
    checkUndescribed(404, "the path is not described");
  else if (operation == nullptr)
    checkUndescribed(405, "the method is not described");
  else
    checkOperation(*operation);
  return _violations;
}

void Check::report(const std::string& what) {
  _violations.push_back(_exchange["method"].get<std::string>() + " " +
                        _exchange["path"].get<std::string>() + " " + std::to_string(_status) +
                        ": " + what);
}

void Check::checkUndescribed(int expectedStatus, const std::string& what) {
  // An administrator's interface does not tell strangers which paths it has.
  if (!_refused || (_status != expectedStatus && _status != 401 && _status != 413))
    return report(what);
  if (_status == 405 && Header(_exchange["responseHeaders"], "allow").empty())
    report("405 without an Allow header");
}

void Check::checkOperation(const Json& operation) {
  checkRequest(operation);
  if (_misbehaved) return;
  checkResponse(operation);
  checkSecurity(operation);
}

void Check::checkRequest(const Json& operation) {
  const Json described = operation.value("requestBody", Json::object());
  const auto wrong = CheckBody(described, _exchange["requestHeaders"], _exchange["requestBody"]);
  if (wrong && !_refused) report("request: " + *wrong);
  if (!_refused) checkQuery(operation);
}

void Check::checkQuery(const Json& operation) {
  Json schemas = Json::object();
  for (const Json& parameter : operation.value("parameters", Json::array()))
    if (parameter.value("in", "") == "query")
      schemas[parameter.value("name", "")] = parameter.value("schema", Json::object());
  const Json query = _exchange.value("query", Json::object());
  for (const auto& [name, value] : query.items())
    if (const auto wrong = CheckParameter(schemas.value(name, Json()), value))
      report("query: " + name + ": " + *wrong);
}

void Check::checkResponse(const Json& operation) {
  const std::string status = std::to_string(_status);
  // Interfaces on ports of their own know nothing of each other's paths.
  const bool otherPort = _refused && _status == 404;
  if (!operation["responses"].contains(status))
    return otherPort ? void() : report("the status is not described");
  const Json& described = operation["responses"][status];
  const auto wrong = CheckBody(described, _exchange["responseHeaders"], _exchange["responseBody"]);
  if (wrong) report("response: " + *wrong);
  const Json headers = described.value("headers", Json::object());
  for (const auto& [name, header] : headers.items()) {
    std::string lower = name;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (Header(_exchange["responseHeaders"], lower.c_str()).empty())
      report("response: header " + name + " is missing");
  }
}

void Check::checkSecurity(const Json& operation) {
  const Json needed = operation.value("security", _description.value("security", Json::array()));
  if (needed.empty() || _status < 200 || _status >= 300) return;
  if (!Header(_exchange["requestHeaders"], "authorization").starts_with("Bearer "))
    report("success without a bearer token");
}

}  // namespace

std::vector<std::string> CheckExchange(const Json& description, const Json& exchange,
                                       Refusals refusals) {
  if (!IsExchange(exchange)) return {"not an exchange"};
  return Check(description, exchange, refusals).run();
}

std::vector<std::string> CheckRecord(const Json& description, const std::string& path,
                                     Refusals refusals) {
  std::vector<std::string> violations;
  std::ifstream file(path);
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    const Json exchange = Json::parse(line, nullptr, false);
    for (const std::string& violation : CheckExchange(description, exchange, refusals))
      violations.push_back(path + ":" + std::to_string(number) + ": " + violation);
  }
  if (number == 0) violations.push_back(path + ":1: no exchange");
  return violations;
}

}  // namespace openapi
