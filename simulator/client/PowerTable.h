// How "kioskctl power" shows the daemon's power settings.
#pragma once

#include <string>

#include "simulator/client/Reply.h"

namespace client {

/// A table of the organisation's policy, the terminal's own and the one in force, then where the
/// organisation's comes from and the last problem. What is missing or of the wrong type is shown as
/// "-". Any thread.
std::string PowerTable(const Json& reply);

}  // namespace client
