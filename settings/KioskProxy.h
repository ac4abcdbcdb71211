// The proxies of the web: none, by a configuration file, or one server. Any thread.
#pragma once

#include <optional>
#include <string_view>

#include "core/KioskError.h"
#include "platform/Json.h"

/// Whether a member is missing, or null.
bool KioskAbsent(const Json& value);

/// Whether the text is a host name of lower-case labels, or a strict IPv4 address.
bool KioskHostname(std::string_view text);

/// What a "proxy.set" request amounts to: "mode" and, for "auto", "pacUrl"; for "manual", "host",
/// "port", "bypass" and "excludeSimple"; nothing when it is invalid.
std::optional<Json> KioskProxyParse(const Json& request);

/// Writes a parsed request into every enabled service of the system's network preferences, or into
/// none, and applies them. Waits for other editors. "failed", or nothing on success.
KioskError KioskProxyApply(const Json& proxy);
