// What the daemon does to a Mac's files, each operation by itself: what is there before, what is
// there after, and what it says when it fails.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/daemon/AccountTest.h"
#include "tests/daemon/BrandingPhoto.h"
#include "tests/faults/PlausibleErrors.h"

inline constexpr char kBrandingCache[] = "/Library/Application Support/Brindlex/Kiosk/Branding";

struct Operation {
  /// In the test's process: puts the Mac into the state in which the operation finds it.
  std::function<void()> reset;
  /// In the watched process, before anything is looked at.
  std::function<void()> prepare = [] {};
  /// In the watched process: does it once; whether it worked, as far as the operation tells.
  std::function<bool()> attempt;
  bool tellsSuccess = true;
  /// That what is under final names is whole: as it was before, or as it shall be.
  std::function<void()> expectOldOrNew;
  /// That all is as it shall be.
  std::function<void()> expectDone;
  /// The same of an attempt that says it worked although something on the way did not: what it
  /// does without may be missing.
  std::function<void()> expectWorked = expectDone;
  /// Whether the operation may say this, and nothing else, when this call on the way fails so.
  std::function<bool(const std::vector<std::string>& errors, const Failure& failure,
                     const SystemCall& call)>
      maySay;
  /// The folders in which it writes.
  std::vector<std::string> folders;
};

/// A Mac with the kiosk's account, and a daemon that has a token and is not provisioned.
class OperationsTest : public AccountTest {
 protected:
  OperationsTest();

  /// The daemon saves its state.
  Operation stateSave();
  Operation launchAgent();
  Operation autoLogin();
  Operation homePreparation();
  /// Another branding comes than the one that is cached, with photos from the portal.
  Operation branding();
  Operation brandingWithdrawn();

  /// The state file of an enrolled terminal whose account is there and which is not provisioned.
  Json enrolledState() const;
  /// The Mac is an enrolled terminal's again, with nothing of a kiosk but the account.
  void resetMac();

  const BrandingPhoto oldPhoto = PhotoOf("old");
  const BrandingPhoto hills = PhotoOf(std::string(70'000, 'h'));
  const BrandingPhoto sea = PhotoOf(std::string("sea\0\xFF", 5));

 private:
  void expectFile(const std::string& path, const std::string& content,
                  const char* modeAndOwner) const;
  void expectOldOrNew(const std::string& path, const std::string& before,
                      const std::string& after) const;
  void resetBranding();
  void expectBranded() const;

  Json _account;  // what the state file says of the account
  uid_t _uid = 0;
};
