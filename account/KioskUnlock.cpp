// The unlock of the terminal's settings: a token that one session holds for ten minutes.
#include <array>

#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "platform/Clock.h"
#include "platform/Crypto.h"

namespace {

constexpr std::size_t kTokenBytes = 16;
constexpr std::uint64_t kUnlockSeconds = 600;

}  // namespace

Json KioskDaemon::unlock(const Json& password, KioskPeer peer) {
  uid_t uid = 0;
  if (!ownAccount(&uid) || uid != peer.uid) return KioskFailure("not_permitted");
  if (const KioskError error = checkMaintenancePassword(password)) return KioskFailure(*error);
  std::array<unsigned char, kTokenBytes> bytes{};
  if (!platform::CryptoRandomBytes(bytes.data(), bytes.size())) return KioskFailure("failed");
  _unlockToken = KioskHexadecimal(bytes);
  _unlockPeer = peer;
  _unlockExpiresNs =
      platform::ClockMonotonicNs() + kUnlockSeconds * platform::kNanosecondsPerSecond;
  KioskLog("terminal settings unlocked for %llu s (uid %u, session %d)", kUnlockSeconds, peer.uid,
           peer.asid);
  return {{"ok", true}, {"unlockToken", *_unlockToken}, {"expiresInSeconds", kUnlockSeconds}};
}

bool KioskDaemon::unlocked(const Json& token, KioskPeer peer) {
  if (!_unlockToken) return false;
  if (platform::ClockMonotonicNs() >= _unlockExpiresNs) {
    _unlockToken.reset();
    KioskLog("terminal settings unlock expired");
    return false;
  }
  return token.is_string() && peer == _unlockPeer &&
         platform::CryptoEqual(token.get_ref<const std::string&>(), *_unlockToken);
}

bool KioskDaemon::mayChangeSettings(const Json& request, KioskPeer peer) {
  return unlocked(KioskMember(request, "unlockToken"), peer);
}
