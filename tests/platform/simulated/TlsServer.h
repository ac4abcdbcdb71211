// A small HTTPS server on loopback.
#pragma once

#include <memory>
#include <string>

namespace contract {

/// An HTTPS server that says "secret" to every GET; its authority is `authorityPem()`.
class TlsServer {
 public:
  TlsServer();
  ~TlsServer();
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;

  std::string url(const std::string& host) const;
  std::string authorityPem() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

}  // namespace contract
