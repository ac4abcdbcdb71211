// What every implementation of the network preferences stores for a configuration.
#pragma once

#include <optional>

#include "platform/NetworkPreferences.h"

namespace platform {

/// The configuration as it is stored: empty for nothing, and 1 or 0 for a boolean under a key that
/// the system takes a number for. What is not an object stays as it is. Any thread.
inline Json NetworkConfigurationToStore(const std::optional<Json>& configuration) {
  Json stored = configuration.value_or(Json::object());
  for (const char* key : {kProxiesHttpEnable, kProxiesHttpsEnable, kProxiesAutoConfigEnable,
                          kProxiesExcludeSimpleHostnames}) {
    const auto flag = stored.find(key);
    if (flag != stored.end() && flag->is_boolean()) *flag = flag->get<bool>() ? 1 : 0;
  }
  return stored;
}

}  // namespace platform
