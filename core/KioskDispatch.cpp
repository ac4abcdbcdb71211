// The command table.
#include <algorithm>
#include <array>
#include <string_view>

#include "core/KioskDaemon.h"
#include "core/KioskJson.h"

namespace {

struct Command {
  std::string_view name;
  Json (*handler)(KioskDaemon& daemon, const Json& request, KioskPeer peer);
};

constexpr std::array<Command, 16> kCommands{{
    {"status",
     [](KioskDaemon& daemon, const Json&, KioskPeer peer) { return daemon.status(peer.uid); }},
    {"pair.begin", [](KioskDaemon& daemon, const Json&, KioskPeer) { return daemon.pairBegin(); }},
    {"pair.check", [](KioskDaemon& daemon, const Json& request,
                      KioskPeer) { return daemon.pairCheck(KioskMember(request, "code")); }},
    {"restart.now", [](KioskDaemon& daemon, const Json&,
                       KioskPeer peer) { return daemon.restartNowRequest(peer.uid); }},
    {"maintenance", [](KioskDaemon& daemon, const Json& request,
                       KioskPeer peer) { return daemon.maintenance(request, peer); }},
    {"unlock",
     [](KioskDaemon& daemon, const Json& request, KioskPeer peer) {
       return daemon.unlock(KioskMember(request, "password"), peer);
     }},
    {"net.set", [](KioskDaemon& daemon, const Json& request,
                   KioskPeer peer) { return daemon.netSet(request, peer); }},
    {"time.zone", [](KioskDaemon& daemon, const Json& request,
                     KioskPeer peer) { return daemon.timeZone(request, peer); }},
    {"time.sync", [](KioskDaemon& daemon, const Json& request,
                     KioskPeer peer) { return daemon.timeSync(request, peer); }},
    {"time.get", [](KioskDaemon& daemon, const Json& request,
                    KioskPeer peer) { return daemon.timeGet(request, peer); }},
    {"power.get",
     [](KioskDaemon& daemon, const Json& request, KioskPeer peer) {
       return daemon.unlocked(KioskMember(request, "unlockToken"), peer)
                  ? daemon.powerPayload()
                  : KioskFailure("not_unlocked");
     }},
    {"power.set", [](KioskDaemon& daemon, const Json& request,
                     KioskPeer peer) { return daemon.powerSet(request, peer); }},
    {"proxy.set", [](KioskDaemon& daemon, const Json& request,
                     KioskPeer peer) { return daemon.proxySet(request, peer); }},
    {"os.updates", [](KioskDaemon& daemon, const Json& request,
                      KioskPeer peer) { return daemon.osUpdates(request, peer); }},
    {"os.install", [](KioskDaemon& daemon, const Json& request,
                      KioskPeer peer) { return daemon.osInstall(request, peer); }},
    {"session.report", [](KioskDaemon& daemon, const Json& request,
                          KioskPeer peer) { return daemon.sessionReport(request, peer); }},
}};

}  // namespace

Json KioskDaemon::handle(const Json& request, KioskPeer peer) {
  const Json& cmd = KioskMember(request, "cmd");
  const std::string name = cmd.is_string() ? cmd.get<std::string>() : "";
  const auto command = std::find_if(kCommands.begin(), kCommands.end(),
                                    [&](const Command& row) { return row.name == name; });
  if (command == kCommands.end()) return KioskFailure("unknown_command");
  return command->handler(*this, request, peer);
}
