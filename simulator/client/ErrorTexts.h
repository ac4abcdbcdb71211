// The daemon's error codes in words.
#pragma once

#include <string>

#include "simulator/client/Reply.h"

namespace client {

/// One sentence about an error code with the code in brackets; a code that is not known is shown as
/// it is. Any thread.
std::string ErrorText(const std::string& code);

/// The same of the error code that a reply has under `key`; "none" without one. Any thread.
std::string ProblemText(const Json& reply, const char* key);

}  // namespace client
