// The system below the boundary as the contract tests see it: one implementation for the simulated
// Mac, one for the doubles of the Mac's native interfaces, one for a Mac.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"

namespace contract {

/// The service that the tests of the command channel serve.
inline constexpr char kService[] = "com.brindlex.stream.contract";

/// A message that the system log was given.
struct Logged {
  bool isError;
  std::string subsystem;
  std::string category;
  std::string text;

  bool operator==(const Logged&) const = default;
};

/// Polls until `condition` holds; false when it does not within a generous time.
bool Eventually(const std::function<bool()>& condition);

/// Writes a file, making its folders.
void WriteFile(const std::string& path, const std::string& contents);
std::string ReadFile(const std::string& path);

/// Base of the suites that need more of the system than its functions.
class World : public testing::Test {
 protected:
  World();
  ~World() override;

  /// A folder for the test's files.
  std::string folder() const;

  /// Whether the members below may be used: a real Mac is left as it is.
  static bool mayChange();

  void setTimeZone(const std::string& name);  ///< Europe/Berlin or Asia/Kolkata
  void setComputerName(const std::optional<std::string>& name);
  void addUser(const std::string& name, uid_t uid, const std::string& uuid);
  void removeUser(const std::string& name);
  bool hasPassword(const std::string& user, const std::string& password);
  void disableDefaultLogLevel();

  /// The network preferences, as their file has them.
  void setNetworkPreferences(const Json& preferences);
  Json networkPreferences();

  std::vector<Logged> logged();

  /// Has the service manager know kService for this process; false when it cannot be made to.
  bool registerService();
  /// Has this process, as a client of the service, signed with an identifier; false when its
  /// signature is another one.
  bool signClient(const std::string& identifier);
  /// The audit session of this process, where there is a way to know it.
  std::optional<std::int32_t> auditSession();

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

/// Base of the suites that change the system; skipped on a real Mac.
class ChangingWorld : public World {
 protected:
  void SetUp() override {
    if (!mayChange()) GTEST_SKIP() << "would change this Mac";
  }
};

}  // namespace contract
