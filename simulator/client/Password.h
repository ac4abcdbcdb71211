// Asking for the password.
#pragma once

#include <optional>
#include <string>

#include "simulator/client/Session.h"

namespace client {

/// One line of standard input without its line end. On a terminal it is asked for on standard error
/// and not echoed; a signal that ends or stops the program leaves the terminal as it was. Nothing,
/// and a sentence about it, when there is no line, when it is longer than kMaximumPasswordBytes, or
/// when the terminal goes on echoing. One thread.
std::optional<std::string> PasswordRead(const Session& session);

}  // namespace client
