// What an update leaves behind: it is no longer on offer, and the system may be another.
#pragma once

#include <optional>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/SystemVersion.h"
#include "simulator/mac/UpdateCatalogue.h"

namespace simmac {

/// Notes that an update is installed. macOS itself is another at once, or from the next boot on
/// when the update needs one. False when that cannot be written.
[[nodiscard]] bool NoteInstalled(const platform::MacTree& mac, const SoftwareUpdate& update);

/// What a boot does first: it makes the system the one that was installed for it. Nothing when
/// there is none, or when it cannot be written, which leaves it to the next boot.
std::optional<SystemVersion> FinishUpdates(const platform::MacTree& mac);

}  // namespace simmac
