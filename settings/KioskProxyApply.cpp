// Writing the proxies into the network preferences.
#include "core/KioskDaemon.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskVersion.h"
#include "settings/KioskNetworkService.h"
#include "settings/KioskProxy.h"

namespace {

using platform::NetworkPreferences;
using platform::NetworkProtocol;
using platform::NetworkService;

// Changes what the mode says; the other modes' values stay, switched off.
void SetProxies(const Json& proxy, Json& configuration) {
  const bool manual = proxy["mode"] == "manual";
  const bool automatic = proxy["mode"] == "auto";
  configuration[platform::kProxiesHttpEnable] = manual;
  configuration[platform::kProxiesHttpsEnable] = manual;
  configuration[platform::kProxiesAutoConfigEnable] = automatic;
  if (manual) {
    configuration[platform::kProxiesHttpProxy] = proxy["host"];
    configuration[platform::kProxiesHttpsProxy] = proxy["host"];
    configuration[platform::kProxiesHttpPort] = proxy["port"];
    configuration[platform::kProxiesHttpsPort] = proxy["port"];
    configuration[platform::kProxiesExceptionsList] = proxy["bypass"];
    configuration[platform::kProxiesExcludeSimpleHostnames] = proxy["excludeSimple"];
  }
  if (automatic) configuration[platform::kProxiesAutoConfigUrl] = proxy["pacUrl"];
}

bool Change(const NetworkService& service, const Json& proxy) {
  const std::optional<NetworkProtocol> proxies =
      KioskNetworkProtocol(service, platform::kNetworkProtocolProxies);
  if (!proxies) return false;
  Json configuration = proxies->configuration().value_or(Json::object());
  SetProxies(proxy, configuration);
  return proxies->setConfiguration(configuration);
}

// Changes every enabled service; `count` tells how many could be. True when all could and there is
// one.
bool ChangeAll(const NetworkPreferences& preferences, const Json& proxy, std::size_t& count) {
  bool failed = false;
  for (const NetworkService& service :
       preferences.currentServices().value_or(std::vector<NetworkService>())) {
    if (!service.enabled()) continue;
    if (Change(service, proxy)) {
      ++count;
    } else {
      failed = true;
    }
  }
  return count > 0 && !failed;
}

std::string Summary(const Json& proxy) {
  if (proxy["mode"] == "auto") return "PAC";
  if (proxy["mode"] == "none") return "none";
  return KioskMessage("%@:%@, %lu bypass", proxy["host"].get<std::string>(),
                      KioskDescription(proxy["port"]), proxy["bypass"].size());
}

}  // namespace

KioskError KioskProxyApply(const Json& proxy) {
  std::optional<NetworkPreferences> preferences = NetworkPreferences::create(kKioskServiceName);
  if (!preferences) return "failed";
  if (!preferences->lock(true)) {
    KioskLogError("proxy.set: cannot lock network preferences: %s",
                  platform::NetworkPreferencesError());
    return "failed";
  }
  std::size_t count = 0;
  if (ChangeAll(*preferences, proxy, count) && preferences->commitChanges() &&
      preferences->applyChanges()) {
    preferences->unlock();
    KioskLog("proxy set on %lu service(s): %@", count, Summary(proxy));
    return std::nullopt;
  }
  KioskLogError("proxy.set: %s (%lu service(s) set)", platform::NetworkPreferencesError(), count);
  preferences->unlock();
  return "failed";
}

Json KioskDaemon::proxySet(const Json& request, KioskPeer peer) {
  if (!mayChangeSettings(request, peer)) return KioskFailure("not_unlocked");
  const std::optional<Json> proxy = KioskProxyParse(request);
  if (!proxy) return KioskFailure("invalid");
  if (const KioskError error = KioskProxyApply(*proxy)) return KioskFailure(*error);
  return KioskSuccess();
}
