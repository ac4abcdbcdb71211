// The branding's projection once more, in the plainest form.
#pragma once

#include <optional>

#include "platform/Json.h"

/// The projection of a branding and a tenant that are any values.
std::optional<Json> ProjectionByTheTable(const Json& branding, const Json& tenantId);
