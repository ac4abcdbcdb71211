// What a check-in's answer does to the state, once more and in the plainest form.
#pragma once

#include "platform/Json.h"

/// The state after an answer of status 200 with this body: the former one when it is not that of an
/// enrolled terminal. Of the keys that a check-in stores; what comes of enforcing is not in it.
Json StateByTheRules(const Json& former, const Json& answer);
