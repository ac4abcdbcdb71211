// A portal that answers with bytes, so that it can stop anywhere or never stop.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <limits>
#include <mutex>
#include <string>
#include <thread>

/// What a request is answered with.
struct RawAnswer {
  std::string bytes;         ///< sent first, whatever they are
  std::string endless = {};  ///< then these, again and again, until the other side goes
  std::size_t most = std::numeric_limits<std::size_t>::max();  ///< or so many bytes of them went
};

/// Serves one connection at a time on loopback: reads a request, sends its answer and closes.
class RawPortal {
 public:
  using Script = std::function<RawAnswer(const std::string& request)>;

  RawPortal();
  ~RawPortal();
  RawPortal(const RawPortal&) = delete;
  RawPortal& operator=(const RawPortal&) = delete;

  /// "http://127.0.0.1:PORT"
  std::string url() const;
  /// From now on every request is answered like this; a script runs on the portal's thread.
  void answer(RawAnswer answer);
  void answer(Script script);
  /// How many requests came.
  std::size_t requests() const { return _requests; }
  /// How many bytes of endless answers were taken off it.
  std::size_t endlessBytes() const { return _endlessBytes; }

 private:
  void serve();
  void serveOne(int connection);
  void sendEndlessly(int connection, const RawAnswer& answer);

  int _listener = -1;
  int _port = 0;
  std::atomic<bool> _isEnding = false;
  std::atomic<std::size_t> _requests = 0;
  std::atomic<std::size_t> _endlessBytes = 0;
  std::mutex _mutex;
  Script _script;  ///< guarded by _mutex
  std::thread _thread;
};
