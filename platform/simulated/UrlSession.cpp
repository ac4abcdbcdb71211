#include "platform/UrlSession.h"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/UrlRequestFlaw.h"
#include "platform/simulated/Limits.h"
#include "platform/simulated/MacFiles.h"
#include "platform/simulated/OpenSsl.h"

namespace platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr char kProtocols[] = "http,https";
constexpr char kTimedOut[] = "The request timed out.";
constexpr char kCancelled[] = "The request was cancelled.";
constexpr char kConnectionLost[] = "The network connection was lost.";
constexpr char kTooLarge[] = "The answer is too large.";
constexpr char kNoLibrary[] = "The URL loading system is not available.";

struct FreeList {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

struct FreeHandle {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using Handle = std::unique_ptr<CURL, FreeHandle>;

void append(HeaderList& list, const std::string& line) {
  curl_slist* longer = curl_slist_append(list.get(), line.c_str());
  if (longer == nullptr) return;  // out of memory; the list as it was stays owned
  (void)list.release();
  list.reset(longer);
}

bool hasHeader(const UrlRequest& request, const char* wanted) {
  const auto isWanted = [&](const auto& header) {
    return strcasecmp(header.first.c_str(), wanted) == 0;
  };
  return std::any_of(request.headers.begin(), request.headers.end(), isWanted);
}

HeaderList headerList(const UrlRequest& request) {
  HeaderList list;
  for (const auto& [name, value] : request.headers) {
    append(list, value.empty() ? name + ";" : name + ": " + value);  // ";" is an empty value
  }
  append(list, "Expect:");  // none: a body is sent at once
  // None of the library's own, which would call a body a form.
  if (!hasHeader(request, "content-type")) append(list, "Content-Type:");
  return list;
}

/// One exchange on the session's handle, from its options to its result.
class Exchange {
 public:
  /// `asked` is when the exchange was asked for, from which its longest time counts.
  Exchange(CURL* handle, const UrlSessionConfiguration& configuration, const UrlRequest& request,
           SteadyClock::time_point asked, const std::atomic<bool>& cancelled)
      : _handle(handle),
        _configuration(configuration),
        _request(request),
        _asked(asked),
        _cancelled(cancelled),
        _headers(headerList(request)) {}

  UrlResult perform() {
    setTransport();
    setTrust();
    setRequest();
    setCallbacks();
    _lastByte = SteadyClock::now();
    UrlResult outcome = result(curl_easy_perform(_handle));
    curl_easy_reset(_handle);  // forgets this object; keeps connections and TLS sessions
    return outcome;
  }

 private:
  template <typename Value>
  void set(CURLoption option, Value value) {
    // An option that this libcurl does not have would be a fault of the build, found by the tests.
    (void)curl_easy_setopt(_handle, option, value);
  }

  void setTransport() {
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_ERRORBUFFER, _error);
    set(CURLOPT_PROTOCOLS_STR, kProtocols);
    // An address without a scheme names none that is spoken; libcurl would guess http.
    set(CURLOPT_DEFAULT_PROTOCOL, "file");
    set(CURLOPT_REDIR_PROTOCOLS_STR, kProtocols);
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, kMaximumRedirects);
    set(CURLOPT_ACCEPT_ENCODING, "");  // all that the library can decode
    set(CURLOPT_QUICK_EXIT, 1L);       // a resolver that hangs must not prolong a time-out
    set(CURLOPT_CONNECTTIMEOUT_MS, wholeExchangeMs());
    set(CURLOPT_TIMEOUT_MS, wholeExchangeMs());
  }

  void setTrust() {
    set(CURLOPT_CAINFO, kMacCertificateAuthorities);
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    set(CURLOPT_PROXY_CAINFO, kMacCertificateAuthorities);
    set(CURLOPT_PROXY_CAPATH, static_cast<const char*>(nullptr));
    // A change of the trusted authorities counts from the next connection on.
    set(CURLOPT_CA_CACHE_TIMEOUT, 0L);
    set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
  }

  /// GET and POST are set as such, so that a redirect can turn the one into the other; any other
  /// method keeps its name.
  void setRequest() {
    const std::string& method = _request.method;
    set(CURLOPT_URL, _request.url.c_str());
    set(CURLOPT_HTTPHEADER, _headers.get());
    if (_request.body || method == "POST") setBody();
    if (method == "HEAD" && !_request.body) set(CURLOPT_NOBODY, 1L);
    const bool plain = method == "POST" || (method == "GET" && !_request.body);
    if (!plain) set(CURLOPT_CUSTOMREQUEST, method.c_str());
  }

  void setBody() {
    const std::string& body = _request.body ? *_request.body : _noBody;
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    set(CURLOPT_POSTFIELDS, body.c_str());
  }

  void setCallbacks() {
    set(CURLOPT_WRITEFUNCTION, &Exchange::onBody);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_HEADERFUNCTION, &Exchange::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &Exchange::onProgress);
    set(CURLOPT_XFERINFODATA, this);
  }

  static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* self) {
    return static_cast<Exchange*>(self)->takeBody({bytes, size * count});
  }

  static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
    return static_cast<Exchange*>(self)->takeHeader({bytes, size * count});
  }

  static int onProgress(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
    return static_cast<Exchange*>(self)->mayGoOn(received, sent) ? 0 : 1;
  }

  /// Counts header lines, and lines behind a body, which the library keeps without a limit.
  std::size_t takeHeader(std::string_view line) {
    _lastByte = SteadyClock::now();
    if (line.size() > kMaximumHeaderBytes - _headerBytes) {
      _abortReason = kTooLarge;
      return 0;
    }
    _headerBytes += line.size();
    if (line.starts_with("HTTP/")) _headIsWhole = false;
    if (line == "\r\n" || line == "\n") _headIsWhole = true;
    return line.size();
  }

  std::size_t takeBody(std::string_view bytes) {
    if (bytes.size() > _configuration.maximumBodyBytes - _result.data.size()) {
      _abortReason = kTooLarge;
      return 0;
    }
    _result.data.append(bytes);
    return bytes.size();
  }

  /// Called while bytes flow and about once a second while they do not.
  bool mayGoOn(curl_off_t received, curl_off_t sent) {
    const SteadyClock::time_point now = SteadyClock::now();
    if (received != _received || sent != _sent) _lastByte = now;
    _received = received;
    _sent = sent;
    if (_cancelled) _abortReason = kCancelled;
    if (now - _lastByte >= std::chrono::seconds(_configuration.requestTimeoutSeconds)) {
      _abortReason = kTimedOut;
    }
    return _abortReason == nullptr;
  }

  /// What is left of the longest time; at least a moment, because none would mean no limit.
  long wholeExchangeMs() const {
    constexpr std::uint64_t kMostSeconds = 1'000'000;  // libcurl's milliseconds are an int within
    const std::chrono::seconds whole(std::min(_configuration.resourceTimeoutSeconds, kMostSeconds));
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(_asked + whole - SteadyClock::now());
    return std::max<long>(left.count(), 1);
  }

  UrlResult result(CURLcode code) {
    long status = 0;
    (void)curl_easy_getinfo(_handle, CURLINFO_RESPONSE_CODE, &status);  // stays 0 on failure
    if (status != 0) _result.httpStatus = status;
    // The library is content with a head that the connection's end cut off.
    const bool isCut = code == CURLE_OK && !_headIsWhole;
    if (code != CURLE_OK || isCut) {
      _result.error = isCut ? kConnectionLost : errorText(code);
      _result.data.clear();
    }
    return std::move(_result);
  }

  std::string errorText(CURLcode code) const {
    if (_abortReason != nullptr) return _abortReason;
    if (code == CURLE_OPERATION_TIMEDOUT) return kTimedOut;
    return _error[0] != '\0' ? _error : curl_easy_strerror(code);
  }

  CURL* _handle;
  const UrlSessionConfiguration& _configuration;
  const UrlRequest& _request;
  const SteadyClock::time_point _asked;
  const std::atomic<bool>& _cancelled;
  const HeaderList _headers;
  const std::string _noBody;
  char _error[CURL_ERROR_SIZE] = "";
  const char* _abortReason = nullptr;
  SteadyClock::time_point _lastByte;
  std::size_t _headerBytes = 0;
  bool _headIsWhole = false;
  curl_off_t _received = 0;
  curl_off_t _sent = 0;
  UrlResult _result;
};

bool initializeLibrary() {
  OpenSslInitialize();
  static const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
  return code == CURLE_OK;
}

UrlResult failure(const char* text) {
  return {.error = text, .httpStatus = std::nullopt, .data = ""};
}

}  // namespace

/// One worker thread does the exchanges one after another on one handle, which is what keeps the
/// connection alive between them; it sleeps while there is nothing to do.
struct UrlSession::Impl {
  struct Task {
    UrlRequest request;
    std::function<void(const UrlResult&)> completion;
    SteadyClock::time_point asked = SteadyClock::now();
  };

  explicit Impl(const UrlSessionConfiguration& values) : configuration(values) {}

  /// `self` is this object's owner, which the worker shares.
  void add(Task task, const std::shared_ptr<Impl>& self) {
    {
      const std::lock_guard lock(mutex);
      if (worker.joinable() || startWorker(self)) {
        tasks.push_back(std::move(task));
        changed.notify_one();
        return;
      }
    }
    task.completion(failure(kNoLibrary));
  }

  /// False when the system has no thread to give.
  bool startWorker(const std::shared_ptr<Impl>& self) {
    try {
      worker = std::thread([self] { self->work(); });
      return true;
    } catch (const std::system_error&) {
      return false;
    }
  }

  /// Does tasks until the session ends and none is left.
  void work() {
    Handle handle(initializeLibrary() ? curl_easy_init() : nullptr);
    while (std::optional<Task> task = next()) {
      task->completion(exchange(handle.get(), *task));
    }
  }

  std::optional<Task> next() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return ended || !tasks.empty(); });
    if (tasks.empty()) return std::nullopt;
    std::optional<Task> task(std::move(tasks.front()));
    tasks.pop_front();
    return task;
  }

  UrlResult exchange(CURL* handle, const Task& task) const {
    if (ended) return failure(kCancelled);
    if (handle == nullptr) return failure(kNoLibrary);
    if (const char* flaw = UrlRequestFlaw(task.request)) return failure(flaw);
    return Exchange(handle, configuration, task.request, task.asked, ended).perform();
  }

  void end() {
    {
      const std::lock_guard lock(mutex);
      ended = true;
      changed.notify_one();
    }
    if (!worker.joinable()) return;
    if (worker.get_id() == std::this_thread::get_id()) {
      worker.detach();  // a completion ends its own session; the worker leaves by itself
    } else {
      worker.join();
    }
  }

  const UrlSessionConfiguration configuration;
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Task> tasks;
  std::atomic<bool> ended = false;
  std::thread worker;
};

UrlSession::UrlSession(const UrlSessionConfiguration& configuration)
    : _impl(std::make_shared<Impl>(configuration)) {}

// Exchanges that have not ended are cancelled: their completions have been called when this
// returns.
UrlSession::~UrlSession() { _impl->end(); }

void UrlSession::start(UrlRequest request, std::function<void(const UrlResult&)> completion) {
  _impl->add({.request = std::move(request), .completion = std::move(completion)}, _impl);
}

}  // namespace platform
