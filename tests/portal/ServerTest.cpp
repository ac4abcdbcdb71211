// The portal's HTTPS server and its parts, against peers that mean it no good.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "simulator/portal/Certificates.h"
#include "simulator/portal/Files.h"
#include "simulator/portal/HttpsServer.h"
#include "simulator/portal/Secrets.h"
#include "simulator/portal/Workers.h"

namespace {

std::atomic<bool> acceptFails = false;

}  // namespace

/// Stands before the system's own, so that it can fail.
extern "C" int accept(int socket, sockaddr* address, socklen_t* length) {
  if (!acceptFails)
    return static_cast<int>(syscall(SYS_accept4, socket, address, length, SOCK_CLOEXEC));
  errno = EBADF;
  return -1;
}

/// Whoever waits for the listener looks again only when a listener that fails has long ended.
extern "C" int sched_yield() noexcept {
  if (acceptFails) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  return static_cast<int>(syscall(SYS_sched_yield));
}

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kLong{60};

/// A peer that sends what it likes over a connection of its own.
class Peer {
 public:
  explicit Peer(int port)
      : _context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free),
        _socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
        _connection(SSL_new(_context.get()), SSL_free) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::connect(_socket.get(), generic, sizeof address), 0);
    // A peer that has ended the connection may leave a long write waiting for room.
    const timeval patience{0, 50'000};
    setsockopt(_socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    SSL_set_fd(_connection.get(), _socket.get());
    EXPECT_EQ(SSL_connect(_connection.get()), 1);
  }

  /// @return false when the server has ended the connection
  bool send(const std::string& text) {
    int sent = 0;
    do sent = SSL_write(_connection.get(), text.data(), static_cast<int>(text.size()));
    while (sent <= 0 && SSL_get_error(_connection.get(), sent) == SSL_ERROR_WANT_WRITE &&
           !hears(milliseconds(0)));
    return sent > 0;
  }

  /// @return false when nothing came in that time
  bool hears(milliseconds patience) const {
    pollfd waiting{_socket.get(), POLLIN, 0};
    return poll(&waiting, 1, static_cast<int>(patience.count())) > 0;
  }

  /// All that comes until the connection ends.
  std::string readToEnd() {
    std::string text;
    char next = 0;
    while (SSL_read(_connection.get(), &next, 1) == 1) text += next;
    return text;
  }

 private:
  std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> _context;
  portal::Descriptor _socket;
  std::unique_ptr<SSL, void (*)(SSL*)> _connection;
};

class Server : public testing::Test {
 protected:
  void SetUp() override {
    std::signal(SIGPIPE, SIG_IGN);
    const auto authority = portal::MakeAuthority("Test");
    ASSERT_TRUE(authority);
    const auto identity = portal::MakeServerIdentity(*authority);
    ASSERT_TRUE(identity);
    _server = std::make_unique<portal::HttpsServer>(
        [this](const portal::HttpRequest&) { return answer(); }, [identity] { return *identity; },
        portal::Patience{std::chrono::seconds(1), milliseconds(100)});
    ASSERT_TRUE(_server->reserve(0));
  }

  void TearDown() override { acceptFails = false; }

  portal::HttpResponse answer() {
    ++answers;
    std::this_thread::sleep_for(workingTime);
    return portal::ErrorResponse(404, "not_found");
  }

  portal::HttpsServer& server() { return *_server; }

  std::atomic<int> answers = 0;
  milliseconds workingTime{0};  ///< how long an answer takes

 private:
  std::unique_ptr<portal::HttpsServer> _server;
};

TEST_F(Server, EndsARequestThatTakesTooLongToArrive) {
  ASSERT_TRUE(server().accept());
  for (const char* begin : {"POST / HTTP/1.1\r\nContent-Length: 100000\r\n\r\n", "GET /"}) {
    Peer peer(server().port());
    ASSERT_TRUE(peer.send(begin));
    const auto deadline = steady_clock::now() + kLong;
    // Steadily, so that no single read takes too long.
    while (!peer.hears(milliseconds(20)) && steady_clock::now() < deadline)
      if (!peer.send("x")) break;
    EXPECT_LT(steady_clock::now(), deadline) << begin;
    EXPECT_EQ(peer.readToEnd().find("not_found"), std::string::npos);
  }
  EXPECT_EQ(answers, 0);
}

TEST_F(Server, EndsARequestThatHasNoEnd) {
  ASSERT_TRUE(server().accept());
  const std::string much(16384, 'x');
  const std::string chunk = "4000\r\n" + much + "\r\n";
  const std::string head = "POST / HTTP/1.1\r\n";
  const std::vector<std::pair<std::string, std::string>> requests = {
      {head + "Transfer-Encoding: chunked\r\n\r\n", chunk},
      {head + "Content-Length: 9999999999\r\n\r\n", much},
      {head + "X: ", much}};
  for (const auto& [begin, more] : requests) {
    Peer peer(server().port());
    ASSERT_TRUE(peer.send(begin));
    constexpr int kFarTooMany = 4000;  // 64 MB
    int sent = 0;
    while (sent < kFarTooMany && peer.send(more)) ++sent;
    EXPECT_LT(sent, kFarTooMany) << begin;
  }
  EXPECT_EQ(answers, 0);
}

TEST_F(Server, TakesItsOwnTimeToAnswer) {
  workingTime = milliseconds(1500);
  ASSERT_TRUE(server().accept());
  Peer peer(server().port());
  ASSERT_TRUE(peer.send("GET / HTTP/1.1\r\nConnection: close\r\n\r\n"));
  EXPECT_NE(peer.readToEnd().find("not_found"), std::string::npos);
}

TEST_F(Server, ClosesAConnectionThatIsIdle) {
  ASSERT_TRUE(server().accept());
  Peer peer(server().port());
  ASSERT_TRUE(peer.hears(kLong));
  EXPECT_EQ(peer.readToEnd(), "");
}

TEST_F(Server, DoesNotWaitForAListenerThatHasEnded) {
  for (int i = 0; i < 5; ++i) {
    acceptFails = true;
    (void)server().accept();  // whether it is seen before it ends is chance
    acceptFails = false;
    server().refuse();
  }
  ASSERT_TRUE(server().accept());
  Peer peer(server().port());
  ASSERT_TRUE(peer.send("GET / HTTP/1.1\r\nConnection: close\r\n\r\n"));
  EXPECT_NE(peer.readToEnd().find("not_found"), std::string::npos);
}

TEST(Workers, LetWaitWhoeverBringsMoreThanMayWait) {
  constexpr int kWaiting = 3;
  constexpr int kJobs = 100;
  std::atomic<int> added = 0;
  std::atomic<int> begun = 0;
  std::atomic<int> tooMany = 0;
  {
    portal::Workers workers(1, kWaiting);
    for (int i = 0; i < kJobs; ++i) {
      workers.add([&] {
        const int number = ++begun;
        // Time enough for a queue without bounds to take them all.
        const auto deadline = steady_clock::now() + milliseconds(number == 1 ? 200 : 0);
        while (added <= number + kWaiting && steady_clock::now() < deadline)
          std::this_thread::yield();
        if (added > number + kWaiting) ++tooMany;
      });
      ++added;
    }
  }
  EXPECT_EQ(begun, kJobs);
  EXPECT_EQ(tooMany, 0);
}

TEST(Workers, DoAllThatTheyWereGivenBeforeTheyEnd) {
  std::atomic<int> done = 0;
  portal::Workers workers(4, 8);
  for (int i = 0; i < 50; ++i) workers.add([&] { ++done; });
  workers.end();
  EXPECT_EQ(done, 50);
}

TEST(Secrets, HaveNoDigestWhenThereIsNoneToBeHad) {
  EXPECT_EQ(portal::Sha256Hex("abc"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  ASSERT_EQ(EVP_set_default_properties(nullptr, "provider=nobody"), 1);
  EXPECT_EQ(portal::Sha256Hex("abc"), std::nullopt);
  EVP_set_default_properties(nullptr, "");
  EXPECT_NE(portal::Sha256Hex("abc"), std::nullopt);
}

}  // namespace
