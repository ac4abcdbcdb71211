// A Mac's network for the tests of its preferences.
#pragma once

#include <optional>
#include <string>

#include "platform/NetworkPreferences.h"
#include "tests/platform/World.h"

namespace contract {

inline constexpr char kEthernet[] = "6041302F-809B-4C13-A0EF-544D1D109C5F";
inline constexpr char kWiFi[] = "0B8A1B5C-6F0A-4B39-9B1D-1C5C6B7F0001";
inline constexpr char kModem[] = "60300836-8EF5-4BA0-9C85-E9A9ED93B8CB";

/// The file of a Mac that has Ethernet (en0) with a proxy, Wi-Fi (en1), disabled and without DNS,
/// and a modem without an interface.
inline Json NetworkOfAMac() {
  const Json list = {"*.local", "169.254/16"};
  Json mac = {{"CurrentSet", "/Sets/A"}, {"Sets", {{"A", {{"UserDefinedName", "Automatic"}}}}}};
  for (const char* id : {kEthernet, kWiFi, kModem}) {
    mac["Sets"]["A"]["Network"]["Service"][id]["__LINK__"] = std::string("/NetworkServices/") + id;
    mac["NetworkServices"][id] = {{"IPv4", {{"ConfigMethod", "DHCP"}}}, {"DNS", Json::object()}};
  }
  mac["Sets"]["A"]["Network"]["Global"]["IPv4"]["ServiceOrder"] = {kModem, kEthernet, kWiFi};
  Json& services = mac["NetworkServices"];
  services[kEthernet]["Interface"] = {{"DeviceName", "en0"}, {"Type", "Ethernet"}};
  services[kEthernet]["Proxies"] = {
      {"ExceptionsList", list}, {"FTPPassive", 1}, {"HTTPEnable", 1}, {"HTTPProxy", "p.example"}};
  services[kWiFi]["Interface"] = {{"DeviceName", "en1"}, {"Type", "Ethernet"}};
  services[kWiFi]["__INACTIVE__"] = true;
  services[kWiFi].erase("DNS");
  return mac;
}

/// A session with the preferences.
inline platform::NetworkPreferences NewSession() {
  std::optional<platform::NetworkPreferences> session =
      platform::NetworkPreferences::create("com.brindlex.stream.contract");
  EXPECT_TRUE(session);
  return std::move(*session);
}

/// The service with a BSD name, or without one; it must be there.
inline platform::NetworkService ServiceOf(const platform::NetworkPreferences& session,
                                          const std::optional<std::string>& bsdName = "en0") {
  const auto services = session.currentServices();
  for (const platform::NetworkService& service : *services) {
    if (service.bsdName() == bsdName) return service;
  }
  ADD_FAILURE() << "there is no such service";
  return services->front();
}

/// A protocol of a service; it must be there.
inline platform::NetworkProtocol ProtocolOf(const platform::NetworkPreferences& session,
                                            const char* type) {
  const std::optional<platform::NetworkProtocol> protocol = ServiceOf(session).protocol(type);
  EXPECT_TRUE(protocol) << type;
  return *protocol;
}

}  // namespace contract
