#include "simulator/portal/HttpsServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <httplib.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "simulator/portal/Connections.h"
#include "simulator/portal/Files.h"
#include "simulator/portal/Limits.h"
#include "simulator/portal/Workers.h"

namespace portal {
namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr char kEveryPath[] = "[^]*";

/// Two sockets may then be bound to one port as long as only one of them listens.
void AllowReuse(int socket) {
  const int on = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// The library's own queue has no end.
class BoundedQueue : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> job) override { _workers.add(std::move(job)); }
  void shutdown() override { _workers.end(); }

 private:
  Workers _workers{kMaxConnections, kMaxWaitingConnections};
};

HttpRequest Convert(const httplib::Request& request) {
  // The library passes the peer's address as if the peer had sent these.
  static const std::set<std::string> kNotSent = {"remote_addr", "remote_port", "local_addr",
                                                 "local_port"};
  HttpRequest converted;
  converted.method = request.method;
  converted.path = request.path;
  for (const auto& [name, value] : request.headers) {
    const std::string lower = LowerCase(name);
    if (!kNotSent.contains(lower)) converted.headers[lower] = value;
  }
  for (const auto& [name, value] : request.params) converted.query.emplace(name, value);
  return converted;
}

/// Announces the whole body, sends half of it and gives up.
void SendHalf(const HttpResponse& from, const std::string& type, httplib::Response& to) {
  to.set_content_provider(from.body.size(), type,
                          [body = from.body](std::size_t, std::size_t, httplib::DataSink& sink) {
                            sink.write(body.data(), body.size() / 2);
                            return false;
                          });
}

void Convert(const HttpResponse& from, httplib::Response& to) {
  to.status = from.status;
  std::string type = "text/plain";
  for (const auto& [name, value] : from.headers) {
    if (name == "content-type")
      type = value;
    else
      to.set_header(name, value);
  }
  if (from.cut && !from.body.empty())
    SendHalf(from, type, to);
  else
    to.set_content(from.body, type);
}

/// Reads the body; what exceeds the limit is read as well, but not kept, so that the connection
/// stays usable. `Connections` ends one whose body has no end.
/// @param limit how much is kept, but for the piece that exceeds it
/// @return nothing when it did not arrive whole
std::optional<std::string> ReadBody(const httplib::Request& request,
                                    const httplib::ContentReader& reader, std::size_t limit) {
  std::string body;
  // The library would take a body without a length to last until the connection ends.
  if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding"))
    return body;
  const bool whole = reader([&](const char* data, std::size_t length) {
    if (body.size() <= limit) body.append(data, length);
    return true;
  });
  if (!whole) return std::nullopt;
  return body;
}

}  // namespace

class HttpsServer::Impl {
 public:
  Impl(Handler handler, Identify identify, const Patience& patience, BodyLimit bodyLimit);

  bool reserve(int port);
  bool accept();
  void refuse();

  Connections connections;
  int port = 0;

 private:
  bool setUp(SSL_CTX& context);
  static int showCertificate(SSL* connection, void* self);
  void configure(const Patience& patience);
  void answer(const HttpRequest& request, httplib::Response& response);
  void answerWithBody(const httplib::Request& request, httplib::Response& response,
                      const httplib::ContentReader& reader);
  void listen();
  void join();

  const Handler _handler;
  const Identify _identify;
  const BodyLimit _bodyLimit;
  httplib::SSLServer _server;
  std::mutex _mutex;  ///< guards the members below
  Descriptor _reservation;
  std::thread _thread;
  std::atomic<bool> _ended = false;  ///< the thread has nothing more to do
};

HttpsServer::Impl::Impl(Handler handler, Identify identify, const Patience& patience,
                        BodyLimit bodyLimit)
    : connections(patience.idle + patience.request),
      _handler(std::move(handler)),
      _identify(std::move(identify)),
      _bodyLimit(std::move(bodyLimit)),
      _server([this](SSL_CTX& context) { return setUp(context); }) {
  configure(patience);
}

bool HttpsServer::Impl::setUp(SSL_CTX& context) {
  SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION);
  // A resumed session would skip the certificate, and with it the wrong one.
  SSL_CTX_set_options(&context, SSL_OP_NO_TICKET);
  SSL_CTX_set_num_tickets(&context, 0);
  SSL_CTX_set_session_cache_mode(&context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_cert_cb(&context, &showCertificate, this);
  connections.watch(&context);
  return true;
}

int HttpsServer::Impl::showCertificate(SSL* connection, void* self) {
  const Identity identity = static_cast<Impl*>(self)->_identify();
  return SSL_use_certificate(connection, identity.certificate.get()) == 1 &&
                 SSL_use_PrivateKey(connection, identity.key.get()) == 1
             ? 1
             : 0;
}

void HttpsServer::Impl::configure(const Patience& patience) {
  _server.new_task_queue = [] { return new BoundedQueue; };
  _server.set_socket_options(&AllowReuse);
  _server.set_tcp_nodelay(true);
  _server.set_keep_alive_max_count(kMaxRequestsPerConnection);
  _server.set_keep_alive_timeout(
      std::chrono::duration_cast<std::chrono::seconds>(patience.idle).count());
  _server.set_read_timeout(kTransferTimeout.count());
  _server.set_write_timeout(kTransferTimeout.count());
  const auto withoutBody = [this](const httplib::Request& request, httplib::Response& response) {
    answer(Convert(request), response);
  };
  const auto withBody = [this](const httplib::Request& request, httplib::Response& response,
                               const httplib::ContentReader& reader) {
    answerWithBody(request, response, reader);
  };
  _server.Get(kEveryPath, withoutBody).Options(kEveryPath, withoutBody);
  _server.Post(kEveryPath, withBody).Put(kEveryPath, withBody);
  _server.Patch(kEveryPath, withBody).Delete(kEveryPath, withBody);
  _server.set_error_handler([](const httplib::Request&, httplib::Response& response) {
    if (response.body.empty() && !response.has_header("Content-Type"))
      Convert(ErrorResponse(response.status, "bad_request"), response);
  });
  _server.set_exception_handler(
      [](const httplib::Request&, httplib::Response& response, const std::exception_ptr&) {
        Convert(ErrorResponse(500, "internal"), response);
      });
}

void HttpsServer::Impl::answer(const HttpRequest& request, httplib::Response& response) {
  const Connections::Answering answering(connections);
  Convert(_handler(request), response);
}

void HttpsServer::Impl::answerWithBody(const httplib::Request& request, httplib::Response& response,
                                       const httplib::ContentReader& reader) {
  HttpRequest converted = Convert(request);
  const std::size_t limit = _bodyLimit(converted);
  Connections::allow(limit - std::min(limit, kMaxBody));
  std::optional<std::string> body = ReadBody(request, reader, limit);
  if (!body) return Convert(ErrorResponse(400, "bad_request"), response);
  converted.body = std::move(*body);
  answer(converted, response);
}

bool HttpsServer::Impl::reserve(int wanted) {
  const std::lock_guard lock(_mutex);
  Descriptor bound(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  AllowReuse(bound.get());
  sockaddr_in address = Loopback(wanted);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (!bound.open() || bind(bound.get(), generic, length) != 0 ||
      getsockname(bound.get(), generic, &length) != 0)
    return false;
  port = ntohs(address.sin_port);
  _reservation = std::move(bound);
  return true;
}

bool HttpsServer::Impl::accept() {
  const std::lock_guard lock(_mutex);
  if (_thread.joinable() && !_ended) return true;
  join();
  if (!_server.is_valid() || !_server.bind_to_port(kHost, port)) return false;
  connections.admit();
  _ended = false;
  _thread = std::thread([this] { listen(); });
  // The library ignores a stop that comes before its loop runs; it offers nothing to wait on.
  while (!_server.is_running() && !_ended) std::this_thread::yield();
  if (_ended) join();
  return _thread.joinable();
}

/// The loop may end at once, when the system has no more threads or takes the socket back.
void HttpsServer::Impl::listen() {
  try {
    _server.listen_after_bind();
  } catch (const std::system_error&) {
    _server.stop();
  }
  _ended = true;
}

void HttpsServer::Impl::join() {
  if (_thread.joinable()) _thread.join();
}

void HttpsServer::Impl::refuse() {
  const std::lock_guard lock(_mutex);
  if (!_thread.joinable()) return;
  _server.stop();
  connections.refuse();
  join();
}

HttpsServer::HttpsServer(Handler handler, Identify identify, const Patience& patience,
                         BodyLimit bodyLimit)
    : _impl(std::make_unique<Impl>(std::move(handler), std::move(identify), patience,
                                   std::move(bodyLimit))) {}

HttpsServer::~HttpsServer() { refuse(); }

bool HttpsServer::reserve(int port) { return _impl->reserve(port); }

int HttpsServer::port() const { return _impl->port; }

bool HttpsServer::accept() { return _impl->accept(); }

void HttpsServer::refuse() { _impl->refuse(); }

void HttpsServer::dropConnections() { _impl->connections.drop(); }

}  // namespace portal
