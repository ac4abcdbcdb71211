// A password, read where neither onlookers nor the list of processes see it.
#pragma once

#include <optional>
#include <string>

namespace portal {

/// Reads a password from standard input: its first line, or, on a terminal, what the user types
/// twice without echo.
/// @param problem receives one sentence when there is none
/// @return nothing when input ends or fails before a password, when it is too long, or when the
///         user gives up or types two different ones
std::optional<std::string> ReadPassword(std::string& problem);

}  // namespace portal
