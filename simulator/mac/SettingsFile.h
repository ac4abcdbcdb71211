// Settings that a real Mac keeps in places of its own: JSON files below /private/var/simulated,
// which anybody may edit to put a Mac into a state.
#pragma once

#include <functional>
#include <string>

#include "platform/Json.h"
#include "platform/simulated/MacFiles.h"

namespace simmac {

inline constexpr char kPowerSettings[] = "/private/var/simulated/power.json";
inline constexpr char kTimeSettings[] = "/private/var/simulated/time.json";
inline constexpr char kUpdateCatalogue[] = "/private/var/simulated/updates.json";

/// The settings in a file of the Mac; an empty object when it is not there or holds no object.
Json ReadSettings(const platform::MacTree& mac, const std::string& path);

/// Changes the settings in a file while no other program does; a file of which nothing changes is
/// left as it is. False when it cannot be written, as by others than root.
[[nodiscard]] bool ChangeSettings(const platform::MacTree& mac, const std::string& path,
                                  const std::function<void(Json&)>& change);

}  // namespace simmac
