// The command channel of a live daemon: a real listener, its queues and the channel's thread serve
// one daemon that was never enrolled, on a root of its own with no tool on it and no portal, for as
// long as the process lives. Each input is what one peer sends.
//
// An input's first byte chooses: when it is odd the rest is the text of one request, otherwise it
// is sent as it is; it goes out in pieces of half that byte's value, or whole when that is 0.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskListener.h"
#include "platform/simulated/ChannelFrame.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using platform::Frame;
using platform::FrameKind;
using platform::FrameState;

constexpr char kService[] = "com.brindlex.stream.kioskd";
constexpr char kSocket[] = "/private/var/run/com.brindlex.stream.kioskd.socket";
constexpr char kStateFile[] = "/Library/Application Support/Brindlex/Kiosk/state.json";
constexpr char kNoPortal[] = R"({"authBaseUrl": "http://no such host"})";
constexpr char kSignature[] =
    R"({"anchor": "apple generic", "identifier": "com.brindlex.stream", "team": "Q4ZT8K2M6R"})";
constexpr int kBacklog = 16;
constexpr int kGenerousMs = 50'000;
constexpr int kDescriptorsLookedAt = 256;
constexpr char kReplyKind = 3;

// The original root, and the made one as it is seen from there.
int g_outside = -1;
std::string g_folder;

void Leave() {
  if (fchdir(g_outside) != 0 || chroot(".") != 0) return;
  std::error_code ignored;
  std::filesystem::remove_all(g_folder, ignored);
}

/// Makes a root and enters it until the process ends; relative paths stay outside.
void EnterRoot() {
  g_folder = std::filesystem::temp_directory_path() / "kioskd-fuzz-XXXXXX";
  g_outside = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool entered = mkdtemp(g_folder.data()) != nullptr && chroot(g_folder.c_str()) == 0;
  FuzzExpect(entered, "the harness runs as root");
  std::atexit(Leave);
}

void WriteFile(const std::string& path, const char* text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path) << text;
}

sockaddr_un Address() {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, kSocket, sizeof address.sun_path - 1);
  return address;
}

int ListeningSocket() {
  std::filesystem::create_directories(std::filesystem::path(kSocket).parent_path());
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = Address();
  const bool listens =
      bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      listen(listener, kBacklog) == 0;
  FuzzExpect(listens, "the service has a socket");
  return listener;
}

/// Has this process be one that launchd started for the service and, as its peer, the application.
void BecomeTheService() {
  const std::string executable = std::filesystem::read_symlink("/proc/self/exe");
  const int proc = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  EnterRoot();
  setenv("SIMULATED_MAC_PROC", std::to_string(proc).c_str(), 1);
  WriteFile(executable + ".signature", kSignature);
  WriteFile(kStateFile, kNoPortal);
  const std::string service = std::string(kService) + "=" + std::to_string(ListeningSocket());
  setenv("SIMULATED_MAC_SERVICES", service.c_str(), 1);
}

/// A connection of the peer's.
class Peer {
 public:
  Peer() : _socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = Address();
    const bool connected =
        connect(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    FuzzExpect(connected, "the daemon takes connections");
  }
  ~Peer() { close(_socket); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  /// Nothing more is sent once the daemon has closed the connection.
  void send(std::string_view bytes, std::size_t piece) const {
    for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) {
      if (!sendWhole(bytes.substr(0, piece))) return;
    }
  }

  void endSending() const { shutdown(_socket, SHUT_WR); }

  /// The next reply, or nothing when the daemon closes the connection.
  std::optional<Frame> receive() const {
    const std::optional<std::string> head = read(4);
    if (!head) return std::nullopt;
    const std::uint32_t length = NumberAt(*head, 0);
    const std::optional<std::string> body = read(length);
    FuzzExpect(body && length >= 5 && body->front() == kReplyKind, "a reply is whole", length);
    return Frame{FrameKind::kReply, NumberAt(*body, 1), body->substr(5)};
  }

 private:
  static std::uint32_t NumberAt(const std::string& bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;) {
      number = (number << 8) | static_cast<unsigned char>(bytes[at + i]);
    }
    return number;
  }

  bool sendWhole(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent < 0 && errno == EINTR) continue;
      if (sent <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }

  std::optional<std::string> read(std::size_t count) const {
    std::string bytes(count, '\0');
    std::size_t have = 0;
    while (have < count) {
      pollfd waiting{_socket, POLLIN, 0};
      const int ready = poll(&waiting, 1, kGenerousMs);
      FuzzExpect(ready != 0, "every request is answered, and what cannot be ends the connection");
      const ssize_t got = ready < 0 ? -1 : recv(_socket, bytes.data() + have, count - have, 0);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return std::nullopt;
      have += static_cast<std::size_t>(got);
    }
    return bytes;
  }

  const int _socket;
};

std::string LittleEndian(std::size_t number) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) {
    bytes += static_cast<char>((number >> shift) & 0xFF);
  }
  return bytes;
}

/// The frame of a request with this text, which ends at its first zero byte.
std::string RequestFrame(std::uint32_t number, std::string_view text) {
  std::string body(1, static_cast<char>(FrameKind::kRequest));
  body += LittleEndian(number) + std::string("request") + '\0';
  body += std::string(text.substr(0, text.find('\0'))) + '\0';
  return LittleEndian(body.size()) + body;
}

/// What a stream asks for.
struct Asked {
  std::vector<Frame> requests;  ///< those that want a reply
  bool isBroken = false;        ///< it ends with what no peer may send
};

Asked AskedBy(std::string_view stream) {
  Asked asked;
  for (;;) {
    Frame frame{};
    const FrameState state = platform::TakeFrame(stream, frame);
    asked.isBroken = state == FrameState::kBroken;
    if (state != FrameState::kComplete) return asked;
    if (frame.kind == FrameKind::kRequest) asked.requests.push_back(std::move(frame));
  }
}

bool IsSnakeCase(const Json& code) {
  return code.is_string() && code != "" &&
         code.get_ref<const std::string&>().find_first_not_of(
             "abcdefghijklmnopqrstuvwxyz0123456789_") == std::string::npos;
}

/// A reply's text, which must say how it went.
std::string ResponseOf(const Frame& reply) {
  const std::string text = platform::FrameValue(reply.dictionary, "response").value_or("");
  const std::optional<Json> response = KioskJsonParse(text);
  FuzzExpect(response && response->is_object() && KioskMember(*response, "ok").is_boolean(),
             "a reply says whether it is ok", text);
  FuzzExpect((*response)["ok"] == true || IsSnakeCase(KioskMember(*response, "error")),
             "a failure has a code", text);
  return text;
}

/// The one reply to what was asked under this number is as its text demands.
void ExpectResponse(const Frame& request, const std::string& response) {
  const std::string text = platform::FrameValue(request.dictionary, "request").value_or("");
  const std::optional<Json> command = KioskJsonParse(text);
  if (command && command->is_object()) return;
  FuzzExpect(response == KioskReplyText(KioskFailure("bad_request")),
             "what is no JSON object is a bad request", text, response);
}

/// Takes the replies off the peer, each of which must be to one of the requests.
void ExpectReplies(const Peer& peer, Asked asked) {
  const std::vector<Frame> all = asked.requests;
  while (asked.isBroken || !asked.requests.empty()) {
    const std::optional<Frame> reply = peer.receive();
    FuzzExpect(reply || asked.isBroken, "every request has a reply", asked.requests.size());
    if (!reply) return;
    const std::string response = ResponseOf(*reply);
    const auto has = [&](const Frame& request) { return request.number == reply->number; };
    const auto request = std::find_if(asked.requests.begin(), asked.requests.end(), has);
    FuzzExpect(request != asked.requests.end(), "a reply is to a request, and the only one",
               reply->number, response);
    // Which of several requests of one number a reply is to, only their sender could know.
    if (std::count_if(all.begin(), all.end(), has) == 1) ExpectResponse(*request, response);
    asked.requests.erase(request);
  }
}

/// Nothing more comes, and the daemon closes when the peer does.
void ExpectEnd(const Peer& peer) {
  peer.endSending();
  FuzzExpect(!peer.receive(), "nobody is answered twice, or unasked");
}

/// The daemon and its listener, which live as long as the process: threads are at work at its end.
class Service {
 public:
  static Service& get() {
    static Service& service = *new Service;
    return service;
  }

  /// "status" is answered as the daemon has it.
  void expectStatus() const {
    _daemon->queue().sync([] {});  // what was asked of it before is over
    const Peer peer;
    peer.send(RequestFrame(1, R"({"cmd":"status"})"), std::string::npos);
    const std::optional<Frame> reply = peer.receive();
    FuzzExpect(reply && reply->number == 1, "the next peer is served");
    const std::string expected = _daemon->statusText(geteuid());
    FuzzExpect(ResponseOf(*reply) == expected, "the status is told as it is", expected);
    FuzzExpect(_daemon->status(geteuid()) == KioskJsonParse(expected), "its text is the snapshot's",
               expected);
    ExpectEnd(peer);
  }

 private:
  Service() {
    BecomeTheService();
    _daemon->queue().sync([this] { _daemon->start(); });
    _listener.emplace(KioskListen(_daemon));
    // Has whatever is made on first use made.
    const std::string begin = RequestFrame(0, R"({"cmd":"pair.begin"})");
    const Peer peer;
    peer.send(begin, begin.size());
    ExpectReplies(peer, AskedBy(begin));
    ExpectEnd(peer);
    expectStatus();
  }

  const std::shared_ptr<KioskDaemon> _daemon = std::make_shared<KioskDaemon>();
  std::optional<platform::ChannelListener> _listener;
};

int OpenDescriptors() {
  int count = 0;
  for (int each = 0; each < kDescriptorsLookedAt; ++each) {
    count += fcntl(each, F_GETFD) >= 0 ? 1 : 0;
  }
  return count;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Service& service = Service::get();
  const int descriptors = OpenDescriptors();
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string stream = data[0] % 2 == 1 ? RequestFrame(0, rest) : std::string(rest);
  const std::size_t piece = data[0] / 2 == 0 ? std::string::npos : data[0] / 2;
  {
    const Peer peer;
    peer.send(stream, piece);
    ExpectReplies(peer, AskedBy(stream));
    ExpectEnd(peer);
  }
  service.expectStatus();
  FuzzExpect(OpenDescriptors() <= descriptors, "no descriptor is left open");
  return 0;
}
