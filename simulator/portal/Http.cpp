#include "simulator/portal/Http.h"

#include <algorithm>

#include "simulator/portal/JsonText.h"

namespace portal {

HttpResponse JsonResponse(int status, const Json& body) {
  HttpResponse response;
  response.status = status;
  response.headers = {{"content-type", "application/json"}, {"cache-control", "no-store"}};
  response.body = JsonText(body);
  return response;
}

HttpResponse ErrorResponse(int status, const std::string& code) {
  return JsonResponse(status, {{"error", code}});
}

std::string BearerToken(const HttpRequest& request) {
  static const std::string kScheme = "bearer ";
  const auto header = request.headers.find("authorization");
  if (header == request.headers.end() || header->second.size() <= kScheme.size()) return {};
  if (LowerCase(header->second.substr(0, kScheme.size())) != kScheme) return {};
  return header->second.substr(kScheme.size());
}

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return text;
}

}  // namespace portal
