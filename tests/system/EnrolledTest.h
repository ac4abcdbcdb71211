// The world of a system test in which the terminal is enrolled already, under the name "Lobby".
#pragma once

#include <string>

#include "tests/system/SystemTest.h"

inline constexpr char kKioskUser[] = "BrindlexKiosk";

/// No command restarts the Mac until restartMac.
class EnrolledTest : public SystemTest {
 protected:
  EnrolledTest();

  /// A command's reply to a user of the Mac, in this process's session; empty when none comes.
  Json askAs(const std::string& user, const Json& request) const;
  /// Unlocks the settings for the kiosk user; the token. The daemon checks in at the portal before
  /// it answers.
  std::string unlock() const;
  /// Has the daemon check in; what came of it stands when this returns.
  void checkIn() const { static_cast<void>(unlock()); }

  /// Switches the Mac off and on: the kiosk's session opens, and commands restart the Mac again.
  /// The journal begins anew.
  void restartMac();
  int bootCount() const;
  /// Kills the daemon and waits until the next one answers.
  void replaceDaemon() const;

  /// Switches everything off; all that was said to the portal must be as its interface has it.
  void endsByThePortalsInterface();
};
