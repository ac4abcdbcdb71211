#include "tests/support/ScriptedPortal.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

constexpr std::size_t kHandlers = 2;

struct Answer {
  int status;
  std::string body;
  std::string type;
  std::string location;
  int dripSeconds = 0;
};

// A spoonful of an answer, every second.
httplib::ContentProviderWithoutLength Drip(int seconds) {
  return [seconds](std::size_t offset, httplib::DataSink& sink) {
    if (offset == static_cast<std::size_t>(seconds)) {
      sink.done();
      return true;
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
    return sink.write(" ", 1);
  };
}

// A port of its own for as long as it lives: the socket never listens, so that nobody answers
// while the portal is stopped, and no other test gets the port.
class ReservedPort {
 public:
  ReservedPort() {
    const int yes = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* where = reinterpret_cast<sockaddr*>(&address);
    if (setsockopt(_socket, SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes) != 0 ||
        bind(_socket, where, size) != 0 || getsockname(_socket, where, &size) != 0) {
      throw std::runtime_error("no port for a portal");
    }
    _port = ntohs(address.sin_port);
  }
  ~ReservedPort() { close(_socket); }
  ReservedPort(const ReservedPort&) = delete;
  ReservedPort& operator=(const ReservedPort&) = delete;

  int number() const { return _port; }

 private:
  int _socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int _port = 0;
};

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

PortalRequest RequestFrom(const httplib::Request& request) {
  PortalRequest result{request.method, request.path, {}, request.body};
  for (const auto& [name, value] : request.headers) result.headers[LowerCase(name)] = value;
  return result;
}

}  // namespace

struct ScriptedPortal::Impl {
  void listen() {
    server = std::make_unique<httplib::Server>();
    const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
      handle(request, response);
    };
    server->Get(".*", handler);
    server->Post(".*", handler);
    server->new_task_queue = [] { return new httplib::ThreadPool(kHandlers); };
    server->set_keep_alive_max_count(1);  // stopping would wait for a connection that is kept
    server->set_tcp_nodelay(true);
    if (!server->bind_to_port("127.0.0.1", port.number())) {
      throw std::runtime_error("the portal cannot listen");
    }
    thread = std::thread([this] { server->listen_after_bind(); });
    while (!server->is_running()) std::this_thread::yield();
  }

  void close() {
    if (!thread.joinable()) return;
    server->stop();
    thread.join();
  }

  void handle(const httplib::Request& request, httplib::Response& response) {
    const std::lock_guard guard(lock);
    seen.push_back(RequestFrom(request));
    const std::string call = request.method + " " + request.path;
    if (const auto look = looks.find(call); look != looks.end()) look->second();
    const auto found = answers.find(call);
    const Answer& answer =
        found == answers.end() ? Answer{404, "{}", "application/json", ""} : found->second;
    response.status = answer.status;
    if (!answer.location.empty()) response.set_header("Location", answer.location);
    if (answer.dripSeconds > 0) {
      // A type that is not compressed: a compressor would hold the bytes back.
      response.set_chunked_content_provider("application/octet-stream", Drip(answer.dripSeconds));
    }
    if (!answer.body.empty()) response.set_content(answer.body, answer.type);
  }

  std::unique_ptr<httplib::Server> server;
  std::thread thread;
  const ReservedPort port;
  mutable std::mutex lock;
  std::map<std::string, Answer> answers;
  std::map<std::string, std::function<void()>> looks;
  std::vector<PortalRequest> seen;
};

std::optional<std::string> PortalRequest::header(const std::string& name) const {
  const auto found = headers.find(name);
  if (found == headers.end()) return std::nullopt;
  return found->second;
}

ScriptedPortal::ScriptedPortal() : _impl(std::make_unique<Impl>()) { _impl->listen(); }

ScriptedPortal::~ScriptedPortal() { _impl->close(); }

std::string ScriptedPortal::url() const {
  return "http://127.0.0.1:" + std::to_string(_impl->port.number());
}

void ScriptedPortal::answer(const std::string& call, int status, const Json& body) {
  answerText(call, status, body.dump(), "application/json");
}

void ScriptedPortal::answerText(const std::string& call, int status, const std::string& body,
                                const std::string& type) {
  const std::lock_guard guard(_impl->lock);
  _impl->answers.insert_or_assign(call, Answer{status, body, type, ""});
}

void ScriptedPortal::redirect(const std::string& call, int status, const std::string& location) {
  const std::lock_guard guard(_impl->lock);
  _impl->answers.insert_or_assign(call, Answer{status, "", "", location});
}

void ScriptedPortal::drip(const std::string& call, int seconds) {
  const std::lock_guard guard(_impl->lock);
  _impl->answers.insert_or_assign(call, Answer{200, "", "", "", seconds});
}

void ScriptedPortal::whenAsked(const std::string& call, std::function<void()> look) {
  const std::lock_guard guard(_impl->lock);
  _impl->looks.insert_or_assign(call, std::move(look));
}

void ScriptedPortal::stop() { _impl->close(); }

void ScriptedPortal::resume() { _impl->listen(); }

std::vector<PortalRequest> ScriptedPortal::requests() const {
  const std::lock_guard guard(_impl->lock);
  return _impl->seen;
}

std::vector<PortalRequest> ScriptedPortal::requests(const std::string& call) const {
  std::vector<PortalRequest> all = requests();
  std::erase_if(all, [&](const PortalRequest& request) {
    return request.method + " " + request.path != call;
  });
  return all;
}
