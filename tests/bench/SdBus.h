// sd-bus, between two processes and through a dbus-daemon: a method that takes a text and returns
// one.
#pragma once

#include <systemd/sd-bus.h>

#include <string>

/// Answers every call at the socket `path`, one connection after the other, with `reply`.
[[noreturn]] void ServeSdBus(const std::string& path, const std::string& reply);

/// Runs dbus-daemon at the socket `path`; its configuration goes beside it.
[[noreturn]] void RunDbusDaemon(const std::string& path);

/// Answers every call that reaches it through the dbus-daemon at `path`. The socket `readyPath`
/// appears when it can be called.
[[noreturn]] void ServeDbus(const std::string& path, const std::string& readyPath,
                            const std::string& reply);

/// A client of ServeSdBus, or of ServeDbus.
class SdBusClient {
 public:
  /// `isDaemon`: the socket is a dbus-daemon's.
  SdBusClient(const std::string& path, bool isDaemon, std::string request, std::string reply);
  ~SdBusClient();
  SdBusClient(const SdBusClient&) = delete;
  SdBusClient& operator=(const SdBusClient&) = delete;

  void ask();

 private:
  sd_bus* _bus = nullptr;
  const char* _destination;
  std::string _request;
  std::string _reply;
};
