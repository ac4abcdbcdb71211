// What every implementation of the session refuses to send.
#pragma once

#include "platform/UrlSession.h"

namespace platform {

/// Why a request cannot be sent as it is (a URL that is none, a method or a header that RFC 9110
/// does not allow, such as one with a line end in it), or null. Any thread.
const char* UrlRequestFlaw(const UrlRequest& request);

}  // namespace platform
