// Pure functions behind the check-in. Any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/Json.h"

/// The sign-in options of a terminal that was given none.
Json KioskDefaultSignIn();

/// Whether `text` is a lower-case host name of at least two labels, as a whole:
/// "^(?=.{1,253}$)[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?(\.[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?)+$".
bool KioskIsHostName(std::string_view text);

/// The sign-in options that `signIn`, the portal's word, amounts to: the defaults when it is no
/// object. Extra hosts that are not kept are logged.
Json KioskSignInFrom(const Json& signIn);

/// The terminal name that `name`, the portal's word, amounts to: trimmed, cut to 80 UTF-16 code
/// units without splitting a composed character; empty for no name.
std::string KioskTerminalNameFrom(const Json& name);
