// What the replies of "os.updates" tell about an install.
#pragma once

#include <optional>
#include <string>

#include "simulator/client/Reply.h"

namespace client {

/// How far an install is, in whole percent from 0 to 100; 0 while that is not known. Any thread.
int InstallPercent(const Json& reply);

/// Gathers from the replies whether anything was installed: the daemon does not say so, and at the
/// end its list is empty either way. One thread.
class InstallOutcome {
 public:
  /// `before` is a reply from before the install.
  explicit InstallOutcome(const Json& before);

  /// Takes a reply from during the install.
  void note(const Json& reply);

  /// Whether the replies have shown that there is something to install.
  bool installs() const { return _installs; }

  /// What came of an install that did not fail, as far as the replies have shown it; `last` is the
  /// reply after its end.
  std::string text(const Json& last) const;

 private:
  std::optional<std::string> _checkedBefore;
  bool _restartBefore;
  bool _installs = false;
};

}  // namespace client
