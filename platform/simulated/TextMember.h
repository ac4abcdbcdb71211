// Reading texts of the simulated Mac's JSON files.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

namespace platform {

/// The text under `key`; nothing when `object` is none, does not have it or has no text there. Any
/// thread.
inline std::optional<std::string> TextMember(const Json& object, const char* key) {
  if (!object.is_object()) return std::nullopt;
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

}  // namespace platform
