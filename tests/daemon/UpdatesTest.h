// The world of tests of OS updates: a terminal in the zone UTC, whose software update tool answers
// as told. An operation of the driver begins when it is asked for and goes on at finish().
#pragma once

#include <string>
#include <vector>

#include "tests/daemon/SettingsTest.h"

inline constexpr char kSoftwareUpdate[] = "/usr/sbin/softwareupdate";
inline constexpr char kShutdown[] = "/sbin/shutdown";

/// What the tool lists: nothing, an update that needs no restart, one that does, and both.
inline constexpr char kNoUpdates[] = "Software Update Tool\n\nFinding available software\n";
inline constexpr char kPlainUpdate[] =
    "Software Update found the following new or updated software:\n"
    "* Label: Safari17.5-17.5\n"
    "\tTitle: Safari, Version: 17.5, Size: 1200KiB, Recommended: YES, \n";
inline constexpr char kRestartUpdate[] =
    "Software Update found the following new or updated software:\n"
    "* Label: macOS Sonoma 14.7-23H124\n"
    "\tTitle: macOS Sonoma 14.7, Version: 14.7, Size: 1520555KiB, Recommended: YES, "
    "Action: restart, \n";
inline constexpr char kTwoUpdates[] =
    "* Label: Safari17.5-17.5\n"
    "\tTitle: Safari, Version: 17.5, Size: 1200KiB, Recommended: YES, \n"
    "* Label: macOS Sonoma 14.7-23H124\n"
    "\tTitle: macOS Sonoma 14.7, Version: 14.7, Size: 1520555KiB, Recommended: YES, "
    "Action: restart, \n";

class UpdatesTest : public SettingsTest {
 protected:
  using Runs = std::vector<ToolRun>;
  using Log = std::vector<LogLine>;

  static constexpr std::uint64_t kSecond = virtual_time::kSecondNs;

  UpdatesTest();

  /// A policy with a window on all days.
  static Json policyOf(bool automatic = true, const std::string& start = "02:00",
                       const std::string& end = "05:00");

  /// A check-in that brings this policy; the journal and log of before go.
  void receive(const Json& policy);

  /// Starts a daemon on the present state with these changes. Its first check-in is still to come.
  void restartWith(const Json& changes);

  /// Sets the Mac's wall clock, "2026-09-22T02:00:00Z".
  static void setClock(const std::string& time);

  /// What the tool says from now on when it lists, and when it installs.
  void offer(const std::string& list, int status = 0) const;
  void installSays(const std::string& output, int status = 0) const;

  /// A pass of the policy, as after a check-in.
  void pass() { daemon->enforceUpdates(); }
  /// Lets the driver and what waits for it go on.
  static void finish() { virtual_time::RunReady(); }
  void passAndFinish();

  /// A report of the kiosk account's session while the driver stands still.
  Json report(const Json& live, const Json& signedIn);

  /// How often updates were listed, and installed.
  std::size_t lists() const { return mac.countRuns(kSoftwareUpdate, {"-l"}); }
  std::size_t installs() const { return mac.countRuns(kSoftwareUpdate, {"-i"}); }
  Runs restarts() const { return mac.runs(kShutdown); }
  std::size_t deferrals() const;
  Json lastRun() const { return mac.state()["osUpdates"]; }

  static ToolRun list(int status = 0) { return {kSoftwareUpdate, {"-l"}, status}; }
  static ToolRun install(int status = 0) {
    return {kSoftwareUpdate, {"-i", "-a", "--agree-to-license"}, status};
  }
};
