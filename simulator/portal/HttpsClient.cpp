#include "simulator/portal/HttpsClient.h"

#include <httplib.h>

#include <charconv>
#include <chrono>

namespace portal {
namespace {

constexpr std::chrono::minutes kPatience{10};

int PortOf(const std::string& url) {
  int port = 0;
  const std::size_t colon = url.rfind(':');
  if (colon != url.npos) std::from_chars(url.data() + colon + 1, url.data() + url.size(), port);
  return port;
}

}  // namespace

struct HttpsClient::Impl {
  explicit Impl(int port) : client("127.0.0.1", port) {}

  httplib::SSLClient client;
};

HttpsClient::HttpsClient(const std::string& url, const std::filesystem::path& authority)
    : _impl(std::make_unique<Impl>(PortOf(url))) {
  _impl->client.set_ca_cert_path(authority.string());
  _impl->client.enable_server_certificate_verification(true);
  _impl->client.set_keep_alive(true);
  _impl->client.set_read_timeout(kPatience);
}

HttpsClient::~HttpsClient() = default;
HttpsClient::HttpsClient(HttpsClient&&) noexcept = default;
HttpsClient& HttpsClient::operator=(HttpsClient&&) noexcept = default;

void HttpsClient::setTimeout(int milliseconds) {
  _impl->client.set_read_timeout(std::chrono::milliseconds(milliseconds));
}

std::optional<HttpResponse> HttpsClient::send(const HttpRequest& request) {
  httplib::Request sent;
  sent.method = request.method;
  sent.path = request.path;
  sent.body = request.body;
  for (const auto& [name, value] : request.headers) sent.set_header(name, value);
  const httplib::Result result = _impl->client.send(sent);
  _error = result ? "" : httplib::to_string(result.error());
  if (!result) return std::nullopt;
  HttpResponse response;
  response.status = result->status;
  response.body = result->body;
  for (const auto& [name, value] : result->headers) response.headers[LowerCase(name)] = value;
  return response;
}

}  // namespace portal
