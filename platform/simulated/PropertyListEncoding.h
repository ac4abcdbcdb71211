// Writing property lists without the service around it.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"
#include "platform/PropertyList.h"

namespace platform {

/// PropertyListWrite without the service's faults, for the simulated Mac's own use.
std::optional<std::string> EncodePropertyList(const Json& value, PropertyListFormat format,
                                              std::string& error);

}  // namespace platform
