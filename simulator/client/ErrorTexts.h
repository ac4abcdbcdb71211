// The daemon's error codes in words.
#pragma once

#include <string>

namespace client {

/// One sentence about an error code with the code in brackets; a code that is not known is shown as
/// it is. Any thread.
std::string ErrorText(const std::string& code);

}  // namespace client
