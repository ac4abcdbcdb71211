// The power policy in force: applying it, showing it, overriding it at the terminal.
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "platform/Clock.h"
#include "settings/KioskPower.h"
#include "settings/KioskPowerApply.h"

namespace {

constexpr std::uint64_t kReassertAfterNs = 600'000'000'000;

Json OrNull(const KioskError& error) { return error ? Json(*error) : Json(); }

void LogPolicy(const Json& policy, const KioskError& error) {
  KioskLog("power: screen off %@ min, sleep %@ min, schedule %@%@",
           KioskDescription(policy["screenOffMinutes"]), KioskDescription(policy["sleepMinutes"]),
           policy["schedule"]["enabled"] == true ? "on" : "off", error ? ": " + *error : "");
}

}  // namespace

// The built-in default is for showing; it is never applied.
std::optional<Json> KioskDaemon::effectivePower() const {
  std::optional<Json> local = policy("powerLocal");
  return local ? local : policy("power");
}

KioskError KioskDaemon::applyPower(bool force) {
  if (!flag("provisioned")) return std::nullopt;
  const std::optional<Json> effective = effectivePower();
  if (!effective) return std::nullopt;
  const std::uint64_t now = platform::ClockMonotonicNs();
  const bool known = *effective == KioskMember(_state, "powerApplied");
  KioskError before = string("powerError");
  if (!force && known && _powerAppliedNs != 0 && now - _powerAppliedNs < kReassertAfterNs) {
    return before;
  }
  snapshotPower();
  bool armed = flag("powerRepeatArmed");
  const bool wasArmed = armed;
  KioskError error = KioskPowerApply(*effective, armed);
  _powerAppliedNs = now;
  if (!known) LogPolicy(*effective, error);
  _state["powerApplied"] = *effective;
  _state["powerRepeatArmed"] = armed;
  _state.erase("powerError");
  if (error) _state["powerError"] = *error;
  if (!known || armed != wasArmed || error != before) save();
  return error;
}

// Taken once, before our first change, so that a teardown can put the machine's own values back.
void KioskDaemon::snapshotPower() {
  if (_state.contains("powerBefore")) return;
  if (std::optional<Json> snapshot = KioskPowerSnapshot()) _state["powerBefore"] = *snapshot;
}

Json KioskDaemon::powerPayload() const {
  const std::optional<Json> organisation = policy("power");
  return {{"ok", true},
          {"policy", organisation.value_or(KioskPowerDefault())},
          {"source", string("powerSource").value_or("default")},
          {"local", policy("powerLocal").value_or(Json())},
          {"effective", effectivePower().value_or(KioskPowerDefault())},
          {"error", OrNull(string("powerError"))}};
}

Json KioskDaemon::powerSet(const Json& request, KioskPeer peer) {
  if (!mayChangeSettings(request, peer)) return KioskFailure("not_unlocked");
  if (!flag("provisioned")) return KioskFailure("not_provisioned");
  if (KioskMember(request, "useOrganisation") == true) {
    _state.erase("powerLocal");
    save();
    KioskLog("power: local override cleared; following the organisation policy");
    static_cast<void>(applyPower(true));  // its error is in the payload
    return powerPayload();
  }
  Json wanted = request;
  if (!wanted.contains("schedule")) {
    wanted["schedule"] = effectivePower().value_or(KioskPowerDefault())["schedule"];
  }
  const std::optional<Json> policy = KioskPowerParse(wanted);
  if (!policy) return KioskFailure("invalid");
  const KioskError error = overridePower(*policy);
  if (error == "failed") return KioskFailure(*error);
  Json reply = powerPayload();
  reply["ok"] = !error;
  return reply;
}

// An override that could not be applied at all is taken back.
KioskError KioskDaemon::overridePower(const Json& policy) {
  const bool hadOne = _state.contains("powerLocal");
  const Json before = KioskMember(_state, "powerLocal");
  _state["powerLocal"] = policy;
  KioskError error = applyPower(true);
  if (error == "failed") {
    _state.erase("powerLocal");
    if (hadOne) _state["powerLocal"] = before;
    save();
    return error;
  }
  save();
  KioskLog("power: local override set at the terminal");
  return error;
}
