// Holds recorded traffic against an OpenAPI description.
#pragma once

#include <string>
#include <vector>

#include "platform/Json.h"

namespace openapi {

/// What a client may have done wrong without the record being wrong.
enum class Refusals {
  /// Every request must be one that the description allows: the check of a client.
  kForbidden,
  /// A request may be wrong if it was refused as the description says: the check of a server. An
  /// undescribed path must have been answered with 404, an undescribed method with 405, an invalid
  /// body with 4xx.
  kAllowed,
};

/// Holds one exchange against the description.
/// @param description from `ReadDescription`
/// @param exchange {"method", "path", "query"?, "requestHeaders", "requestBody", "status",
///        "responseHeaders", "responseBody", "misbehaviour"?}; with "misbehaviour" true only the
///        request is looked at
/// @return what is wrong, one line each
std::vector<std::string> CheckExchange(const Json& description, const Json& exchange,
                                       Refusals refusals);

/// Holds a file of exchanges, one JSON line each, against the description.
/// @return what is wrong, one line each, beginning with "FILE:LINE: "; a file without an exchange
///         is wrong
std::vector<std::string> CheckRecord(const Json& description, const std::string& path,
                                     Refusals refusals);

}  // namespace openapi
