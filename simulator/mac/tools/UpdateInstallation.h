// softwareupdate --install, once it is known what.
#pragma once

#include <vector>

#include "simulator/mac/UpdateCatalogue.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {

/// Downloads and installs updates one after the other and says so as it goes on. Ends with the
/// first that fails. The exit status.
int InstallUpdates(const ToolCall& call, const UpdateCatalogue& catalogue,
                   const std::vector<SoftwareUpdate>& updates);

}  // namespace simmac
