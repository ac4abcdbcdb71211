// "status", and a command that is refused: the daemon's command channel beside a bare socket,
// sd-bus, a dbus-daemon and gRPC.
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

#include "tests/bench/BenchMac.h"
#include "tests/bench/Echo.h"
#include "tests/bench/Grpc.h"
#include "tests/bench/Measure.h"
#include "tests/bench/SdBus.h"
#include "tests/bench/Server.h"

namespace {

constexpr int kRounds = 15;
constexpr int kTrips = 1000;
constexpr int kConnections = 200;
constexpr double kMicroseconds = 1e6;
constexpr char kUnit[] = "µs";

const Json kStatus = {{"cmd", "status"}};
const Json kRefused = {{"cmd", "net.set"}, {"unlockToken", "none"}};

std::string RequestFrame(const Json& request) {
  return ChannelClient::frame(kMessageWithReply, 1, {{"request", request.dump()}});
}

// The daemon's reply to the frame, as it came.
std::string ReplyFrame(const std::string& socket, const std::string& request) {
  const int connection = ConnectTo(socket);
  std::string length(4, '\0');
  if (!WriteAll(connection, request) || !ReadAll(connection, length)) Fail("no reply");
  std::size_t size = 0;
  for (int byte = 3; byte >= 0; --byte) {
    size = size * 256 + static_cast<unsigned char>(length[static_cast<std::size_t>(byte)]);
  }
  std::string rest(size, '\0');
  if (!ReadAll(connection, rest)) Fail("half a reply");
  close(connection);
  return length + rest;
}

/// Somebody whose round trips are measured, over one connection or with a connection each.
template <class Client, class... Arguments>
Contender Kept(const std::string& name, const Arguments&... arguments) {
  auto client = std::make_shared<Client>(arguments...);
  return {name, [client] { return kMicroseconds * SecondsEach(kTrips, [&] { client->ask(); }); }};
}

template <class Client, class... Arguments>
Contender Each(const std::string& name, const Arguments&... arguments) {
  return {name, [arguments...] {
            return kMicroseconds * SecondsEach(kConnections, [&] { Client(arguments...).ask(); });
          }};
}

/// A request and its reply, and everybody who serves them.
class Exchange {
 public:
  Exchange(const BenchMac& mac, const Json& request)
      : _daemon(mac.socket()),
        _folder(mac.mac.root() + "/private/var/tmp"),
        _frame(RequestFrame(request)),
        _reply(ReplyFrame(_daemon, _frame)),
        _text(request.dump()),
        _replyText(mac.ask(request).dump()),
        _echo(path("echo"), [this] { ServeEcho(path("echo"), _frame, _reply); }),
        _sdBus(path("sdbus"), [this] { ServeSdBus(path("sdbus"), _replyText); }),
        _dbusDaemon(path("dbus"), [this] { RunDbusDaemon(path("dbus")); }),
        _dbus(path("ready"), [this] { ServeDbus(path("dbus"), path("ready"), _replyText); }),
        _grpc(path("grpc"), [this] { ServeGrpc(path("grpc"), _replyText); }) {}

  std::vector<Contender> kept() const {
    return {Kept<EchoClient>("kioskd", _daemon, _frame, _reply),
            Kept<EchoClient>("raw echo", path("echo"), _frame, _reply),
            Kept<SdBusClient>("sd-bus", path("sdbus"), false, _text, _replyText),
            Kept<SdBusClient>("dbus-daemon", path("dbus"), true, _text, _replyText),
            Kept<GrpcClient>("gRPC", path("grpc"), _text, _replyText)};
  }
  std::vector<Contender> each() const {
    return {Each<EchoClient>("kioskd", _daemon, _frame, _reply),
            Each<EchoClient>("raw echo", path("echo"), _frame, _reply),
            Each<SdBusClient>("sd-bus", path("sdbus"), false, _text, _replyText),
            Each<SdBusClient>("dbus-daemon", path("dbus"), true, _text, _replyText),
            Each<GrpcClient>("gRPC", path("grpc"), _text, _replyText)};
  }
  Contender daemon() const { return Kept<EchoClient>("kioskd", _daemon, _frame, _reply); }
  Contender echo() const { return Kept<EchoClient>("raw echo", path("echo"), _frame, _reply); }

 private:
  std::string path(const std::string& name) const { return _folder + "/" + name; }

  std::string _daemon;
  std::string _folder;
  std::string _frame;
  std::string _reply;
  std::string _text;
  std::string _replyText;
  Server _echo;
  Server _sdBus;
  Server _dbusDaemon;
  Server _dbus;
  Server _grpc;
};

std::vector<double> DaemonSamples(const BenchMac& mac, const Json& request) {
  const std::string frame = RequestFrame(request);
  const Contender daemon =
      Kept<EchoClient>("kioskd", mac.socket(), frame, ReplyFrame(mac.socket(), frame));
  return SampleInTurn(kRounds, {daemon})[0].values;
}

// A new daemon, which checks in at once.
void ReplaceDaemon(const BenchMac& mac) {
  mac.killDaemon();
  const bool isBack =
      Eventually([&] { return mac.daemonPid() > 1 && mac.ask(kStatus)["ok"] == true; });
  if (!isBack) Fail("the daemon does not come back");
}

void CompareBusy(const BenchMac& mac, const std::string& name, const std::vector<double>& idle) {
  Print({"status, work queue " + name, kUnit, "within 10 % of an idle one", 1.1},
        {{"kioskd, busy", DaemonSamples(mac, kStatus)}, {"kioskd, idle", idle}});
}

// The queue is in the exchange for as long as a command of another connection gets no reply.
void CompareDuringAnExchange(const BenchMac& mac) {
  const std::vector<double> idle = DaemonSamples(mac, kStatus);
  mac.portal.admin({"misbehave", "slow", "--delay-ms", "14000", "--path", "/api/kiosk/check-in"});
  ReplaceDaemon(mac);
  const int waiting = ConnectTo(mac.socket());
  if (!WriteAll(waiting, RequestFrame(kRefused))) Fail("a connection broke");
  CompareBusy(mac, "in an exchange", idle);
  char byte = 0;
  if (recv(waiting, &byte, 1, MSG_DONTWAIT) >= 0) Fail("the work queue was not in an exchange");
  close(waiting);
  mac.portal.admin({"misbehave", "none"});
}

// A session that does not end keeps the teardown waiting.
void CompareDuringALogOut(BenchMac& mac) {
  mac.restartMac();
  ReplaceDaemon(mac);
  const std::vector<double> idle = DaemonSamples(mac, kStatus);
  mac.mac.addFault({{"target", "/bin/launchctl"}, {"arguments", {"bootout"}}});
  mac.portal.admin({"revoke", "Lobby"});
  ReplaceDaemon(mac);
  const bool isWaiting =
      Eventually([&] { return mac.mac.countRuns("/bin/launchctl", {"bootout"}) > 0; });
  if (!isWaiting) Fail("nobody is logged out");
  CompareBusy(mac, "in a log-out", idle);
}

}  // namespace

int main() {
  BenchMac mac;
  {
    const Exchange status(mac, kStatus);
    const std::string goal = "≤ 1.5 × echo, ahead of sd-bus";
    Compare({"status, kept connection", kUnit, goal, 1.5}, kRounds, status.kept());
    Compare({"status, a connection each", kUnit, goal, 1.5}, kRounds, status.each());
    if (mac.ask(kRefused)["error"] != "not_unlocked") Fail("the command is not refused");
    const Exchange refused(mac, kRefused);
    Compare({"a refused command", kUnit, "≤ 2 × echo", 2}, kRounds,
            {refused.daemon(), refused.echo()});
  }
  CompareDuringAnExchange(mac);
  CompareDuringALogOut(mac);
}
