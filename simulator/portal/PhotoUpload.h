// What an administrator's upload says about its photo.
#pragma once

#include <optional>

#include "simulator/portal/Http.h"

namespace portal {

/// The record of an uploaded photo.
/// @param upload a request whose body is the photo. Its content type, if it is one of pictures, and
///        "width", "height" and "credit" of its query count; what it leaves out is read from the
///        photo's own header.
/// @param refusal receives the answer when there is no record: 400 for a query of another shape or
///        no photo, 415 when kind or size are neither told nor to be read, 500
/// @return {"sha256", "contentType", "width", "height", "credit"}
std::optional<Json> DescribePhoto(const HttpRequest& upload, HttpResponse& refusal);

}  // namespace portal
