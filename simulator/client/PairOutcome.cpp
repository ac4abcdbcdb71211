#include "simulator/client/PairOutcome.h"

#include <algorithm>
#include <cmath>

#include "simulator/client/Limits.h"

namespace client {

Json PairCheckRequest(const std::string& code) { return {{"cmd", "pair.check"}, {"code", code}}; }

int PairRestartSeconds(const Json& reply) {
  if (!ReplyFlag(reply, "restarting")) return 0;
  const double seconds = ReplyNumber(reply, "restartInSeconds").value_or(0);
  return static_cast<int>(std::ceil(std::min(seconds, kMaximumRestartSeconds)));
}

std::string PairRestartText(int seconds) {
  if (seconds == 0) return "The Mac restarts now.";
  return "The Mac restarts in " + std::to_string(seconds) +
         (seconds == 1 ? " second." : " seconds.");
}

std::string PairOutcomeText(const Json& reply) {
  if (!ReplyFlag(reply, "paired")) return "The code was not claimed yet.";
  if (!ReplyFlag(reply, "provisioned")) {
    return "The terminal is paired; its kiosk account is not set up.";
  }
  return "The terminal is paired and set up.";
}

}  // namespace client
