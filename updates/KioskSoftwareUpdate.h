// What the system's software update tool prints. Any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/Json.h"

/// The updates in the tool's list, in its order: an array of {"id": the label, "title",
/// "sizeBytes", "restartRequired"}. Lines of any other kind are passed over, so a text that is no
/// list gives an empty array. Sizes are binary however their unit is spelt; one beyond 64 bits
/// becomes the largest.
Json KioskSoftwareUpdateParse(std::string_view text);

/// The last percentage in the text; -1.0 when there is none or it is not within 0 to 100.
double KioskSoftwareUpdateProgress(std::string_view text);

/// The error code that a failed run's output amounts to: "authorization_required" when it asked for
/// a password, else its last line, cut to 200 UTF-16 code units, else "failed".
std::string KioskSoftwareUpdateError(std::string_view output);
