#include "simulator/portal/Pairing.h"

#include "simulator/portal/Limits.h"
#include "simulator/portal/Secrets.h"
#include "simulator/portal/Shapes.h"
#include "simulator/portal/Times.h"

namespace portal {
namespace {

constexpr std::size_t kTokenBytes = 32;
constexpr std::size_t kIdBytes = 8;

/// Keeps room for one more code by forgetting the one that has been useless for longest.
bool MakeRoom(Json& codes, std::int64_t now) {
  if (codes.size() < kMaxCodes) return true;
  auto oldest = codes.end();
  for (auto code = codes.begin(); code != codes.end(); ++code) {
    const std::string status = CodeStatus(*code, now);
    if (status != "expired" && status != "collected") continue;
    if (oldest == codes.end() || (*code)["expiresAt"] < (*oldest)["expiresAt"]) oldest = code;
  }
  if (oldest == codes.end()) return false;
  codes.erase(oldest);
  return true;
}

HttpResponse HandOutToken(State& state, Json& code) {
  const auto terminal = state.terminals.find(code["terminal"].get_ref<const std::string&>());
  const std::optional<std::string> token = RandomHex(kTokenBytes);
  const std::optional<std::string> digest = token ? Sha256Hex(*token) : std::nullopt;
  if (terminal == state.terminals.end() || !digest) return ErrorResponse(500, "internal");
  (*terminal)["tokenDigest"] = *digest;
  code["collected"] = true;
  return JsonResponse(200, {{"deviceToken", *token}});
}

Json NewTerminal(const std::string& id, const Json& device, std::int64_t now) {
  Json terminal = device;
  terminal.update({{"status", "enrolled"},
                   {"pairedAt", now},
                   {"lastCheckInAt", nullptr},
                   {"checkIns", 0},
                   {"powerLocal", nullptr},
                   {"powerError", nullptr},
                   {"osUpdates", nullptr},
                   {"signIn", DefaultSignIn()}});
  terminal["name"] = DefaultName(id, terminal);
  return terminal;
}

}  // namespace

std::string CodeStatus(const Json& code, std::int64_t now) {
  if (code["collected"] == true) return "collected";
  if (now >= code["expiresAt"].get<std::int64_t>()) return "expired";
  return code["terminal"].is_null() ? "pending" : "claimed";
}

HttpResponse IssueCode(State& state, const Json& device, std::int64_t now) {
  if (!MakeRoom(state.codes, now)) return ErrorResponse(429, "too_many_codes");
  std::optional<std::string> code = RandomPairingCode();
  while (code && state.codes.contains(*code)) code = RandomPairingCode();
  if (!code) return ErrorResponse(500, "internal");
  state.codes[*code] = {{"device", device},
                        {"createdAt", now},
                        {"expiresAt", now + kCodeLifetime},
                        {"terminal", nullptr},
                        {"collected", false}};
  return JsonResponse(200, {{"pairingCode", *code}, {"expiresInSeconds", kCodeLifetime}});
}

HttpResponse PollCode(State& state, const std::string& code, std::int64_t now) {
  const auto record = state.codes.find(code);
  if (record == state.codes.end()) return ErrorResponse(404, "not_found");
  const std::string status = CodeStatus(*record, now);
  if (status == "pending") return JsonResponse(202, Json::object());
  if (status == "expired") return ErrorResponse(410, "expired");
  if (status == "collected") return ErrorResponse(409, "claimed");
  return HandOutToken(state, *record);
}

HttpResponse ClaimCode(State& state, const std::string& code,
                       const std::optional<std::string>& name, std::int64_t now) {
  const auto record = state.codes.find(code);
  if (record == state.codes.end()) return ErrorResponse(404, "not_found");
  const std::string status = CodeStatus(*record, now);
  if (status == "expired") return ErrorResponse(410, "expired");
  if (status != "pending") return ErrorResponse(409, "claimed");
  const std::optional<std::string> id = RandomHex(kIdBytes);
  if (!id) return ErrorResponse(500, "internal");
  Json terminal = NewTerminal(*id, (*record)["device"], now);
  if (name) terminal["name"] = *name;
  (*record)["terminal"] = *id;
  (*record)["expiresAt"] = now + kCodeLifetime;
  state.terminals[*id] = terminal;
  return JsonResponse(200, TerminalRecord(*id, terminal));
}

HttpResponse ExpireCode(State& state, const std::string& code, std::int64_t now) {
  const auto record = state.codes.find(code);
  if (record == state.codes.end()) return ErrorResponse(404, "not_found");
  if (CodeStatus(*record, now) == "collected") return ErrorResponse(409, "claimed");
  (*record)["expiresAt"] = now;
  return JsonResponse(200, CodeRecord(code, *record, now));
}

Json CodeRecord(const std::string& code, const Json& record, std::int64_t now) {
  Json shown = record["device"];
  shown.update({{"code", code},
                {"status", CodeStatus(record, now)},
                {"createdAt", IsoTime(record["createdAt"].get<std::int64_t>())},
                {"expiresAt", IsoTime(record["expiresAt"].get<std::int64_t>())},
                {"terminal", record["terminal"]}});
  return shown;
}

Json TerminalRecord(const std::string& id, const Json& terminal) {
  Json shown = terminal;
  shown.erase("tokenDigest");
  shown["exitPasswordSet"] = shown.erase("exitPassword") > 0;
  shown["id"] = id;
  for (const char* key : {"pairedAt", "lastCheckInAt"})
    if (!shown[key].is_null()) shown[key] = IsoTime(shown[key].get<std::int64_t>());
  return shown;
}

std::string DefaultName(const std::string& id, const Json& terminal) {
  const Json& hostname = terminal["hostname"];
  return IsName(hostname) ? hostname.get<std::string>() : "Terminal " + id.substr(0, 4);
}

Json DefaultSignIn() {
  return {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}};
}

}  // namespace portal
