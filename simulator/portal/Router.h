// Finds the operation that a request means.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/portal/Http.h"

namespace portal {

/// What stands in a request's path where its route's has "{}".
using PathArguments = std::vector<std::string>;

/// One operation of an interface.
struct Route {
  std::string method;
  /// The path; a segment "{}" stands for one non-empty segment, an argument of the handler.
  std::string path;
  std::function<HttpResponse(const HttpRequest&, const PathArguments&)> handler;
};

/// What stands in the place of the pattern's segments "{}".
/// @return nothing when the path does not match the pattern
std::optional<PathArguments> MatchPath(std::string_view pattern, std::string_view path);

/// Answers a request by its route; 404 for an unknown path, 405 with "Allow" for another method.
HttpResponse Dispatch(const std::vector<Route>& routes, const HttpRequest& request);

}  // namespace portal
