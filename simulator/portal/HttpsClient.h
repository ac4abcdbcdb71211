// One side of HTTPS exchanges with a server on the loopback interface.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "simulator/portal/Http.h"

namespace portal {

/// A client that trusts one certificate authority and keeps its connection between requests. Not
/// for more than one thread at a time.
class HttpsClient {
 public:
  /// @param url "https://127.0.0.1:PORT"
  /// @param authority the PEM file of the certificate authority to trust
  HttpsClient(const std::string& url, const std::filesystem::path& authority);
  ~HttpsClient();
  HttpsClient(HttpsClient&&) noexcept;
  HttpsClient& operator=(HttpsClient&&) noexcept;

  /// How long to wait for an answer, in milliseconds; ten minutes when not set.
  void setTimeout(int milliseconds);

  /// Sends a request and waits for the answer.
  /// @return nothing when there was none; `error` then says why
  std::optional<HttpResponse> send(const HttpRequest& request);

  /// Why the last request had no answer, as the HTTP library names it ("SSLServerVerification").
  const std::string& error() const { return _error; }

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
  std::string _error;
};

}  // namespace portal
