// The HTTP client: synchronous exchanges with the portal.
#pragma once

#include <cstdint>
#include <string>

#include "platform/Json.h"

/// The outcome of one portal request.
struct KioskHttpResult {
  bool reached = false;        ///< an HTTP response arrived, whatever its status
  std::int64_t status = 0;     ///< the HTTP status code
  Json body = Json::object();  ///< the response body when it is a JSON object (within
                               ///< kKioskMaximumAnswerBytes), else empty
  std::string data;            ///< the raw response body

  /// Whether the portal was reached and answered with a status from 200 to 299.
  bool success() const { return reached && status >= 200 && status <= 299; }
};

/// Sends a request to `baseUrl` followed by `path`, with `body` as JSON unless it is null and
/// `token` as bearer token unless it is empty, and waits for the answer: 15 s without a byte or 30
/// s in all end it. The status is not judged. Failures are logged. Called on the work queue only.
KioskHttpResult KioskHttp(const std::string& baseUrl, const std::string& method,
                          const std::string& path, const Json& body, const std::string& token);

/// Downloads raw data with a GET request without a body, accepting any type; the result's `data` is
/// what counts. Otherwise like KioskHttp.
KioskHttpResult KioskHttpGetData(const std::string& baseUrl, const std::string& path,
                                 const std::string& token);
