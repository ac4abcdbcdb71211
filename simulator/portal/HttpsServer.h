// An HTTPS server on the loopback interface.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "simulator/portal/Certificates.h"
#include "simulator/portal/Http.h"
#include "simulator/portal/Limits.h"

namespace portal {

/// How long a server waits for its peers.
struct Patience {
  std::chrono::milliseconds idle = kIdleTimeout;        ///< between requests, in whole seconds
  std::chrono::milliseconds request = kRequestTimeout;  ///< for a whole request, from then on
};

/// Serves 127.0.0.1 on one port, which stays reserved as long as the object lives, whether it
/// accepts connections or not. Methods may be called on any thread but one of its own handlers'.
class HttpsServer {
 public:
  /// Answers a request; called on many threads at a time.
  using Handler = std::function<HttpResponse(const HttpRequest&)>;
  /// Chooses what a new connection is shown; called on many threads at a time.
  using Identify = std::function<Identity()>;
  /// The most bytes that the body of a request may have, by its head; called on many threads at a
  /// time. Of a larger body the handler is given more than that, but not all.
  using BodyLimit = std::function<std::size_t(const HttpRequest& head)>;

  HttpsServer(
      Handler handler, Identify identify, const Patience& patience = {},
      BodyLimit bodyLimit = [](const HttpRequest&) { return kMaxBody; });
  ~HttpsServer();
  HttpsServer(const HttpsServer&) = delete;
  HttpsServer& operator=(const HttpsServer&) = delete;

  /// Reserves the port without accepting connections yet.
  /// @param port 0 lets the system choose
  /// @return false when the port is taken
  bool reserve(int port);

  /// The reserved port.
  int port() const;

  /// Begins to accept connections; does nothing when it already does.
  /// @return false when that failed
  bool accept();

  /// Ends every connection and lets new ones be refused; does nothing when they already are.
  void refuse();

  /// Ends every connection; their clients may connect anew.
  void dropConnections();

 private:
  class Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace portal
