// The daemon's one central object.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "core/KioskError.h"
#include "platform/Json.h"
#include "platform/Queue.h"
#include "updates/KioskOsUpdates.h"

/// The identity of a request's sender.
struct KioskPeer {
  std::uint32_t uid = 0;  ///< effective user id
  std::int32_t asid = 0;  ///< audit session id

  bool operator==(const KioskPeer&) const = default;
};

/// How a check-in ended.
enum class KioskCheckInOutcome {
  kEnrolled = 0,     ///< the portal answered and the device is enrolled
  kStop = 1,         ///< no token, or the device was torn down
  kUnreachable = 2,  ///< not reached, or an answer that is not understood
};

/// Holds all state and implements the command handlers, the check-in and provisioning. Always owned
/// by a shared pointer: timers and delayed work hold it weakly. Every method runs on the work queue
/// unless it says otherwise; failures are values.
class KioskDaemon : public std::enable_shared_from_this<KioskDaemon> {
 public:
  KioskDaemon();

  /// The work queue. Any thread.
  const platform::Queue& queue() const { return _queue; }

  /// The status snapshot last published, or nothing before the first. Any thread.
  std::shared_ptr<const Json> published() const;

  // --- core: start-up and the check-in timer -----------------------------------------------------

  /// Brings a fresh daemon to its running state: state directory and file, the account reconciled,
  /// maintenance over, status published, the first check-in armed when enrolled.
  void start();

  /// (Re)arms the one check-in timer to fire once, `seconds` from now.
  void scheduleCheckInAfter(double seconds);

  /// Checks in, serves the update window and arms the next check-in, unless the device is not or no
  /// longer enrolled.
  void timerFired();

  // --- core: dispatch ----------------------------------------------------------------------------

  /// Hands a request to the handler of its "cmd" and returns that handler's reply.
  Json handle(const Json& request, KioskPeer peer);

  /// The published snapshot as the peer with effective user id `peerUid` may see it. Any thread.
  Json status(std::uint32_t peerUid) const;

  /// The text of that reply, which was made when the snapshot was published. Any thread.
  std::string statusText(std::uint32_t peerUid) const;

  // --- portal: check-in --------------------------------------------------------------------------

  /// Reports to the portal and applies its answer. Blocks for the exchange.
  KioskCheckInOutcome checkIn();

  /// The stored policy under `key` ("power", "powerLocal", "updates") as its parser normalises it;
  /// nothing when it is absent or invalid.
  std::optional<Json> policy(const char* key) const;

  // --- portal: pairing and restart ---------------------------------------------------------------

  /// "pair.begin": registers the Mac and returns the code to show.
  Json pairBegin();

  /// "pair.check": asks whether the code (any JSON value) was claimed, enrols when it was, and
  /// schedules the restart the first time the device is found provisioned.
  Json pairCheck(const Json& code);

  /// "restart.now": restarts at once when a restart is pending. The kiosk account may not ask.
  Json restartNowRequest(std::uint32_t peerUid);

  // --- account: provisioning ---------------------------------------------------------------------

  /// The reason why this Mac cannot become a kiosk, or nothing.
  KioskError preflight() const;

  /// Makes the Mac a kiosk, or says why not, and records the outcome in the state file.
  void provision();

  // --- account: teardown -------------------------------------------------------------------------

  /// Whether the live kiosk account is the one this daemon created. `uid`, if given, is filled
  /// whenever an account of that name exists.
  bool ownAccount(uid_t* uid = nullptr) const;

  /// Forgets an account that this daemon created and that is gone.
  void reconcileAccount();

  /// Keeps the daemon's own account out of the administrator groups.
  void enforce();

  /// Removes the kiosk configuration and the enrolment; `reason` is for the log.
  void teardown(const std::string& reason);

  // --- account: maintenance and unlock -----------------------------------------------------------

  /// "maintenance": suspends the kiosk until the next start, for an unlocked session or for whoever
  /// knows the maintenance password.
  Json maintenance(const Json& request, KioskPeer peer);

  /// "unlock": lets the kiosk account's session change settings for ten minutes. `password` is what
  /// was entered, any JSON value.
  Json unlock(const Json& password, KioskPeer peer);

  /// Whether `token`, any JSON value, is the unlock that this peer holds.
  bool unlocked(const Json& token, KioskPeer peer);

  // --- settings ----------------------------------------------------------------------------------

  /// Brings the power settings into line with the effective policy; unchanged ones at most every
  /// ten minutes, unless `force`. An error code or nothing.
  KioskError applyPower(bool force);

  /// "power.get": the policies in force.
  Json powerPayload() const;

  /// "power.set": overrides the organisation's power policy at the terminal, or follows it again.
  Json powerSet(const Json& request, KioskPeer peer);

  /// "net.set": one adapter's IPv4 configuration and name servers.
  Json netSet(const Json& request, KioskPeer peer);

  /// "proxy.set": the proxies of every enabled network service.
  Json proxySet(const Json& request, KioskPeer peer);

  /// "time.zone": the time zone.
  Json timeZone(const Json& request, KioskPeer peer);

  /// "time.sync": sets the clock by a time server, now.
  Json timeSync(const Json& request, KioskPeer peer);

  /// "time.get": when the clock was last set so.
  Json timeGet(const Json& request, KioskPeer peer);

  // --- OS updates --------------------------------------------------------------------------------

  /// Installs the pending OS updates when the policy wants that now: its window is open and had no
  /// run yet, and nobody uses the terminal. Tries at most every fifteen minutes.
  void enforceUpdates();

  /// "session.report": whether a stream is live and someone signed in. For the kiosk account only.
  Json sessionReport(const Json& request, KioskPeer peer);

  /// "os.updates": the pending updates and how a check or install goes; looks for them anew when
  /// asked to, without waiting for what is found.
  Json osUpdates(const Json& request, KioskPeer peer);

  /// "os.install": installs the pending updates now.
  Json osInstall(const Json& request, KioskPeer peer);

 private:
  // core: state
  std::optional<std::string> string(const char* key) const;
  bool flag(const char* key) const;
  std::string authBaseUrl() const;
  std::string appVersion() const;
  void ensureStateDir() const;
  void load();
  void save();
  void publish();
  void endMaintenance();

  // portal
  Json checkInBody() const;
  KioskCheckInOutcome tokenUnknown();
  void enrolled(const Json& answer, const std::string& token);
  void syncSignIn(const Json& answer);
  void syncTerminalName(const Json& answer);
  void syncPolicies(const Json& answer);
  bool syncPolicy(const Json& answer, const char* key, const char* sourceKey);
  void syncExitPassword(const Json& answer);
  void syncBranding(const Json& answer, const std::string& token);
  std::optional<std::string> fetchPhoto(const std::string& digest, const std::string& token);
  Json pairCheckOnce(const Json& code);
  Json pairPoll(const std::string& code);
  Json enrol(const std::string& token);
  Json pairResult() const;
  void scheduleRestart();
  void restartNow(const std::string& reason);

  // account
  KioskError provisionOnce();
  KioskError createAccount(uid_t& uid, gid_t& gid);
  KioskError renewPassword();
  void wipeKeepingAccount(bool keepAccount);
  bool maintenanceLocked();
  KioskError checkMaintenancePassword(const Json& entered);
  void maintenancePasswordWrong(std::int64_t failures);
  void enterMaintenance();
  bool mayChangeSettings(const Json& request, KioskPeer peer);

  // settings
  std::optional<Json> effectivePower() const;
  void snapshotPower();
  KioskError overridePower(const Json& policy);

  // OS updates
  bool userBusy() const;
  void deferUpdates();
  void installInWindow(const std::string& window);
  void finishWindowRun(const Json& result, const std::string& window);
  void recordUpdateRun(const Json& result);
  // What the driver shall call when it is done: has `work` done on the work queue with the result,
  // if there still is a daemon then.
  KioskOsUpdates::Completion onWorkQueue(std::function<void(KioskDaemon&, const Json&)> work);

  Json _state = Json::object();             // the state dictionary
  std::optional<platform::Timer> _timer;    // the check-in timer, made on first use
  double _interval = 30.0;                  // seconds until the next check-in
  std::optional<std::string> _pendingCode;  // the pairing code being waited for, in upper case
  std::uint64_t _restartAtNs = 0;           // monotonic time of the pending restart; 0 for none
  bool _restartOnProvision = false;         // restart once provisioning succeeds
  std::set<std::string> _brandingFailed;    // digests of photos that could not be fetched
  std::optional<std::string> _unlockToken;  // what unlocks the settings, while they are
  KioskPeer _unlockPeer;                    // who holds it
  std::uint64_t _unlockExpiresNs = 0;       // monotonic time at which it ends
  std::shared_ptr<KioskOsUpdates> _os = std::make_shared<KioskOsUpdates>();
  bool _userLive = false;             // the last session report: a stream is live,
  bool _userSignedIn = false;         // someone is signed in,
  std::uint64_t _userReportNs = 0;    // and its monotonic time; 0 for none
  std::uint64_t _updatesRetryNs = 0;  // monotonic time of the next attempt; 0 for any
  std::uint64_t _powerAppliedNs = 0;  // monotonic time of the last apply; 0 for none
  platform::Queue _queue;

  // What was last published: the snapshot, and the text of "status" for the kiosk account's session
  // and for everybody else.
  struct Published {
    Json snapshot;
    std::string ownText;
    std::string othersText;
  };
  std::shared_ptr<const Published> lastPublished() const;

  mutable std::mutex _publishedLock;
  std::shared_ptr<const Published> _published;  // replaced whole, never changed in place
};
