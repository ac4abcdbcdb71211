// HTTP exchanges over one shared session without cookies, credentials or cache.
// Native counterpart: NSURLSession with an ephemeral configuration.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform {

/// What a session is made from.
struct UrlSessionConfiguration {
  std::uint64_t requestTimeoutSeconds;  ///< longest time without a byte (timeoutIntervalForRequest)
  std::uint64_t resourceTimeoutSeconds;  ///< longest whole exchange (timeoutIntervalForResource)
  std::size_t maximumBodyBytes;          ///< an answer with a larger (decoded) body is an error
};

/// One request. `body` absent means no body at all.
struct UrlRequest {
  std::string url;
  std::string method;
  std::vector<std::pair<std::string, std::string>> headers;
  std::optional<std::string> body;
};

/// How an exchange ended.
struct UrlResult {
  std::optional<std::string> error;        ///< the failure in the system's words; nothing if none
  std::optional<std::int64_t> httpStatus;  ///< the status, when an HTTP response began to arrive
  std::string data;                        ///< the decoded body
};

/// A session: keeps connections alive between exchanges, follows redirects, decodes compressed
/// bodies, honours the system's proxies, verifies certificates and speaks http and https only; a
/// redirect to anything else is an error. (Whether a Mac lets a program without an Info.plist speak
/// plain http is not documented: App Transport Security.) Destroying it cancels what is under way;
/// those completions may come before its destructor has returned or after.
class UrlSession {
 public:
  explicit UrlSession(const UrlSessionConfiguration& configuration);
  ~UrlSession();
  UrlSession(const UrlSession&) = delete;
  UrlSession& operator=(const UrlSession&) = delete;

  /// Starts an exchange and returns; `completion` is called exactly once, on the session's own
  /// queue. Any thread. Native: dataTaskWithRequest:completionHandler: and resume.
  void start(UrlRequest request, std::function<void(const UrlResult&)> completion);

 private:
  struct Impl;
  std::shared_ptr<Impl> _impl;
};

/// Whether `text` is a URL by RFC 3986 (of any scheme, or relative). Any thread. No native call:
/// what NSURLComponents takes depends on the version of macOS.
bool UrlIsValid(const std::string& text);

}  // namespace platform
