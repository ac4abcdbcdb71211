// FileVault, as the fdesetup tool and the login window see it.
#pragma once

#include <string>

#include "platform/simulated/MacFiles.h"

namespace simmac {

/// What `fdesetup status` prints, without the line end; a Mac that does not say has it off.
std::string FileVaultStatus(const platform::MacTree& mac);

/// Whether the disk is unlocked by hand at every boot, or will be: then nobody signs in
/// automatically.
bool FileVaultIsOn(const platform::MacTree& mac);

}  // namespace simmac
