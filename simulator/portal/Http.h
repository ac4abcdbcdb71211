// Requests and answers of HTTP, free of the library that carries them.
#pragma once

#include <map>
#include <string>

#include "platform/Json.h"

namespace portal {

/// One request.
struct HttpRequest {
  std::string method;                          ///< "GET"
  std::string path;                            ///< decoded, without the query
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;
  std::map<std::string, std::string> query{};  ///< decoded; of several of one name the first
};

/// One answer.
struct HttpResponse {
  int status = 200;
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;
  bool cut = false;         ///< send half of the body, then close the connection
  bool misbehaved = false;  ///< not what the interface's description promises
};

/// An answer that carries a JSON body.
/// @param status the HTTP status
/// @param body the body
HttpResponse JsonResponse(int status, const Json& body);

/// An answer with the body {"error": code}.
/// @param status the HTTP status
/// @param code the error's name, such as "not_found"
HttpResponse ErrorResponse(int status, const std::string& code);

/// The text after "Bearer " in the request's Authorization header; empty without one.
std::string BearerToken(const HttpRequest& request);

/// `text` in lower case, ASCII letters only.
std::string LowerCase(std::string text);

}  // namespace portal
