// Small HTTP servers on loopback for the tests of UrlSession.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace contract {

/// A request as it came over the wire, and the port that its sender has.
struct ReceivedRequest {
  std::string text;  ///< head and body
  int clientPort;
};

/// A server that answers with bytes, so that it can also answer wrongly. After an answer it keeps
/// the connection if the answer says where it ends, and closes it if not.
class TestServer {
 public:
  using Answer = std::function<std::string(const std::string& request)>;

  explicit TestServer(Answer answer);
  ~TestServer();
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;

  /// "http://HOST:PORT" and a path.
  std::string url(const std::string& path, const std::string& host = "127.0.0.1") const;
  int port() const { return _port; }
  std::vector<ReceivedRequest> requests() const;

 private:
  void acceptAll();
  void serve(int connection, int clientPort);

  const Answer _answer;
  int _listener = -1;
  int _port = 0;
  std::atomic<bool> _isEnding = false;
  mutable std::mutex _mutex;
  std::vector<ReceivedRequest> _requests;
  std::vector<int> _connections;
  std::vector<std::thread> _threads;
  std::thread _acceptor;
};

/// A whole answer of status 200 unless `status` says otherwise.
std::string Answered(const std::string& body, const std::string& headers = "",
                     const std::string& status = "200 OK");

}  // namespace contract
