#include "simulator/portal/Commands.h"

#include <algorithm>
#include <cctype>
#include <iomanip>
#include <iostream>

#include "simulator/portal/JsonText.h"
#include "simulator/portal/PasswordInput.h"
#include "simulator/portal/Printable.h"

namespace portal {
namespace {

/// "-" for what is not there, in whatever kind of answer.
std::string Cell(const Json& record, const char* key) {
  if (!record.is_object() || !record.contains(key) || record[key].is_null()) return "-";
  const Json& value = record[key];
  return Printable(value.is_string() ? value.get<std::string>() : JsonText(value));
}

bool IsObject(const Json& value) { return value.is_object(); }

/// As much of a terminal's record as is relied on here.
bool HasIdAndName(const Json& value) {
  return value.is_object() && value.contains("id") && value["id"].is_string() &&
         value.contains("name") && value["name"].is_string();
}

bool IsListOf(const Json& value, const char* key, Shape shape) {
  return value.is_object() && value.contains(key) && value[key].is_array() &&
         std::all_of(value[key].begin(), value[key].end(), shape);
}

bool AreTerminals(const Json& value) { return IsListOf(value, "terminals", HasIdAndName); }

bool AreCodes(const Json& value) { return IsListOf(value, "codes", IsObject); }

void PrintTerminals(const Json& body) {
  std::cout << std::left << std::setw(18) << "ID" << std::setw(10) << "STATUS" << std::setw(22)
            << "LAST CHECK-IN" << std::setw(14) << "VERSION"
            << "NAME\n";
  for (const Json& terminal : body["terminals"]) {
    std::cout << std::setw(18) << Cell(terminal, "id") << std::setw(10) << Cell(terminal, "status")
              << std::setw(22) << Cell(terminal, "lastCheckInAt") << std::setw(14)
              << Cell(terminal, "appVersion") << Cell(terminal, "name") << "\n";
  }
}

void PrintCodes(const Json& body) {
  std::cout << std::left << std::setw(10) << "CODE" << std::setw(11) << "STATUS" << std::setw(22)
            << "EXPIRES"
            << "HOST\n";
  for (const Json& code : body["codes"])
    std::cout << std::setw(10) << Cell(code, "code") << std::setw(11) << Cell(code, "status")
              << std::setw(22) << Cell(code, "expiresAt") << Cell(code, "hostname") << "\n";
}

void PrintRecord(const Json& body) {
  for (const auto& [key, value] : body.items())
    std::cout << std::left << std::setw(16) << Printable(key) << Cell(body, key.c_str()) << "\n";
}

void PrintClaimed(const Json& body) {
  std::cout << "claimed: terminal " << Cell(body, "id") << ", \"" << Cell(body, "name") << "\"\n";
}

void PrintDone(const Json&) { std::cout << "done\n"; }

/// Codes are read aloud and typed: neither case nor grouping matters.
std::string NormaliseCode(const std::string& typed) {
  std::string code;
  for (const char c : typed)
    if (c != '-' && c != ' ')
      code += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return code;
}

/// A path segment that may hold anything the user typed.
std::string Encode(const std::string& segment) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : segment) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0)
      encoded += c;
    else
      encoded.append({'%', kDigits[byte >> 4U], kDigits[byte & 15U]});
  }
  return encoded;
}

std::string TerminalPath(const Json& terminal) {
  return "/api/admin/terminals/" + Encode(terminal["id"].get<std::string>());
}

std::string CodePath(const std::string& code, const char* action) {
  return "/api/admin/codes/" + Encode(NormaliseCode(code)) + "/" + action;
}

/// @param text not empty, or it would begin every id
bool Means(const std::string& text, const Json& terminal) {
  return text == "-" || terminal["name"] == text ||
         terminal["id"].get_ref<const std::string&>().starts_with(text);
}

}  // namespace

const Commands::Kind Commands::kTerminals{AreTerminals, PrintTerminals};
const Commands::Kind Commands::kCodes{AreCodes, PrintCodes};
const Commands::Kind Commands::kRecord{IsObject, PrintRecord};
const Commands::Kind Commands::kClaimed{HasIdAndName, PrintClaimed};
const Commands::Kind Commands::kDone{IsObject, PrintDone};

int Commands::terminals() const { return ask("GET", "/api/admin/terminals", nullptr, kTerminals); }

int Commands::codes() const { return ask("GET", "/api/admin/codes", nullptr, kCodes); }

int Commands::show(const std::string& terminal) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  return found ? report(PortalAnswer{200, *found}, kRecord) : status;
}

int Commands::claim(const std::string& code, const std::optional<std::string>& name) const {
  const Json body = name ? Json{{"name", *name}} : Json::object();
  return ask("POST", CodePath(code, "claim"), body, kClaimed);
}

int Commands::expire(const std::string& code) const {
  return ask("POST", CodePath(code, "expire"), nullptr, kDone);
}

int Commands::change(const std::string& terminal, const Json& change, bool raw) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  return ask("PATCH", TerminalPath(*found) + (raw ? "/raw" : ""), change, kDone);
}

int Commands::exitPassword(const std::string& terminal) const {
  std::string problem;
  const std::optional<std::string> password = ReadPassword(problem);
  return password ? change(terminal, {{"exitPassword", *password}}) : fail(kRefused, problem);
}

int Commands::signIn(const std::string& terminal, const std::optional<bool>& microsoft,
                     const std::optional<bool>& email,
                     const std::optional<std::vector<std::string>>& hosts) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  Json options = found->contains("signIn") ? (*found)["signIn"] : Json();
  if (!options.is_object())
    return fail(kRefused, "the terminal's sign-in options are not an object; set them anew");
  if (microsoft) options["microsoft"] = *microsoft;
  if (email) options["email"] = *email;
  if (hosts) options["extraHosts"] = *hosts;
  return ask("PATCH", TerminalPath(*found), {{"signIn", options}}, kDone);
}

int Commands::revoke(const std::string& terminal) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  return found ? ask("POST", TerminalPath(*found) + "/revoke", nullptr, kDone) : status;
}

int Commands::forget(const std::string& terminal) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  return found ? ask("DELETE", TerminalPath(*found), nullptr, kDone) : status;
}

int Commands::misbehave(const Json& settings) const {
  return ask("PUT", "/api/admin/misbehaviour", settings, kRecord);
}

int Commands::showMisbehaviour() const {
  return ask("GET", "/api/admin/misbehaviour", nullptr, kRecord);
}

int Commands::ask(const std::string& method, const std::string& path, const Json& body,
                  const Kind& kind) const {
  return report(AskPortal(_dir, method, path, body), kind);
}

int Commands::report(const std::optional<PortalAnswer>& answer, const Kind& kind) const {
  if (!answer) return fail(kNotReached, "no portal answers for " + _dir.string());
  if (!answer->success())
    return fail(kRefused,
                Cell(answer->body, "error") + " (HTTP " + std::to_string(answer->status) + ")");
  if (!kind.shape(answer->body)) return fail(kRefused, "the portal's answer makes no sense");
  if (_json)
    std::cout << JsonText(answer->body) << "\n";
  else
    kind.print(answer->body);
  return kOk;
}

int Commands::fail(ExitStatus status, const std::string& problem) const {
  if (_json) std::cout << JsonText({{"error", problem}}) << "\n";
  std::cerr << "portal: " << problem << "\n";
  return status;
}

std::optional<Json> Commands::find(const std::string& terminal, int& status) const {
  if (terminal.empty()) {
    status = fail(kRefused, "an empty ID means no terminal");
    return std::nullopt;
  }
  const std::optional<PortalAnswer> answer = AskPortal(_dir, "GET", "/api/admin/terminals");
  if (!answer || !answer->success() || !AreTerminals(answer->body)) {
    status = report(answer, kTerminals);
    return std::nullopt;
  }
  std::vector<Json> meant;
  for (const Json& candidate : answer->body["terminals"]) {
    if (candidate["id"] == terminal) return candidate;
    if (Means(terminal, candidate)) meant.push_back(candidate);
  }
  if (meant.size() == 1) return meant.front();
  status = fail(kRefused, meant.empty() ? "no terminal is meant by \"" + terminal + "\""
                                        : "more than one terminal is meant by \"" + terminal +
                                              "\"; use the id that \"terminals\" shows");
  return std::nullopt;
}

}  // namespace portal
