#include "simulator/portal/Commands.h"

#include <algorithm>
#include <iostream>
#include <map>

#include "simulator/portal/AdminPaths.h"
#include "simulator/portal/JsonText.h"
#include "simulator/portal/PasswordInput.h"
#include "simulator/portal/Printing.h"

namespace portal {
namespace {

bool IsRecord(const Json& value) { return value.is_object(); }

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

/// As much of a photo's record as is relied on here.
bool HasDigest(const Json& value) {
  return value.is_object() && value.contains("sha256") && value["sha256"].is_string();
}

bool ArePhotoRecords(const Json& value) { return IsListOf(value, "photos", HasDigest); }

bool AreCodes(const Json& value) { return IsListOf(value, "codes", IsRecord); }

/// @param text not empty, or it would begin every id
bool Means(const std::string& text, const Json& terminal) {
  return text == "-" || terminal["name"] == text ||
         terminal["id"].get_ref<const std::string&>().starts_with(text);
}

/// What a refusal means to whoever typed the command; other errors speak for themselves.
const std::map<std::string, std::string, std::less<>>& Explanations() {
  static const std::map<std::string, std::string, std::less<>> kExplanations = {
      {"bad_request",
       "the portal does not take such values; the command's --help says what it takes"},
      {"no_branding", "the terminal has no branding yet; give it a display name first"},
      {"too_many_photos", "the terminal's branding has as many photos as it may have"},
      {"unknown_format",
       "neither a JPEG nor a PNG whose header tells its size; give --content-type, --width and "
       "--height"},
      {"storage", "the portal could not write its files"}};
  return kExplanations;
}

std::string Explain(const PortalAnswer& answer) {
  const std::string error = Cell(answer.body, "error");
  const auto explanation = Explanations().find(error);
  return (explanation != Explanations().end() ? explanation->second : error) + " (HTTP " +
         std::to_string(answer.status) + ")";
}

}  // namespace

const Commands::Kind Commands::kTerminals{AreTerminals, PrintTerminals};
const Commands::Kind Commands::kCodes{AreCodes, PrintCodes};
const Commands::Kind Commands::kRecord{IsRecord, PrintRecord};
const Commands::Kind Commands::kClaimed{HasIdAndName, PrintClaimed};
const Commands::Kind Commands::kTerminal{IsRecord, PrintTerminal};
const Commands::Kind Commands::kPhotos{ArePhotoRecords, PrintPhotos};
const Commands::Kind Commands::kNoPhotos{ArePhotoRecords, PrintNoBranding};
const Commands::Kind Commands::kAddedPhoto{HasDigest, PrintAddedPhoto};
const Commands::Kind Commands::kKnownPhoto{HasDigest, PrintKnownPhoto};
const Commands::Kind Commands::kRemovedPhoto{IsRecord, PrintNothing};
const Commands::Kind Commands::kDone{IsRecord, PrintDone};

int Commands::terminals() const { return ask("GET", "/api/admin/terminals", nullptr, kTerminals); }

int Commands::codes() const { return ask("GET", "/api/admin/codes", nullptr, kCodes); }

int Commands::show(const std::string& terminal) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  return found ? report(PortalAnswer{200, *found}, kTerminal) : status;
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

int Commands::updates(const std::string& terminal, const UpdatePolicyChange& policy,
                      const std::optional<std::string>& source) const {
  int status = kOk;
  const std::optional<Json> found = find(terminal, status);
  if (!found) return status;
  const std::optional<Json> changed = ChangedUpdatePolicy(found->value("updates", Json()), policy);
  if (!changed)
    return fail(kRefused, "the terminal's update policy is not a valid one; set it anew, as JSON");
  Json change = {{"updates", *changed}};
  if (source) change["updatesSource"] = *source;
  return ask("PATCH", TerminalPath(*found), change, kDone);
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
  if (!answer->success()) return fail(kRefused, Explain(*answer));
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
