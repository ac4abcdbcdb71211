// The life of a pairing code: pending, claimed by an administrator, collected by its terminal, or
// expired.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "simulator/portal/Store.h"

namespace portal {

/// A code's state now: "pending", "claimed", "collected" or "expired".
/// @param code the code's record
/// @param now seconds since 1970
std::string CodeStatus(const Json& code, std::int64_t now);

/// Adds a new code for a terminal; 200 with the code, 429 when all codes are in use.
HttpResponse IssueCode(State& state, const Json& device, std::int64_t now);

/// Answers the terminal that waits for its code to be claimed. The first poll after that hands out
/// the device token: 202, 200, 404, 409 or 410.
HttpResponse PollCode(State& state, const std::string& code, std::int64_t now);

/// Makes a terminal of the device that showed the code.
/// @param name the terminal's name; nothing names it after its host
/// @return the answer for the administrator: 200 with the terminal, 404, 409 or 410
HttpResponse ClaimCode(State& state, const std::string& code,
                       const std::optional<std::string>& name, std::int64_t now);

/// Ends a code's life early: 200 with the code, 404, or 409 when it was collected.
HttpResponse ExpireCode(State& state, const std::string& code, std::int64_t now);

/// The record of a code that the administrator sees.
Json CodeRecord(const std::string& code, const Json& record, std::int64_t now);

/// The record of a terminal that the administrator sees: without secrets, but it says whether there
/// is a password.
Json TerminalRecord(const std::string& id, const Json& terminal);

/// A terminal's name when the administrator gave none.
std::string DefaultName(const std::string& id, const Json& terminal);

/// The sign-in options when the administrator set none.
Json DefaultSignIn();

}  // namespace portal
