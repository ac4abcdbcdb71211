// Requests that need the settings to be unlocked.
#pragma once

#include <string>

#include "simulator/client/Session.h"

namespace client {

/// Whether the daemon did not take the unlock token, or none is kept. Any thread.
bool IsNotUnlocked(const Answer& answer);

/// Sends a request with an unlock token and explains what came of it; a token that the daemon does
/// not take is forgotten.
Answer AskWithToken(Session& session, Json request, const std::string& token);

/// Sends a request with the token that is kept for this terminal session and explains what came of
/// it. Where none is kept it says so, sends nothing and answers kRefused with an empty reply.
Answer AskUnlocked(Session& session, Json request);

/// AskUnlocked() that explains nothing, for who asks again and again: where no token is kept it
/// answers as the daemon would, with the error "not_unlocked".
Answer ExchangeUnlocked(Session& session, Json request);

/// AskUnlocked() for requests whose reply holds nothing more: prints the sentence on success.
ExitStatus ChangeUnlocked(Session& session, Json request, const std::string& sentence);

}  // namespace client
