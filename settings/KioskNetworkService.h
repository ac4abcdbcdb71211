// What the commands that change network preferences have in common.
#pragma once

#include <optional>

#include "platform/NetworkPreferences.h"

/// The protocol of a type of a service, which gets one if it has none. Nothing on failure.
std::optional<platform::NetworkProtocol> KioskNetworkProtocol(
    const platform::NetworkService& service, const char* type);
