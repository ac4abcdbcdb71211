// The branding of the sign-in screen: what the portal says of it, and the copy on disk that the
// kiosk application reads.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "platform/Json.h"

/// Where the copy is kept: "branding.json", and a file a photo that is named by its digest.
inline constexpr char kKioskBrandingDirectory[] =
    "/Library/Application Support/Brindlex/Kiosk/Branding";

/// Returns a photo's bytes, given its SHA-256 digest in lower-case hexadecimal, or nothing.
using KioskPhotoFetcher = std::function<std::optional<std::string>(const std::string& digest)>;

/// The branding in a check-in's answer, {"tenantId", "displayName", "signInSubtitle", "photos":
/// [{"sha256", "contentType", "width", "height", "credit"}]} with defaults for what is missing;
/// nothing unless it has a display name. Photos without a valid digest, and further ones with the
/// same, are left out. Any thread.
std::optional<Json> KioskBrandingProjection(const Json& branding, const Json& tenantId);

/// Brings the cache in the directory at the absolute path `dir` into line with the projection:
/// fetches the photos that are missing, keeps those whose bytes have their digest, rewrites
/// "branding.json" if it changed, and deletes everything else; without a projection clears it. All
/// of it belongs to `uid` and `gid`; a directory of somebody else is left alone. True when the
/// cache is complete now. Failures are logged; what was cached stays. As many photos are fetched as
/// the projection has, one after the other. Any thread.
bool KioskBrandingApply(const std::string& dir, const std::optional<Json>& projection,
                        const KioskPhotoFetcher& fetch, uid_t uid, gid_t gid);

/// Removes the cache, directory included. That there is none is no failure. Any thread.
void KioskBrandingClear(const std::string& dir);
