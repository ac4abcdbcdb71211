// launchctl kickstart.
#pragma once

#include "simulator/mac/tools/Tool.h"

namespace simmac {

/// Does what `launchctl kickstart [-k] system/LABEL` does, for the system's own services that this
/// Mac pretends to have. The exit status.
int KickStart(const ToolCall& call);

}  // namespace simmac
