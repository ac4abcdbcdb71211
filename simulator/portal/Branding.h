// The branding of a terminal: what it shows on its sign-in screen, photos included.
#pragma once

#include <string>

#include "simulator/portal/Http.h"
#include "simulator/portal/PhotoFiles.h"
#include "simulator/portal/Store.h"

namespace portal {

/// The branding that a change makes of a terminal's: the texts are the change's, the photos stay.
/// @param terminal the terminal's record
/// @param change a value for which `IsBrandingChange` holds
Json Rebranded(const Json& terminal, const Json& change);

/// The photos in the terminal's branding, without what was stored there unchecked and is none.
Json ValidPhotos(const Json& terminal);

/// The photo of that digest in the terminal's branding, whatever was stored there unchecked.
/// @return null when the branding lists no such photo
const Json* FindPhoto(const Json& terminal, const std::string& digest);

/// Puts a photo at the end of the terminal's branding, or in the place of the one of its digest.
/// @param photo a value for which `IsPhoto` holds
/// @param credited whether its credit was told; one that was not does not replace an earlier one
/// @return the photo, with 201 or 200; 409 "no_branding" when there is none that could list it, 409
///         "too_many_photos" when it is full
HttpResponse AddPhoto(Json& terminal, Json photo, bool credited);

/// Takes a photo out of the terminal's branding.
/// @return 200 with an empty object, or 404
HttpResponse RemovePhoto(Json& terminal, const std::string& digest);

/// Removes the photos that no terminal's branding lists. To be called after a change is kept, not
/// before, so that a photo that the portal's file lists is never missed. Any thread.
void RemoveUnlistedPhotos(Store& store, const PhotoFiles& files);

}  // namespace portal
