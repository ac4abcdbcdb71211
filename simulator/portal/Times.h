// Instants of the portal: whole seconds since 1970.
#pragma once

#include <cstdint>
#include <string>

namespace portal {

/// How long a pairing code can be used, in seconds; a claimed one as long again.
inline constexpr std::int64_t kCodeLifetime = 900;

/// The wall clock, in seconds since 1970.
std::int64_t Now();

/// An instant as "2026-01-31T08:00:00Z".
/// @param seconds since 1970
std::string IsoTime(std::int64_t seconds);

}  // namespace portal
