// Finds the operation that a request means.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/portal/Http.h"

namespace portal {

/// One operation of an interface.
struct Route {
  std::string method;
  /// The path; the segment "{}" stands for one non-empty segment, the handler's argument.
  std::string path;
  std::function<HttpResponse(const HttpRequest&, const std::string& argument)> handler;
};

/// Answers a request by its route; 404 for an unknown path, 405 with "Allow" for another method.
HttpResponse Dispatch(const std::vector<Route>& routes, const HttpRequest& request);

}  // namespace portal
