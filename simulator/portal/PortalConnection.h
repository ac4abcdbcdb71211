// The command line's way to a running portal.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "platform/Json.h"
#include "simulator/portal/Http.h"

namespace portal {

/// What the portal answered.
struct PortalAnswer {
  int status = 0;
  Json body;  ///< null when it was not JSON

  bool success() const { return status >= 200 && status < 300; }
};

/// Sends one request to the administrator's interface of the portal that serves `dir`.
/// @param dir the portal's folder
/// @param method "GET"
/// @param path the path, encoded
/// @param body the JSON body; null sends none
/// @return nothing when the portal was not reached
std::optional<PortalAnswer> AskPortal(const std::filesystem::path& dir, const std::string& method,
                                      const std::string& path, const Json& body = nullptr);

/// As above, with a body of any kind.
/// @param request the request but for its authorization
std::optional<PortalAnswer> AskPortal(const std::filesystem::path& dir, HttpRequest request);

}  // namespace portal
