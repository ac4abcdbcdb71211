// How the kiosk session is used, as the kiosk application reports it.
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "platform/Clock.h"

namespace {

constexpr std::uint64_t kReportFreshNs = 150'000'000'000;

}  // namespace

// A silent application stops holding updates back after a while.
bool KioskDaemon::userBusy() const {
  if (_userReportNs == 0) return false;
  if (platform::ClockMonotonicNs() - _userReportNs > kReportFreshNs) return false;
  return _userLive || _userSignedIn;
}

Json KioskDaemon::sessionReport(const Json& request, KioskPeer peer) {
  uid_t uid = 0;
  if (!ownAccount(&uid) || uid != peer.uid) return KioskFailure("not_permitted");
  const bool live = KioskMember(request, "live") == true;
  const bool signedIn = KioskMember(request, "signedIn") == true;
  if (_userReportNs == 0 || live != _userLive || signedIn != _userSignedIn) {
    KioskLog("kiosk session: stream %@, %@", live ? "live" : "idle",
             signedIn ? "signed in" : "signed out");
  }
  _userLive = live;
  _userSignedIn = signedIn;
  _userReportNs = platform::ClockMonotonicNs();
  return KioskSuccess();
}
