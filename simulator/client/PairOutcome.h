// The replies of "pair.check".
#pragma once

#include <string>

#include "simulator/client/Reply.h"

namespace client {

/// The request that asks whether a code was claimed. Any thread.
Json PairCheckRequest(const std::string& code);

/// What a successful reply means, in a sentence that leaves out the restart. Any thread.
std::string PairOutcomeText(const Json& reply);

/// In how many whole seconds the Mac restarts, 0 when it does not or at once. Any thread.
int PairRestartSeconds(const Json& reply);

/// A sentence about the restart: "The Mac restarts in 5 seconds." Any thread.
std::string PairRestartText(int seconds);

}  // namespace client
