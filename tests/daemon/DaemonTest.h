// The world of a daemon test: a simulated Mac that the test's process has entered, a portal that
// answers as told, virtual time, and a KioskDaemon.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "core/KioskDaemon.h"
#include "tests/support/Child.h"
#include "tests/support/MacFolder.h"
#include "tests/support/MacPaths.h"
#include "tests/support/ScriptedPortal.h"
#include "tests/support/virtual/VirtualTime.h"

inline constexpr char kApplication[] = "/Applications/Brindlex.app/Contents/MacOS/Brindlex";
inline constexpr char kCheckInCall[] = "POST /api/kiosk/check-in";
inline constexpr char kPairCall[] = "POST /api/kiosk/pair";

class DaemonTest : public testing::Test {
 protected:
  DaemonTest();
  ~DaemonTest() override;

  /// Starts a daemon on a state file of these keys and the portal's URL; one that ran before goes.
  void startDaemon(const Json& state = Json::object());
  /// Starts a daemon anew on the state file as it is.
  void restartDaemon();

  /// A daemon that has a token, whose first check-in the portal has answered and that is
  /// provisioned.
  void startProvisioned();

  /// A daemon that has a token and that nothing remains to be done for: of itself, a check-in that
  /// the portal answers with "enrolled" changes nothing. `state` adds keys. Nothing has run yet.
  void startSettled(const Json& state = Json::object());

  /// One check-in, without the timer.
  KioskCheckInOutcome checkIn();

  /// A reply to a command from this user's session.
  Json send(const Json& request, std::uint32_t uid = 0, std::int32_t session = 100);
  /// The reply to "status".
  Json status(std::uint32_t uid = 0) { return send({{"cmd", "status"}}, uid); }

  /// What the portal answers a check-in with from now on: "enrolled" and these keys.
  void answerEnrolled(const Json& keys = Json::object());

  /// Fires the check-in timer by letting the time until then pass.
  void runNextCheckIn();

  /// The user id of the kiosk account in the Mac's directory.
  std::uint32_t kioskUid() const;
  /// The kiosk account's record, null when there is none.
  bool kioskAccountExists() const;
  /// The value of autoLoginUser, or an empty text.
  std::string autoLoginUser() const;

  /// Opens a graphical session for the user, as the login window does, and waits until it is up.
  void openSession(std::uint32_t uid);
  bool sessionIsOpen(std::uint32_t uid) const;

  ScriptedPortal portal;
  MacFolder mac;
  std::shared_ptr<KioskDaemon> daemon;

 private:
  std::unique_ptr<Child> _session;
};
