#include "simulator/portal/Router.h"

#include <optional>
#include <string_view>

namespace portal {
namespace {

/// The argument of a path that matches the pattern, empty when the pattern takes none.
std::optional<std::string> Match(const std::string& pattern, const std::string& path) {
  const std::size_t hole = pattern.find("{}");
  if (hole == pattern.npos) return path == pattern ? std::optional<std::string>("") : std::nullopt;
  const std::string_view before = std::string_view{pattern}.substr(0, hole);
  const std::string_view after = std::string_view{pattern}.substr(hole + 2);
  if (path.size() <= before.size() + after.size()) return std::nullopt;
  if (!path.starts_with(before) || !path.ends_with(after)) return std::nullopt;
  std::string argument = path.substr(hole, path.size() - before.size() - after.size());
  if (argument.find('/') != argument.npos) return std::nullopt;
  return argument;
}

}  // namespace

HttpResponse Dispatch(const std::vector<Route>& routes, const HttpRequest& request) {
  std::string allowed;
  for (const Route& route : routes) {
    const std::optional<std::string> argument = Match(route.path, request.path);
    if (!argument) continue;
    if (route.method == request.method) return route.handler(request, *argument);
    allowed += (allowed.empty() ? "" : ", ") + route.method;
  }
  if (allowed.empty()) return ErrorResponse(404, "not_found");
  HttpResponse response = ErrorResponse(405, "method_not_allowed");
  response.headers["allow"] = allowed;
  return response;
}

}  // namespace portal
