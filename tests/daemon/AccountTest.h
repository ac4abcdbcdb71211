// The world of tests of the kiosk account's life: a daemon that is not enrolled, told directly what
// to do.
#pragma once

#include <string>
#include <vector>

#include "tests/daemon/DaemonTest.h"
#include "tests/daemon/MacTest.h"

inline constexpr char kAccount[] = "BrindlexKiosk";
inline constexpr char kSysadminctl[] = "/usr/sbin/sysadminctl";
inline constexpr char kDseditgroup[] = "/usr/sbin/dseditgroup";
inline constexpr char kCreatehomedir[] = "/usr/sbin/createhomedir";
inline constexpr char kDefaults[] = "/usr/bin/defaults";
inline constexpr char kFdesetup[] = "/usr/bin/fdesetup";
inline constexpr char kLaunchctl[] = "/bin/launchctl";
inline constexpr char kLoginWindowDomain[] = "/Library/Preferences/com.apple.loginwindow";

class AccountTest : public DaemonTest {
 protected:
  AccountTest();

  /// One provisioning run of the daemon.
  void provision();
  /// A provisioned daemon, with an empty journal and an empty log.
  void becomeProvisioned();
  /// Forgets what the journal and the log have so far.
  void clearRecords() const;

  /// The generated UID of the account in the Mac's directory, empty when there is none.
  std::string generatedUid() const;
  std::string passwordHash() const;
  /// Whether the Mac would let the account in with the password that the daemon has stored.
  bool storedPasswordFits() const;
  /// The password that the login window would use.
  std::string autoLoginPassword() const;

  std::vector<std::string> members(const std::string& group) const;
  void addToGroup(const std::string& group) const;
  /// Creates an account of the kiosk's name that the daemon knows nothing of.
  void createForeignAccount() const;

  // Runs of the tools that the daemon makes; the status is what the tool is expected to end with.
  static ToolRun fdesetup(int status = 0);
  static ToolRun readUser(int status);
  static ToolRun writeUser(int status = 0);
  static ToolRun deleteUser(int status = 0);
  static ToolRun addAccount(int status = 0);
  static ToolRun deleteAccount(int status = 0);
  static ToolRun checkMember(const std::string& group, int status = 67);
  static ToolRun removeMember(const std::string& group, int status = 0);
  static ToolRun createHome(int status = 0);
};
