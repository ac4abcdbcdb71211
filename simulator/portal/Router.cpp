#include "simulator/portal/Router.h"

#include <algorithm>

namespace portal {
namespace {

std::string_view NextSegment(std::string_view& path) {
  const std::size_t slash = path.find('/');
  const std::string_view segment = path.substr(0, slash);
  path.remove_prefix(slash == path.npos ? path.size() : slash + 1);
  return segment;
}

}  // namespace

std::optional<PathArguments> MatchPath(std::string_view pattern, std::string_view path) {
  if (std::count(pattern.begin(), pattern.end(), '/') != std::count(path.begin(), path.end(), '/'))
    return std::nullopt;
  PathArguments arguments;
  while (!pattern.empty()) {
    const std::string_view expected = NextSegment(pattern);
    const std::string_view segment = NextSegment(path);
    const bool argument = expected == "{}" && !segment.empty();
    if (!argument && segment != expected) return std::nullopt;
    if (argument) arguments.emplace_back(segment);
  }
  return path.empty() ? std::optional(arguments) : std::nullopt;
}

HttpResponse Dispatch(const std::vector<Route>& routes, const HttpRequest& request) {
  std::string allowed;
  for (const Route& route : routes) {
    const std::optional<PathArguments> arguments = MatchPath(route.path, request.path);
    if (!arguments) continue;
    if (route.method == request.method) return route.handler(request, *arguments);
    allowed += (allowed.empty() ? "" : ", ") + route.method;
  }
  if (allowed.empty()) return ErrorResponse(404, "not_found");
  HttpResponse response = ErrorResponse(405, "method_not_allowed");
  response.headers["allow"] = allowed;
  return response;
}

}  // namespace portal
