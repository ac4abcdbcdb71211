// The shapes of the bodies that cross the portal's interfaces, as docs/portal-api.yaml has them.
#pragma once

#include <cstddef>
#include <string>

#include "platform/Json.h"

namespace portal {

/// A check of one JSON value.
using Shape = bool (*)(const Json&);

/// The characters of a text (UTF-8), which is what limits count, as JSON Schema does, not bytes.
std::size_t Characters(const std::string& text);

/// {"hostname", "platform", "osVersion", "appVersion"}: what a terminal tells when it asks for a
/// pairing code.
bool IsPairRequest(const Json& value);

/// {"appVersion", "powerLocal", "powerError", "osUpdates"}: what a terminal reports.
bool IsCheckInRequest(const Json& value);

/// The answer to a check-in, as the portal's description promises it.
bool IsCheckInAnswer(const Json& value);

/// A terminal's name: one character at least.
bool IsName(const Json& value);

/// Sign-in options: {"microsoft", "email", "extraHosts"}.
bool IsSignIn(const Json& value);

/// The password that leaves kiosk mode.
bool IsExitPassword(const Json& value);

/// A power policy that terminals accept: the schedule and each of its keys may be absent or null,
/// an enabled schedule has a day and two different times (counting those that it leaves out), and
/// whatever other keys there are do not matter.
bool IsPowerPolicy(const Json& value);

/// An update policy that terminals accept: each key may be absent or null, but a window has "start"
/// and "end", its days are not empty, and whatever other keys there are do not matter.
bool IsUpdatesPolicy(const Json& value);

/// Where a policy comes from: "device", "tenant" or "default".
bool IsSource(const Json& value);

/// A local time of day, "HH:MM".
bool IsClock(const Json& value);

/// A branding's texts as an administrator sets them: {"displayName", "signInSubtitle"?}.
bool IsBrandingChange(const Json& value);

/// A branding as terminals are sent it: {"displayName", "signInSubtitle", "photos"}.
bool IsBranding(const Json& value);

/// A photo of a branding: {"sha256", "contentType", "width", "height", "credit"}.
bool IsPhoto(const Json& value);

/// A SHA-256 as 64 lower-case hexadecimal digits.
bool IsDigest(const Json& value);

/// A content type of pictures, such as "image/jpeg", in lower case.
bool IsContentType(const Json& value);

/// A tenant's id: one character at least.
bool IsTenantId(const Json& value);

/// What the portal may be told to do wrong; see `Misbehaviour`.
bool IsMisbehaviour(const Json& value);

/// True for an integer of that range, not for 3.0 and not for a boolean.
bool IsIntegerWithin(const Json& value, int least, int most);

}  // namespace portal
