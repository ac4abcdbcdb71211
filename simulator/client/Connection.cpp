#include "simulator/client/Connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "simulator/client/Frame.h"
#include "simulator/client/Limits.h"

namespace client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* kDefaultPath = "/private/var/run/com.brindlex.stream.kioskd.socket";

/// Milliseconds until `deadline`, rounded up, so that a wait never ends just before it.
milliseconds TimeLeft(steady_clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
  return std::max(left, milliseconds::zero());
}

/// The address of a socket, or nothing (with errno) for a path that no socket can have.
std::optional<sockaddr_un> Address(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return std::nullopt;
  }
  std::copy(path.begin(), path.end(), address.sun_path);
  return address;
}

/// A connect() waits when the listener's queue is full; the kernel bounds that by this option.
void BoundConnecting(int socket, milliseconds limit) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(limit);
  timeval time{};
  time.tv_sec = seconds.count();
  time.tv_usec = std::max<suseconds_t>(1, (limit - seconds).count() * 1000);
  // A kernel that refuses leaves connect() without a bound, which is no worse than not asking.
  (void)setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

int Connect(int socket, const sockaddr_un& address) {
  // connect() takes every family's address by the type of the common head.
  const auto* const common = reinterpret_cast<const sockaddr*>(&address);
  int result = 0;
  do {
    result = connect(socket, common, sizeof address);
  } while (result < 0 && errno == EINTR);
  return result;
}

std::string Describe(ChannelFailureKind kind, const std::string& path, int error,
                     milliseconds timeout) {
  switch (kind) {
    case ChannelFailureKind::kUnsendable:
      return "A request has at most " + std::to_string(kMaximumRequestBytes) +
             " bytes and no zero byte.";
    case ChannelFailureKind::kNotThere:
      return "The command channel cannot be reached at " + path + ": " + std::strerror(error) + ".";
    case ChannelFailureKind::kClosed:
      return "kioskd closed the command channel without an answer.";
    case ChannelFailureKind::kTimeOut:
      return "kioskd did not answer in time (" + std::to_string(timeout.count()) + " ms).";
    case ChannelFailureKind::kMalformed:
      break;
  }
  return "kioskd's answer breaks the rules of the command channel.";
}

}  // namespace

std::string ChannelPath() {
  const char* const path = std::getenv("KIOSK_CHANNEL");
  return path != nullptr ? path : kDefaultPath;
}

Connection::Connection(std::string path) : _path(std::move(path)) {}

Connection::~Connection() { close(); }

void Connection::close() {
  if (_socket >= 0) (void)::close(_socket);  // nothing is left to be done about a failure
  _socket = -1;
}

bool Connection::stands() const {
  pollfd entry{_socket, POLLRDHUP, 0};
  return _socket >= 0 && poll(&entry, 1, 0) == 0;
}

Connection::Failed Connection::open(Deadline deadline) {
  const std::optional<sockaddr_un> address = Address(_path);
  if (address) _socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (_socket >= 0) {
    BoundConnecting(_socket, TimeLeft(deadline));
    if (Connect(_socket, *address) == 0) return std::nullopt;
  }
  _openError = errno;
  return _openError == EAGAIN ? ChannelFailureKind::kTimeOut : ChannelFailureKind::kNotThere;
}

Connection::Failed Connection::wait(short events, Deadline deadline) const {
  pollfd entry{_socket, events, 0};
  int count = 0;
  do {
    count = poll(&entry, 1, static_cast<int>(TimeLeft(deadline).count()));
  } while (count < 0 && errno == EINTR);
  if (count == 0) return ChannelFailureKind::kTimeOut;
  return count < 0 ? Failed(ChannelFailureKind::kClosed) : std::nullopt;
}

Connection::Failed Connection::send(std::string_view bytes, Deadline deadline) const {
  while (!bytes.empty()) {
    if (const Failed failed = wait(POLLOUT, deadline)) return failed;
    const ssize_t sent = ::send(_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
    if (sent < 0 && errno != EINTR && errno != EAGAIN) return ChannelFailureKind::kClosed;
  }
  return std::nullopt;
}

Connection::Failed Connection::receive(std::string& bytes, Deadline deadline) const {
  std::size_t have = 0;
  while (have < bytes.size()) {
    if (const Failed failed = wait(POLLIN, deadline)) return failed;
    const ssize_t got = recv(_socket, &bytes[have], bytes.size() - have, MSG_DONTWAIT);
    if (got > 0) have += static_cast<std::size_t>(got);
    if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
      return ChannelFailureKind::kClosed;
    }
  }
  return std::nullopt;
}

Connection::Failed Connection::receiveReply(std::uint32_t number, std::string& reply,
                                            Deadline deadline) const {
  std::string length(4, '\0');
  if (const Failed failed = receive(length, deadline)) return failed;
  const std::uint32_t size = FrameReadNumber(length);
  if (size > kMaximumFrameBytes) return ChannelFailureKind::kMalformed;
  std::string body(size, '\0');
  if (const Failed failed = receive(body, deadline)) return failed;
  const std::optional<Frame> frame = FrameRead(body);
  if (!frame || frame->kind != FrameKind::kReply || frame->number != number) {
    return ChannelFailureKind::kMalformed;
  }
  const auto response = frame->dictionary.find("response");
  if (response == frame->dictionary.end()) return ChannelFailureKind::kMalformed;
  reply = response->second;
  return std::nullopt;
}

Connection::Failed Connection::ask(std::string_view request, std::string& reply,
                                   Deadline deadline) {
  if (request.size() > kMaximumRequestBytes || request.find('\0') != std::string_view::npos) {
    return ChannelFailureKind::kUnsendable;
  }
  if (_socket < 0) {
    if (const Failed failed = open(deadline)) return failed;
  }
  const Frame frame{FrameKind::kQuestion, ++_number, {{"request", std::string(request)}}};
  if (const Failed failed = send(FrameWrite(frame), deadline)) return failed;
  return receiveReply(frame.number, reply, deadline);
}

ChannelResult Connection::exchange(std::string_view request, milliseconds timeout) {
  std::string reply;
  const Failed failed = ask(request, reply, steady_clock::now() + timeout);
  if (!failed) return reply;
  close();
  return ChannelFailure{*failed, Describe(*failed, _path, _openError, timeout)};
}

}  // namespace client
