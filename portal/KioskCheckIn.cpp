// The periodic conversation with the portal.
#include "portal/KioskCheckIn.h"

#include <algorithm>

#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLimits.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Clock.h"
#include "platform/Text.h"
#include "portal/KioskHttp.h"
#include "settings/KioskPower.h"
#include "updates/KioskUpdates.h"

namespace {

constexpr std::int64_t kUnauthorized = 401;
constexpr double kUnknownTokenGraceSeconds = 86400;
constexpr double kUnknownTokenGraceHours = 24;

bool KeepsHost(const Json& hosts, const Json& host) {
  return host.is_string() && KioskIsHostName(host.get_ref<const std::string&>()) &&
         hosts.size() < kKioskMaximumExtraHosts &&
         std::find(hosts.begin(), hosts.end(), host) == hosts.end();
}

Json ExtraHosts(const Json& offered) {
  Json hosts = Json::array();
  if (!offered.is_array()) return hosts;
  for (const Json& host : offered) {
    if (KeepsHost(hosts, host)) {
      hosts.push_back(host);
    } else {
      KioskLogError("sign-in: ignoring extra host %@", KioskDescription(host));
    }
  }
  return hosts;
}

std::string Joined(const Json& strings) {
  std::string joined;
  for (const Json& text : strings) {
    if (!joined.empty()) joined += ',';
    joined += text.get<std::string>();
  }
  return joined;
}

std::optional<Json> ParsedPolicy(std::string_view key, const Json& value) {
  return key == "updates" ? KioskUpdatesParse(value) : KioskPowerParse(value);
}

bool Is401(const KioskHttpResult& answer, const char* status) {
  return answer.reached && answer.status == kUnauthorized &&
         KioskMember(answer.body, "status") == status;
}

}  // namespace

Json KioskDefaultSignIn() {
  return {{"microsoft", true}, {"email", false}, {"extraHosts", Json::array()}};
}

bool KioskIsHostName(std::string_view text) { return KioskHostLabels(text) >= 2; }

Json KioskSignInFrom(const Json& signIn) {
  if (!signIn.is_object()) return KioskDefaultSignIn();
  return {{"microsoft", KioskTruth(KioskMember(signIn, "microsoft")).value_or(true)},
          {"email", KioskTruth(KioskMember(signIn, "email")).value_or(false)},
          {"extraHosts", ExtraHosts(KioskMember(signIn, "extraHosts"))}};
}

std::string KioskTerminalNameFrom(const Json& name) {
  if (!name.is_string()) return {};
  const std::string_view trimmed = KioskTrim(name.get_ref<const std::string&>());
  const std::u16string units = platform::TextToUtf16(trimmed);
  if (units.size() <= kKioskMaximumTerminalName) return std::string(trimmed);
  const std::size_t end = platform::TextComposedCharacterStart(units, kKioskMaximumTerminalName);
  const std::string cut = platform::TextFromUtf16(std::u16string_view{units}.substr(0, end));
  return std::string(KioskTrim(cut));
}

KioskCheckInOutcome KioskDaemon::checkIn() {
  const std::optional<std::string> token = string("token");
  if (!token) return KioskCheckInOutcome::kStop;
  const KioskHttpResult answer =
      KioskHttp(authBaseUrl(), "POST", "/api/kiosk/check-in", checkInBody(), *token);
  if (Is401(answer, "revoked")) {
    teardown("the portal revoked this device");
    return KioskCheckInOutcome::kStop;
  }
  if (Is401(answer, "unknown")) return tokenUnknown();
  if (answer.success() && KioskMember(answer.body, "status") == "enrolled") {
    enrolled(answer.body, *token);
    return KioskCheckInOutcome::kEnrolled;
  }
  if (answer.reached) KioskLog("check-in: HTTP %ld treated as unreachable", answer.status);
  return KioskCheckInOutcome::kUnreachable;
}

Json KioskDaemon::checkInBody() const {
  const std::optional<std::string> powerError = string("powerError");
  const Json& osUpdates = KioskMember(_state, "osUpdates");
  return {{"appVersion", appVersion()},
          {"powerLocal", policy("powerLocal").value_or(Json())},
          {"powerError", powerError ? Json(*powerError) : Json()},
          {"osUpdates", osUpdates.is_object() ? osUpdates : Json()}};
}

// A portal restored from a backup may know the token again tomorrow, so a day passes first.
KioskCheckInOutcome KioskDaemon::tokenUnknown() {
  const double now = platform::ClockSecondsSince1970();
  const std::optional<double> since = KioskNumber(KioskMember(_state, "tokenUnknownSince"));
  if (since && *since <= now) {
    if (now - *since <= kUnknownTokenGraceSeconds) {
      return KioskCheckInOutcome::kUnreachable;
    }
    teardown("Keyward has not known this device's token for over a day");
    return KioskCheckInOutcome::kStop;
  }
  _state["tokenUnknownSince"] = now;
  save();
  KioskLogError(
      "check-in: Keyward does not know this device's token; tearing down if that lasts %.0f h",
      kUnknownTokenGraceHours);
  return KioskCheckInOutcome::kUnreachable;
}

void KioskDaemon::enrolled(const Json& answer, const std::string& token) {
  if (_state.erase("tokenUnknownSince") != 0) save();
  syncSignIn(answer);
  syncTerminalName(answer);
  syncBranding(answer, token);
  syncPolicies(answer);
  syncExitPassword(answer);
  enforce();
  if (!flag("provisioned")) provision();
  // Its error is kept in the state, for the next check-in to report.
  static_cast<void>(applyPower(false));
}

void KioskDaemon::syncSignIn(const Json& answer) {
  const Json signIn = KioskSignInFrom(KioskMember(answer, "signIn"));
  if (signIn == KioskMember(_state, "signIn")) return;
  _state["signIn"] = signIn;
  save();
  KioskLog("sign-in: microsoft=%d email=%d extraHosts=%@", signIn["microsoft"].get<bool>() ? 1 : 0,
           signIn["email"].get<bool>() ? 1 : 0, Joined(signIn["extraHosts"]));
}

void KioskDaemon::syncTerminalName(const Json& answer) {
  const std::string name = KioskTerminalNameFrom(KioskMember(answer, "name"));
  if (name == string("terminalName").value_or("")) return;
  if (name.empty()) {
    _state.erase("terminalName");
    KioskLog("terminal name: %@", "(none)");
  } else {
    _state["terminalName"] = name;
    KioskLog("terminal name: %@", name);
  }
  save();
}

void KioskDaemon::syncPolicies(const Json& answer) {
  const bool power = syncPolicy(answer, "power", "powerSource");
  const bool updates = syncPolicy(answer, "updates", "updatesSource");
  if (power || updates) save();
}

// Whether the stored policy or its source changed.
bool KioskDaemon::syncPolicy(const Json& answer, const char* key, const char* sourceKey) {
  const Json& offered = KioskMember(answer, key);
  if (offered.is_null()) return false;
  const std::optional<Json> parsed = ParsedPolicy(key, offered);
  if (!parsed) {
    KioskLogError("check-in: ignoring an invalid %@ policy", key);
    return false;
  }
  const Json& named = KioskMember(answer, sourceKey);
  const std::string source =
      named == "device" || named == "tenant" ? named.get<std::string>() : "default";
  if (*parsed == KioskMember(_state, key) && source == KioskMember(_state, sourceKey)) return false;
  _state[key] = *parsed;
  _state[sourceKey] = source;
  KioskLog("%@ policy from %@: %@", key, source, KioskDescription(*parsed));
  return true;
}

void KioskDaemon::syncExitPassword(const Json& answer) {
  const Json& password = KioskMember(answer, "exitPassword");
  if (!password.is_string() || password == KioskMember(_state, "exitPassword")) return;
  _state["exitPassword"] = password;
  save();
}

std::optional<Json> KioskDaemon::policy(const char* key) const {
  return ParsedPolicy(key, KioskMember(_state, key));
}
