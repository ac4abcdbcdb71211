// Pairing with the portal and the restart into kiosk mode.
#include "portal/KioskPairing.h"

#include <algorithm>

#include "account/KioskRestart.h"
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLimits.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Clock.h"
#include "platform/Host.h"
#include "platform/Text.h"
#include "portal/KioskHttp.h"

namespace {

constexpr char kPairPath[] = "/api/kiosk/pair";
constexpr char kPollPath[] = "/api/kiosk/pair/";
constexpr std::string_view kCodeCharacters = "ABCDEFGHJKLMNPQRSTUVWXYZ23456789";
constexpr std::size_t kCodeLength = 8;
constexpr int kDefaultExpirySeconds = 900;
constexpr double kCheckInAfterPairing = 30.0;
constexpr std::uint64_t kRestartDelaySeconds = 10;

constexpr std::int64_t kAccepted = 202;
constexpr std::int64_t kNotFound = 404;
constexpr std::int64_t kConflict = 409;
constexpr std::int64_t kGone = 410;

// A code goes out again in the reply, whose size has its limit.
bool IsSendable(const Json& code) {
  return code.is_string() &&
         code.get_ref<const std::string&>().size() <= kKioskMaximumPairingCodeBytes;
}

std::uint64_t SecondsUntil(std::uint64_t deadlineNs) {
  const std::uint64_t now = platform::ClockMonotonicNs();
  if (now >= deadlineNs) return 0;
  return (deadlineNs - now + platform::kNanosecondsPerSecond - 1) / platform::kNanosecondsPerSecond;
}

}  // namespace

bool KioskIsPairingCode(std::string_view text) {
  return text.size() == kCodeLength && text.find_first_not_of(kCodeCharacters) == text.npos;
}

std::string KioskNormalisedCode(const Json& code) {
  if (!code.is_string()) return {};
  return platform::TextUpperCase(KioskTrimBlanks(code.get_ref<const std::string&>()));
}

Json KioskDaemon::pairBegin() {
  if (string("token")) return KioskFailure("already_enrolled");
  if (const KioskError refusal = preflight()) return KioskFailure(*refusal);
  const Json body = {{"hostname", platform::HostComputerName().value_or("")},
                     {"platform", "macOS"},
                     {"osVersion", platform::HostOperatingSystemVersionString()},
                     {"appVersion", appVersion()}};
  const KioskHttpResult answer = KioskHttp(authBaseUrl(), "POST", kPairPath, body, "");
  const Json& code = KioskMember(answer.body, "pairingCode");
  if (!answer.success() || !IsSendable(code)) {
    return KioskFailure(answer.reached ? "pairing_failed" : "unreachable");
  }
  _pendingCode = platform::TextUpperCase(code.get_ref<const std::string&>());
  const Json& expires = KioskMember(answer.body, "expiresInSeconds");
  const bool isNumber = KioskNumber(expires).has_value();
  return {{"ok", true},
          {"code", code},
          {"expiresInSeconds", isNumber ? expires : Json(kDefaultExpirySeconds)}};
}

Json KioskDaemon::pairCheckOnce(const Json& code) {
  if (string("token")) {
    if (!flag("provisioned")) provision();
    return pairResult();
  }
  const std::string normalised = KioskNormalisedCode(code);
  if (!KioskIsPairingCode(normalised)) return KioskFailure("invalid_code");
  if (_pendingCode != normalised) return KioskFailure("unknown_code");
  return pairPoll(normalised);
}

Json KioskDaemon::pairPoll(const std::string& code) {
  const KioskHttpResult answer = KioskHttp(authBaseUrl(), "GET", kPollPath + code, Json(), "");
  if (!answer.reached) return KioskFailure("unreachable");
  if (answer.status == kAccepted) return {{"ok", true}, {"paired", false}};
  if (answer.status == kNotFound || answer.status == kGone) {
    _pendingCode.reset();
    return KioskFailure("expired");
  }
  if (answer.status == kConflict) {
    _pendingCode.reset();
    return KioskFailure("claimed");
  }
  const Json& token = KioskMember(answer.body, "deviceToken");
  if (!answer.success() || !token.is_string() || token == "") return KioskFailure("pairing_failed");
  return enrol(token.get<std::string>());
}

Json KioskDaemon::enrol(const std::string& token) {
  _pendingCode.reset();
  _restartOnProvision = true;
  _state["token"] = token;
  _state["provisioned"] = false;
  _state.erase("lastError");
  save();
  KioskLog("enrolled by the portal");
  if (checkIn() == KioskCheckInOutcome::kStop) return KioskFailure("revoked");
  _interval = kCheckInAfterPairing;
  scheduleCheckInAfter(_interval);
  return pairResult();
}

Json KioskDaemon::pairResult() const {
  if (flag("provisioned")) return {{"ok", true}, {"paired", true}, {"provisioned", true}};
  if (const std::optional<std::string> error = string("lastError")) return KioskFailure(*error);
  return {{"ok", true}, {"paired", true}, {"provisioned", false}};
}

Json KioskDaemon::pairCheck(const Json& code) {
  Json reply = pairCheckOnce(code);
  if (KioskMember(reply, "provisioned") != true) return reply;
  if (_restartOnProvision) {
    _restartOnProvision = false;
    scheduleRestart();
  }
  if (_restartAtNs != 0) {
    reply["restarting"] = true;
    reply["restartInSeconds"] = SecondsUntil(_restartAtNs);
  }
  return reply;
}

void KioskDaemon::scheduleRestart() {
  const std::uint64_t delayNs = kRestartDelaySeconds * platform::kNanosecondsPerSecond;
  _restartAtNs = platform::ClockMonotonicNs() + delayNs;
  KioskLog("enrolled: restarting into kiosk mode in %llu s", kRestartDelaySeconds);
  _queue.after(delayNs, [weak = weak_from_this()] {
    const auto daemon = weak.lock();
    if (!daemon || daemon->_restartAtNs == 0) return;
    if (platform::ClockMonotonicNs() >= daemon->_restartAtNs) daemon->restartNow("enrolled");
  });
}

Json KioskDaemon::restartNowRequest(std::uint32_t peerUid) {
  uid_t uid = 0;
  if (ownAccount(&uid) && uid == peerUid) return KioskFailure("not_permitted");
  if (_restartAtNs == 0) return KioskFailure("not_pending");
  // Later, so that the reply goes out first.
  _queue.async([weak = weak_from_this()] {
    if (const auto daemon = weak.lock()) daemon->restartNow("Restart now");
  });
  return KioskSuccess();
}

void KioskDaemon::restartNow(const std::string& reason) {
  if (_restartAtNs == 0) return;
  _restartAtNs = 0;  // first, so that the restart is attempted once
  KioskLog("restarting into kiosk mode (%@)", reason);
  KioskRestart();
}
