// A portal that answers as a test tells it: a real HTTP server on loopback.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"

/// A request that arrived.
struct PortalRequest {
  std::string method;
  std::string path;
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;

  /// A header's value, or nothing.
  std::optional<std::string> header(const std::string& name) const;
  Json json() const { return Json::parse(body, nullptr, false); }
};

class ScriptedPortal {
 public:
  ScriptedPortal();
  ~ScriptedPortal();
  ScriptedPortal(const ScriptedPortal&) = delete;
  ScriptedPortal& operator=(const ScriptedPortal&) = delete;

  /// "http://127.0.0.1:PORT"
  std::string url() const;

  /// From now on "METHOD PATH" is answered like this; 404 with an empty object otherwise.
  void answer(const std::string& call, int status, const Json& body);
  void answerText(const std::string& call, int status, const std::string& body,
                  const std::string& type);
  /// Sends the caller of "METHOD PATH" to another address.
  void redirect(const std::string& call, int status, const std::string& location);
  /// "METHOD PATH" is answered with a byte a second, `seconds` times.
  void drip(const std::string& call, int seconds);
  /// Calls `look` before "METHOD PATH" is answered, on a thread of the portal.
  void whenAsked(const std::string& call, std::function<void()> look);
  /// Stops listening: the portal cannot be reached. resume() listens on the same port again.
  void stop();
  void resume();

  std::vector<PortalRequest> requests() const;
  /// Requests of one "METHOD PATH".
  std::vector<PortalRequest> requests(const std::string& call) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> _impl;
};
