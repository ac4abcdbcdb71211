#include "simulator/client/InstallOutcome.h"

#include <algorithm>

namespace client {
namespace {

constexpr double kAllDone = 100;

bool HasUpdates(const Json& reply) {
  const auto updates = reply.find("updates");
  return updates != reply.end() && updates->is_array() && !updates->empty();
}

}  // namespace

int InstallPercent(const Json& reply) {
  return static_cast<int>(std::min(ReplyNumber(reply, "progress").value_or(0), kAllDone));
}

InstallOutcome::InstallOutcome(const Json& before)
    : _checkedBefore(ReplyString(before, "lastChecked")),
      _restartBefore(ReplyFlag(before, "restartRequired")) {}

/// An install looks for updates first. What it then lists it goes on to install; a list from before
/// proves nothing.
void InstallOutcome::note(const Json& reply) {
  const bool listed = HasUpdates(reply) && ReplyString(reply, "lastChecked") != _checkedBefore;
  if (listed || InstallPercent(reply) > 0) _installs = true;
}

std::string InstallOutcome::text(const Json& last) const {
  const bool restart = ReplyFlag(last, "restartRequired");
  if (_installs || (restart && !_restartBefore)) {
    return std::string("The updates are installed. ") +
           (restart ? "A restart is required." : "No restart is required.");
  }
  const std::string pending =
      HasUpdates(last) ? "The install has ended." : "No updates are pending.";
  return restart ? pending + " A restart is required." : pending;
}

}  // namespace client
