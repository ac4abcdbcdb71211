#include "simulator/portal/Commands.h"

#include <cctype>
#include <iomanip>
#include <iostream>

#include "simulator/portal/JsonText.h"

namespace portal {
namespace {

std::string Cell(const Json& record, const char* key) {
  const Json value = record.value(key, Json());
  if (value.is_null()) return "-";
  return value.is_string() ? value.get<std::string>() : JsonText(value);
}

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
    std::cout << std::left << std::setw(16) << key << Cell(body, key.c_str()) << "\n";
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

bool Means(const std::string& text, const Json& terminal) {
  return text == "-" || terminal["name"] == text ||
         terminal["id"].get_ref<const std::string&>().starts_with(text);
}

}  // namespace

int Commands::terminals() const {
  return ask("GET", "/api/admin/terminals", nullptr, PrintTerminals);
}

int Commands::codes() const { return ask("GET", "/api/admin/codes", nullptr, PrintCodes); }

int Commands::show(const std::string& terminal) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  return found ? report(PortalAnswer{200, *found}, PrintRecord) : status;
}

int Commands::claim(const std::string& code, const std::optional<std::string>& name) const {
  const Json body = name ? Json{{"name", *name}} : Json::object();
  return ask("POST", CodePath(code, "claim"), body, PrintClaimed);
}

int Commands::expire(const std::string& code) const {
  return ask("POST", CodePath(code, "expire"), nullptr, PrintDone);
}

int Commands::change(const std::string& terminal, const Json& change, bool raw) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  return ask("PATCH", TerminalPath(*found) + (raw ? "/raw" : ""), change, PrintDone);
}

int Commands::signIn(const std::string& terminal, const std::optional<bool>& microsoft,
                     const std::optional<bool>& email,
                     const std::optional<std::vector<std::string>>& hosts) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  Json options = found->value("signIn", Json());
  if (!options.is_object())
    return fail(kRefused, "the terminal's sign-in options are not an object; set them anew");
  if (microsoft) options["microsoft"] = *microsoft;
  if (email) options["email"] = *email;
  if (hosts) options["extraHosts"] = *hosts;
  return ask("PATCH", TerminalPath(*found), {{"signIn", options}}, PrintDone);
}

int Commands::revoke(const std::string& terminal) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  return found ? ask("POST", TerminalPath(*found) + "/revoke", nullptr, PrintDone) : status;
}

int Commands::forget(const std::string& terminal) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  return found ? ask("DELETE", TerminalPath(*found), nullptr, PrintDone) : status;
}

int Commands::misbehave(const Json& settings) const {
  return ask("PUT", "/api/admin/misbehaviour", settings, PrintRecord);
}

int Commands::showMisbehaviour() const {
  return ask("GET", "/api/admin/misbehaviour", nullptr, PrintRecord);
}

int Commands::ask(const std::string& method, const std::string& path, const Json& body,
                  Print print) const {
  return report(AskPortal(_dir, method, path, body), print);
}

int Commands::report(const std::optional<PortalAnswer>& answer, Print print) const {
  if (!answer) return fail(kNotReached, "no portal answers for " + _dir.string());
  if (!answer->success())
    return fail(kRefused,
                Cell(answer->body, "error") + " (HTTP " + std::to_string(answer->status) + ")");
  if (_json)
    std::cout << JsonText(answer->body) << "\n";
  else
    print(answer->body);
  return kOk;
}

int Commands::fail(ExitStatus status, const std::string& problem) const {
  if (_json) std::cout << JsonText({{"error", problem}}) << "\n";
  std::cerr << "portal: " << problem << "\n";
  return status;
}

std::optional<Json> Commands::find(const std::string& terminal, int& status) const {
  const std::optional<PortalAnswer> answer = AskPortal(_dir, "GET", "/api/admin/terminals");
  if (!answer || !answer->success()) {
    status = report(answer, PrintDone);
    return std::nullopt;
  }
  std::vector<Json> meant;
  for (const Json& candidate : answer->body["terminals"]) {
    if (candidate["id"] == terminal) return candidate;
    if (Means(terminal, candidate)) meant.push_back(candidate);
  }
  if (meant.size() == 1) return meant.front();
  status = fail(kRefused, (meant.empty() ? "no terminal is meant by \""
                                         : "more than one terminal is meant by \"") +
                              terminal + "\"");
  return std::nullopt;
}

}  // namespace portal
