// What "net.set" takes, once more, in the plainest form.
#pragma once

#include <optional>

#include "platform/Json.h"

/// The network configuration that the request `given` amounts to.
std::optional<Json> NetworkByTheTable(const Json& given);
