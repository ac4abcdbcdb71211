// What "os.updates" says, in words.
#pragma once

#include <string>

#include "simulator/client/Reply.h"

namespace client {

/// One sentence about the error of a failed check or install: a code, or what the update tool said
/// last. Any thread.
std::string UpdatesProblem(const std::string& error);

/// The pending updates, and below them how checks, installs and the policy stand. Any thread.
std::string UpdatesTable(const Json& reply);

}  // namespace client
