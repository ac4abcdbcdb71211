#include "tests/platform/TestServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

namespace contract {
namespace {

/// The length of a request's body.
std::size_t bodyLength(const std::string& head) {
  const std::size_t at = head.find("Content-Length: ");
  return at == std::string::npos ? 0 : std::stoul(head.substr(at + 16, 12));
}

/// Reads one request; empty when the client has gone.
std::string readRequest(int connection) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const std::size_t end = text.find("\r\n\r\n");
    if (end != std::string::npos && text.size() >= end + 4 + bodyLength(text)) return text;
    const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
    if (count <= 0) return "";
    text.append(buffer, static_cast<std::size_t>(count));
  }
}

bool saysWhereItEnds(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end != std::string::npos && answer.size() == end + 4 + bodyLength(answer) &&
         answer.find("Content-Length: ") != std::string::npos;
}

struct Certificate {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* certificate = X509_new();

  Certificate() {
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>("contract");
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    X509_EXTENSION* names =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "DNS:localhost");
    X509_add_ext(certificate, names, -1);
    X509_EXTENSION_free(names);
    X509_sign(certificate, key, EVP_sha256());
  }
  ~Certificate() {
    X509_free(certificate);
    EVP_PKEY_free(key);
  }
  Certificate(const Certificate&) = delete;
  Certificate& operator=(const Certificate&) = delete;
};

}  // namespace

TestServer::TestServer(Answer answer) : _answer(std::move(answer)) {
  _listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(_listener, generic, size) != 0 || listen(_listener, 16) != 0 ||
      getsockname(_listener, generic, &size) != 0) {
    std::abort();
  }
  _port = ntohs(address.sin_port);
  _acceptor = std::thread([this] { acceptAll(); });
}

TestServer::~TestServer() {
  (void)shutdown(_listener, SHUT_RDWR);
  _acceptor.join();
  for (const int connection : _connections) (void)shutdown(connection, SHUT_RDWR);
  for (std::thread& thread : _threads) thread.join();
  for (const int connection : _connections) (void)close(connection);
  (void)close(_listener);
}

void TestServer::acceptAll() {
  for (;;) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    const int connection =
        accept4(_listener, reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC);
    if (connection < 0) return;
    _connections.push_back(connection);
    _threads.emplace_back(
        [this, connection, port = ntohs(address.sin_port)] { serve(connection, port); });
  }
}

void TestServer::serve(int connection, int clientPort) {
  for (;;) {
    const std::string request = readRequest(connection);
    if (request.empty()) return;
    {
      const std::lock_guard lock(_mutex);
      _requests.push_back({request, clientPort});
    }
    const std::string answer = _answer(request);
    (void)send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
    // No answer at all is a server that keeps the client waiting.
    if (!answer.empty() && !saysWhereItEnds(answer)) {
      (void)shutdown(connection, SHUT_RDWR);
      return;
    }
  }
}

std::string TestServer::url(const std::string& path, const std::string& host) const {
  return "http://" + host + ":" + std::to_string(_port) + path;
}

std::vector<ReceivedRequest> TestServer::requests() const {
  const std::lock_guard lock(_mutex);
  return _requests;
}

std::string Answered(const std::string& body, const std::string& headers,
                     const std::string& status) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         headers + "\r\n" + body;
}

struct TlsServer::Impl {
  Certificate certificate;
  httplib::SSLServer server{certificate.certificate, certificate.key};
  int port = server.bind_to_any_port("127.0.0.1");
  std::thread thread;
};

TlsServer::TlsServer() : _impl(std::make_unique<Impl>()) {
  _impl->server.Get(".*", [](const httplib::Request&, httplib::Response& response) {
    response.set_content("secret", "text/plain");
  });
  _impl->thread = std::thread([this] { _impl->server.listen_after_bind(); });
  // Stopping a server that does not listen yet would have no effect.
  while (!_impl->server.is_running()) std::this_thread::yield();
}

TlsServer::~TlsServer() {
  _impl->server.stop();
  _impl->thread.join();
}

std::string TlsServer::url(const std::string& host) const {
  return "https://" + host + ":" + std::to_string(_impl->port) + "/";
}

std::string TlsServer::authorityPem() const {
  BIO* memory = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(memory, _impl->certificate.certificate);
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory, &text);
  std::string pem(text, static_cast<std::size_t>(length));
  BIO_free(memory);
  return pem;
}

}  // namespace contract
