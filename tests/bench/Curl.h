// A bare libcurl handle: the floor of the HTTP client.
#pragma once

#include <curl/curl.h>

#include <string>

/// Keeps its connection between requests.
class Curl {
 public:
  /// `authority`: the file of trusted certificates; `token`: the bearer token.
  Curl(const std::string& url, const std::string& authority, const std::string& token);
  ~Curl();
  Curl(const Curl&) = delete;
  Curl& operator=(const Curl&) = delete;

  /// The body that a JSON text sent by POST is answered with.
  std::string post(const std::string& body);
  /// The body of another address.
  std::string get(const std::string& url);
  /// How many connections it has opened.
  long connections() const { return _connections; }

 private:
  std::string perform();

  CURL* _handle;
  curl_slist* _headers = nullptr;
  long _connections = 0;
};
