#include <atomic>
#include <future>
#include <map>
#include <thread>

#include "tests/platform/NetworkOfAMac.h"

namespace platform {
namespace {

using contract::kEthernet;
using contract::kWiFi;
using contract::NewSession;
using contract::ProtocolOf;
using contract::ServiceOf;

constexpr char kInvalidArgument[] = "Invalid argument";

/// Any Mac's preferences can be read, by anybody.
class NetworkOfThisMac : public contract::World {};

TEST_F(NetworkOfThisMac, CanBeRead) {
  const NetworkPreferences session = NewSession();
  const auto services = session.currentServices();
  if (!services) return;
  for (const NetworkService& service : *services) {
    EXPECT_NE(service.bsdName(), "");
    (void)service.enabled();
    const std::optional<NetworkProtocol> ipv4 = service.protocol(kNetworkProtocolIPv4);
    if (ipv4 && ipv4->configuration()) {
      EXPECT_TRUE(ipv4->configuration()->contains(kIPv4ConfigMethod));
    }
  }
}

class Network : public contract::ChangingWorld {
 protected:
  void SetUp() override {
    ChangingWorld::SetUp();
    if (!IsSkipped()) setNetworkPreferences(contract::NetworkOfAMac());
  }

  /// What everybody sees of a service.
  Json committed(const std::string& service = kEthernet) {
    return networkPreferences()["NetworkServices"][service];
  }

  /// Stores a configuration for Ethernet, as everybody sees it then.
  Json stored(const char* type, const std::optional<Json>& configuration) {
    const NetworkPreferences session = NewSession();
    EXPECT_TRUE(ProtocolOf(session, type).setConfiguration(configuration));
    EXPECT_TRUE(session.commitChanges());
    return committed()[type];
  }
};

TEST_F(Network, HasTheServicesOfTheCurrentSet) {
  const NetworkPreferences session = NewSession();
  const auto services = session.currentServices();
  ASSERT_TRUE(services);
  std::map<std::string, bool> enabled;
  for (const NetworkService& service : *services) {
    enabled[service.bsdName().value_or("none")] = service.enabled();
  }
  EXPECT_EQ(enabled, (std::map<std::string, bool>{{"en0", true}, {"en1", false}, {"none", true}}));
}

TEST_F(Network, HasNoServicesWithoutACurrentSet) {
  for (const Json& set : {Json(), Json("/Sets/B")}) {
    Json mac = contract::NetworkOfAMac();
    mac.erase("CurrentSet");
    if (!set.is_null()) mac["CurrentSet"] = set;
    setNetworkPreferences(mac);
    EXPECT_FALSE(NewSession().currentServices()) << set;
    EXPECT_EQ(NetworkPreferencesError(), "No such key");
  }
}

TEST_F(Network, MayHaveACurrentSetWithoutServices) {
  setNetworkPreferences({{"CurrentSet", "/Sets/A"}, {"Sets", {{"A", Json::object()}}}});
  const auto services = NewSession().currentServices();
  ASSERT_TRUE(services);
  EXPECT_TRUE(services->empty());
}

TEST_F(Network, HasAServicesConfigurations) {
  const NetworkPreferences session = NewSession();
  EXPECT_EQ(ProtocolOf(session, kNetworkProtocolIPv4).configuration(),
            Json({{kIPv4ConfigMethod, kIPv4ConfigMethodDhcp}}));
  EXPECT_EQ(ProtocolOf(session, kNetworkProtocolProxies).configuration(), committed()["Proxies"]);
  EXPECT_EQ(ProtocolOf(session, kNetworkProtocolDns).configuration(), std::nullopt);
}

TEST_F(Network, HasNoProtocolThatAServiceLacks) {
  const NetworkPreferences session = NewSession();
  EXPECT_FALSE(ServiceOf(session, "en1").protocol(kNetworkProtocolDns));
  EXPECT_EQ(NetworkPreferencesError(), "No such key");
  EXPECT_FALSE(ServiceOf(session).protocol("Interface"));
  EXPECT_EQ(NetworkPreferencesError(), kInvalidArgument);
}

TEST_F(Network, KeepsChangesToTheirSessionUntilTheyAreCommitted) {
  const NetworkPreferences session = NewSession();
  const Json changed = {{kDnsServerAddresses, {"192.0.2.53", "2001:db8::53"}}};
  ASSERT_TRUE(ProtocolOf(session, kNetworkProtocolDns).setConfiguration(changed));
  EXPECT_EQ(ProtocolOf(session, kNetworkProtocolDns).configuration(), changed);
  EXPECT_EQ(ProtocolOf(NewSession(), kNetworkProtocolDns).configuration(), std::nullopt);
  ASSERT_TRUE(session.commitChanges());
  ASSERT_TRUE(session.applyChanges());
  EXPECT_EQ(ProtocolOf(NewSession(), kNetworkProtocolDns).configuration(), changed);
  Json expected = contract::NetworkOfAMac();
  expected["NetworkServices"][kEthernet]["DNS"] = changed;
  EXPECT_EQ(networkPreferences(), expected);
}

TEST_F(Network, ForgetsWhatIsNotCommitted) {
  ASSERT_TRUE(ProtocolOf(NewSession(), kNetworkProtocolIPv4).setConfiguration(std::nullopt));
  EXPECT_EQ(networkPreferences(), contract::NetworkOfAMac());
}

TEST_F(Network, ReplacesAConfigurationWhole) {
  const Json manual = {{kIPv4ConfigMethod, kIPv4ConfigMethodManual},
                       {kIPv4Addresses, {"192.0.2.10"}},
                       {kIPv4SubnetMasks, {"255.255.255.0"}},
                       {kIPv4Router, "192.0.2.1"}};
  EXPECT_EQ(stored(kNetworkProtocolIPv4, manual), manual);
  const Json automatic = {{kIPv4ConfigMethod, kIPv4ConfigMethodDhcp}};
  EXPECT_EQ(stored(kNetworkProtocolIPv4, automatic), automatic);
  EXPECT_EQ(stored(kNetworkProtocolIPv4, std::nullopt), Json::object());
}

TEST_F(Network, TakesNumbersForTheFlagsOfProxies) {
  const Json flags = {{kProxiesHttpEnable, true},
                      {kProxiesHttpsEnable, true},
                      {kProxiesAutoConfigEnable, false},
                      {kProxiesExcludeSimpleHostnames, false},
                      {"Other", true},
                      {kProxiesHttpPort, 3128}};
  const Json proxies = stored(kNetworkProtocolProxies, flags);
  EXPECT_EQ(proxies, Json({{kProxiesHttpEnable, 1},
                           {kProxiesHttpsEnable, 1},
                           {kProxiesAutoConfigEnable, 0},
                           {kProxiesExcludeSimpleHostnames, 0},
                           {"Other", true},
                           {kProxiesHttpPort, 3128}}));
}

TEST_F(Network, KeepsWhetherAProtocolIsEnabled) {
  const Json dhcp = {{kIPv4ConfigMethod, kIPv4ConfigMethodDhcp}};
  const Json disabled = {{kIPv4ConfigMethod, kIPv4ConfigMethodDhcp}, {"__INACTIVE__", true}};
  EXPECT_EQ(stored(kNetworkProtocolIPv4, disabled), dhcp);
  const NetworkPreferences session = NewSession();
  const NetworkProtocol ipv4 = ProtocolOf(session, kNetworkProtocolIPv4);
  ASSERT_TRUE(ipv4.setEnabled(false));
  EXPECT_EQ(ipv4.configuration(), disabled);
  ASSERT_TRUE(ipv4.setConfiguration(dhcp));
  EXPECT_EQ(ipv4.configuration(), disabled);
  ASSERT_TRUE(ipv4.setConfiguration(std::nullopt));
  EXPECT_EQ(ipv4.configuration(), std::nullopt);
  ASSERT_TRUE(session.commitChanges());
  EXPECT_EQ(committed()["IPv4"], Json({{"__INACTIVE__", true}}));
  ASSERT_TRUE(ipv4.setEnabled(true));
  ASSERT_TRUE(session.commitChanges());
  EXPECT_EQ(committed()["IPv4"], Json::object());
}

TEST_F(Network, GivesAServiceAProtocolThatItLacks) {
  const NetworkPreferences session = NewSession();
  const NetworkService wiFi = ServiceOf(session, "en1");
  for (const char* type : {kNetworkProtocolDns, kNetworkProtocolProxies, "IPv6", "SMB"}) {
    EXPECT_FALSE(wiFi.protocol(type)) << type;
    ASSERT_TRUE(wiFi.addProtocolType(type)) << type;
    EXPECT_TRUE(wiFi.protocol(type)) << type;
  }
  const Json servers = {{kDnsServerAddresses, {"192.0.2.53"}}};
  ASSERT_TRUE(wiFi.protocol(kNetworkProtocolDns)->setConfiguration(servers));
  ASSERT_TRUE(session.commitChanges());
  const Json service = committed(kWiFi);
  EXPECT_EQ(service["DNS"], servers);
  EXPECT_EQ(service["Proxies"],
            Json({{kProxiesExceptionsList, {"*.local", "169.254/16"}}, {"FTPPassive", 1}}));
  EXPECT_EQ(service["IPv6"], Json({{"ConfigMethod", "Automatic"}}));
  EXPECT_EQ(service["SMB"], Json::object());
  EXPECT_EQ(service["__INACTIVE__"], true);
}

TEST_F(Network, GivesAServiceNoProtocolTwiceAndNoneThatItDoesNotKnow) {
  const NetworkPreferences session = NewSession();
  EXPECT_FALSE(ServiceOf(session).addProtocolType(kNetworkProtocolIPv4));
  EXPECT_EQ(NetworkPreferencesError(), "Key already defined");
  EXPECT_FALSE(ServiceOf(session).addProtocolType("AppleTalk"));
  EXPECT_EQ(NetworkPreferencesError(), kInvalidArgument);
}

TEST_F(Network, RefusesAConfigurationThatCannotBeStored) {
  const NetworkPreferences session = NewSession();
  const NetworkProtocol ipv4 = ProtocolOf(session, kNetworkProtocolIPv4);
  for (const Json& wrong :
       {Json(nullptr), Json::array({1}), Json("text"), Json({{"a", {1, nullptr}}}),
        Json({{"a", "\xFF"}}), Json({{"\xFF", 1}})}) {
    EXPECT_FALSE(ServiceOf(session).addProtocolType(kNetworkProtocolDns));  // another error
    EXPECT_FALSE(ipv4.setConfiguration(wrong));
    EXPECT_EQ(NetworkPreferencesError(), kInvalidArgument);
  }
  EXPECT_EQ(ipv4.configuration(), Json({{kIPv4ConfigMethod, kIPv4ConfigMethodDhcp}}));
}

TEST_F(Network, RefusesToLockWhatHasChangedSinceItWasRead) {
  const NetworkPreferences late = NewSession();
  const NetworkPreferences unread = NewSession();
  const NetworkProtocol dns = ProtocolOf(late, kNetworkProtocolDns);
  stored(kNetworkProtocolIPv4, std::nullopt);
  EXPECT_FALSE(late.lock(true));
  EXPECT_EQ(NetworkPreferencesError(), "Write attempted on stale version of object");
  EXPECT_FALSE(late.unlock());
  ASSERT_TRUE(dns.setConfiguration(Json{{"a", 1}}));
  EXPECT_FALSE(late.commitChanges());
  EXPECT_EQ(committed()["DNS"], Json::object());
  EXPECT_TRUE(unread.lock(false));
}

TEST_F(Network, MayBeChangedByASessionAgain) {
  const NetworkPreferences session = NewSession();
  for (const char* server : {"192.0.2.1", "192.0.2.2"}) {
    ASSERT_TRUE(session.lock(true));
    const Json servers = {{kDnsServerAddresses, {server}}};
    ASSERT_TRUE(ProtocolOf(session, kNetworkProtocolDns).setConfiguration(servers));
    EXPECT_TRUE(session.commitChanges() && session.applyChanges());
    EXPECT_TRUE(session.unlock());
    EXPECT_EQ(committed()["DNS"], servers);
  }
}

using NetworkLock = Network;

TEST_F(NetworkLock, KeepsOthersWaiting) {
  const NetworkPreferences first = NewSession();
  ASSERT_TRUE(first.lock(true));
  std::promise<void> refused;
  std::atomic<bool> isOver = false;
  std::thread second([&] {
    const NetworkPreferences other = NewSession();
    EXPECT_FALSE(other.lock(false));
    EXPECT_EQ(NetworkPreferencesError(), "Preferences update currently in progress");
    refused.set_value();
    EXPECT_TRUE(other.lock(true));
    EXPECT_TRUE(isOver);
    EXPECT_EQ(ProtocolOf(other, kNetworkProtocolIPv4).configuration(), std::nullopt);
  });
  refused.get_future().wait();
  EXPECT_TRUE(ProtocolOf(first, kNetworkProtocolIPv4).setConfiguration(std::nullopt));
  EXPECT_TRUE(first.commitChanges());
  isOver = true;
  EXPECT_TRUE(first.unlock());
  second.join();
}

TEST_F(NetworkLock, IsTakenAndGivenBackOnce) {
  const NetworkPreferences session = NewSession();
  EXPECT_FALSE(session.unlock());
  EXPECT_EQ(NetworkPreferencesError(), "Lock required for this operation");
  ASSERT_TRUE(session.lock(false));
  EXPECT_FALSE(session.lock(true));
  EXPECT_EQ(NetworkPreferencesError(), "Lock already held");
  EXPECT_TRUE(session.unlock());
  EXPECT_FALSE(session.unlock());
}

TEST_F(NetworkLock, IsKeptThroughACommitOnlyByWhoHasIt) {
  const NetworkPreferences session = NewSession();
  const NetworkPreferences other = NewSession();
  EXPECT_TRUE(session.commitChanges() && session.applyChanges());
  ASSERT_TRUE(other.lock(false));
  EXPECT_TRUE(other.commitChanges() && other.applyChanges());
  EXPECT_FALSE(session.lock(false));
}

TEST_F(NetworkLock, EndsWithItsSession) {
  std::optional<NetworkPreferences> session = NewSession();
  ASSERT_TRUE(session->lock(true));
  NetworkPreferences moved = std::move(*session);
  session.reset();
  const NetworkPreferences other = NewSession();
  EXPECT_FALSE(other.lock(false));
  moved = NewSession();
  EXPECT_TRUE(other.lock(false));
}

TEST_F(Network, TellsEachThreadOfItsOwnFailures) {
  EXPECT_FALSE(NewSession().unlock());
  std::thread([] { EXPECT_EQ(NetworkPreferencesError(), "Success!"); }).join();
  EXPECT_NE(NetworkPreferencesError(), "Success!");
}

}  // namespace
}  // namespace platform
