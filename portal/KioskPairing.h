// Pairing codes.
#pragma once

#include <string>
#include <string_view>

#include "platform/Json.h"

/// Whether `text` is a pairing code, as a whole: "^[A-HJ-NP-Z2-9]{8}$". Any thread.
bool KioskIsPairingCode(std::string_view text);

/// The code that a person typed, in the form of a pairing code: without blanks at the ends, in
/// upper case; empty when `code` is not a string. Any thread.
std::string KioskNormalisedCode(const Json& code);
