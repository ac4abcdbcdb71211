// gRPC over a Unix socket: a synchronous call that takes a text and returns one.
#pragma once

#include <memory>
#include <string>

/// Answers every call at the socket `path` with `reply`.
[[noreturn]] void ServeGrpc(const std::string& path, const std::string& reply);

/// A client of ServeGrpc.
class GrpcClient {
 public:
  GrpcClient(const std::string& path, std::string request, std::string reply);
  ~GrpcClient();
  GrpcClient(const GrpcClient&) = delete;
  GrpcClient& operator=(const GrpcClient&) = delete;

  void ask();

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};
