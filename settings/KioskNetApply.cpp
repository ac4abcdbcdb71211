// Writing one adapter's configuration into the network preferences.
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"
#include "settings/KioskNet.h"
#include "settings/KioskNetworkService.h"

namespace {

using platform::NetworkPreferences;
using platform::NetworkProtocol;
using platform::NetworkService;

// An enabled service of the adapter, or else a disabled one.
std::optional<NetworkService> ServiceOf(const NetworkPreferences& preferences,
                                        const std::string& adapter) {
  std::optional<NetworkService> found;
  for (const NetworkService& service :
       preferences.currentServices().value_or(std::vector<NetworkService>())) {
    if (service.bsdName() != adapter) continue;
    if (service.enabled()) return service;
    if (!found) found = service;
  }
  return found;
}

// Replaces what was there.
Json IPv4Configuration(const Json& network) {
  if (network["dhcp"] == true) {
    return {{platform::kIPv4ConfigMethod, platform::kIPv4ConfigMethodDhcp}};
  }
  Json configuration = {{platform::kIPv4ConfigMethod, platform::kIPv4ConfigMethodManual},
                        {platform::kIPv4Addresses, Json::array({network["ip"]})},
                        {platform::kIPv4SubnetMasks, Json::array({network["mask"]})}};
  if (network.contains("gateway")) configuration[platform::kIPv4Router] = network["gateway"];
  return configuration;
}

// Keeps other settings, such as search domains.
std::optional<Json> DnsConfiguration(const NetworkProtocol& dns, const Json& servers) {
  Json configuration = dns.configuration().value_or(Json::object());
  configuration.erase(platform::kDnsServerAddresses);
  if (!servers.empty()) configuration[platform::kDnsServerAddresses] = servers;
  return configuration.empty() ? std::nullopt : std::optional(configuration);
}

// The order is binding: nothing is committed after a failure.
KioskError Change(const NetworkPreferences& preferences, const Json& network) {
  const std::string adapter = network["adapter"];
  const std::optional<NetworkService> service = ServiceOf(preferences, adapter);
  if (!service) return "unknown_adapter";
  const auto ipv4 = KioskNetworkProtocol(*service, platform::kNetworkProtocolIPv4);
  const auto dns = KioskNetworkProtocol(*service, platform::kNetworkProtocolDns);
  if (!ipv4 || !dns) return "failed";
  const std::optional<Json> dnsConfiguration = DnsConfiguration(*dns, network["dns"]);
  if (ipv4->setConfiguration(IPv4Configuration(network)) && ipv4->setEnabled(true) &&
      dns->setConfiguration(dnsConfiguration) && preferences.commitChanges() &&
      preferences.applyChanges()) {
    return std::nullopt;
  }
  KioskLogError("net.set %@: %s", adapter, platform::NetworkPreferencesError());
  return "failed";
}

void LogChange(const Json& network) {
  const std::string adapter = network["adapter"];
  if (network["dhcp"] == true) return KioskLog("net.set %@: %@", adapter, "DHCP");
  const Json& gateway = KioskMember(network, "gateway");
  KioskLog("net.set %@: %@", adapter,
           KioskMessage("%@/%@ gateway %@", network["ip"].get<std::string>(),
                        KioskDescription(network["prefix"]),
                        gateway.is_null() ? "none" : gateway.get<std::string>()));
}

}  // namespace

KioskError KioskNetApply(const Json& network) {
  std::optional<NetworkPreferences> preferences = NetworkPreferences::create(kKioskServiceName);
  if (!preferences) return "failed";
  if (!preferences->lock(true)) {
    KioskLogError("net.set: cannot lock network preferences: %s",
                  platform::NetworkPreferencesError());
    return "failed";
  }
  KioskError error = Change(*preferences, network);
  preferences->unlock();
  if (!error) LogChange(network);
  return error;
}

Json KioskDaemon::netSet(const Json& request, KioskPeer peer) {
  if (!mayChangeSettings(request, peer)) return KioskFailure("not_unlocked");
  const std::optional<Json> network = KioskNetParse(request);
  if (!network) return KioskFailure("invalid");
  if (const KioskError error = KioskNetApply(*network)) return KioskFailure(*error);
  return KioskSuccess();
}
