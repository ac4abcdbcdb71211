// The JSON value type that the whole system shares.
#pragma once

#include <nlohmann/json.hpp>

/// A JSON value (RFC 8259). Objects keep their keys in byte order, so equality ignores the order in
/// which keys arrived and written text has sorted keys.
using Json = nlohmann::json;
