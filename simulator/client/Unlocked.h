// Requests that need the settings to be unlocked.
#pragma once

#include <string>

#include "simulator/client/Session.h"

namespace client {

/// Sends a request with an unlock token and explains what came of it; a token that the daemon does
/// not take is forgotten.
Answer AskWithToken(Session& session, Json request, const std::string& token);

/// Sends a request with the token that is kept for this terminal session and explains what came of
/// it. Where none is kept it says so, sends nothing and answers kRefused with an empty reply.
Answer AskUnlocked(Session& session, Json request);

/// AskUnlocked() for requests whose reply holds nothing more: prints the sentence on success.
ExitStatus ChangeUnlocked(Session& session, Json request, const std::string& sentence);

}  // namespace client
