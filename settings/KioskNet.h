// One network adapter's IPv4 configuration and name servers. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/KioskError.h"
#include "platform/Json.h"

/// Whether `value` is an IPv4 address in strict dotted form: four decimal numbers up to 255 without
/// leading zeros. If so, `address` receives it, the first number in the highest byte.
bool KioskParseQuad(const Json& value, std::uint32_t& address);

/// An address in dotted form.
std::string KioskQuadString(std::uint32_t address);

/// What a "net.set" request amounts to: {"adapter", "dhcp", "dns"}, and for a static address "ip",
/// "prefix", "mask" and perhaps "gateway"; nothing when it is invalid.
std::optional<Json> KioskNetParse(const Json& request);

/// Writes a parsed request into the system's network preferences and applies them. Waits for other
/// editors. "unknown_adapter", "failed", or nothing on success.
KioskError KioskNetApply(const Json& network);
