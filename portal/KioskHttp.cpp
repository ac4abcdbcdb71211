#include "portal/KioskHttp.h"

#include <memory>
#include <optional>
#include <semaphore>
#include <utility>

#include "core/KioskJson.h"
#include "core/KioskLimits.h"
#include "core/KioskLog.h"
#include "platform/UrlSession.h"

namespace {

constexpr platform::UrlSessionConfiguration kSessionConfiguration{
    .requestTimeoutSeconds = 15,
    .resourceTimeoutSeconds = 30,
    .maximumBodyBytes = kKioskMaximumBodyBytes};

// Never destroyed: its own queue may still be at work when the process ends.
platform::UrlSession& SharedSession() {
  static auto* session = new platform::UrlSession(kSessionConfiguration);
  return *session;
}

platform::UrlRequest Request(const std::string& url, const std::string& method, const Json& body,
                             const std::string& token, const std::string& accept) {
  platform::UrlRequest request{url, method, {{"Accept", accept}}, std::nullopt};
  if (!token.empty()) request.headers.emplace_back("Authorization", "Bearer " + token);
  if (!body.is_null()) {
    request.headers.emplace_back("Content-Type", "application/json");
    request.body = KioskJsonText(body);
  }
  return request;
}

// The completion shares the semaphore: the waiting side may go on while release() still returns.
struct PendingExchange {
  platform::UrlResult result;
  std::binary_semaphore done{0};
};

platform::UrlResult Exchange(platform::UrlRequest request) {
  const auto pending = std::make_shared<PendingExchange>();
  SharedSession().start(std::move(request), [pending](const platform::UrlResult& outcome) {
    pending->result = outcome;
    pending->done.release();
  });
  pending->done.acquire();  // without a limit: the session's time-outs end every exchange
  return std::move(pending->result);
}

KioskHttpResult KioskSend(const std::string& baseUrl, const std::string& method,
                          const std::string& path, const Json& body, const std::string& token,
                          const std::string& accept) {
  KioskHttpResult result;
  const std::string url = baseUrl + path;
  if (!platform::UrlIsValid(url)) {
    KioskLogError("%@ %@: bad URL", method, path);
    return result;
  }
  platform::UrlResult answer = Exchange(Request(url, method, body, token, accept));
  if (answer.error || !answer.httpStatus) {
    KioskLog("%@ %@: not reached (%@)", method, path, answer.error.value_or("no response"));
    return result;
  }
  result.reached = true;
  result.status = *answer.httpStatus;
  result.data = std::move(answer.data);
  if (result.data.size() > kKioskMaximumAnswerBytes) return result;
  std::optional<Json> parsed = KioskJsonParse(result.data);
  if (parsed && parsed->is_object()) result.body = std::move(*parsed);
  return result;
}

}  // namespace

KioskHttpResult KioskHttp(const std::string& baseUrl, const std::string& method,
                          const std::string& path, const Json& body, const std::string& token) {
  return KioskSend(baseUrl, method, path, body, token, "application/json");
}

KioskHttpResult KioskHttpGetData(const std::string& baseUrl, const std::string& path,
                                 const std::string& token) {
  return KioskSend(baseUrl, "GET", path, Json(), token, "*/*");
}
