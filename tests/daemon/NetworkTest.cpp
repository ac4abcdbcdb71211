// Network adapters and proxies.
#include "platform/NetworkPreferences.h"
#include "platform/PropertyList.h"
#include "platform/simulated/MacFiles.h"
#include "settings/KioskNet.h"
#include "settings/KioskProxy.h"
#include "tests/daemon/SettingsTest.h"

namespace {

/// Services: en0, enabled, with DNS settings; en1, enabled, without DNS; bridge0, disabled.
class Network : public SettingsTest {
 protected:
  Network() { unlock(); }

  Json preferences() const {
    return platform::PropertyListParse(mac.read(platform::kMacNetworkPreferences)).value_or(Json());
  }

  void writePreferences(const Json& value) const {
    std::string error;
    mac.write(platform::kMacNetworkPreferences,
              *platform::PropertyListWrite(value, platform::PropertyListFormat::kXml, error));
  }

  /// The service of an adapter, the `number`th of those that have it.
  Json service(const std::string& adapter, int number = 0) const {
    const Json all = preferences();
    for (const Json& candidate : all["NetworkServices"]) {
      if (candidate["Interface"].value("DeviceName", "") == adapter && number-- == 0) {
        return candidate;
      }
    }
    return Json();
  }

  /// The service of a name that people see.
  Json named(const std::string& name) const {
    const Json all = preferences();
    for (const Json& candidate : all["NetworkServices"]) {
      if (candidate.value("UserDefinedName", "") == name) return candidate;
    }
    return Json();
  }

  void disableService(const std::string& name) const {
    Json all = preferences();
    for (Json& candidate : all["NetworkServices"]) {
      if (candidate.value("UserDefinedName", "") == name) candidate["__INACTIVE__"] = 1;
    }
    writePreferences(all);
  }

  /// Changes the stored service of an adapter.
  void changeService(const std::string& adapter, const Json& patch) const {
    Json all = preferences();
    for (Json& candidate : all["NetworkServices"]) {
      if (candidate["Interface"].value("DeviceName", "") == adapter) candidate.merge_patch(patch);
    }
    writePreferences(all);
  }

  void fail(const std::string& call, const std::vector<std::string>& arguments = {},
            const std::string& text = "No.") const {
    mac.addFault({{"target", call}, {"arguments", arguments}, {"times", 1}, {"errorOutput", text}});
  }

  /// Whether somebody else can have the lock at once.
  static bool isUnlocked() {
    const auto other = platform::NetworkPreferences::create("test");
    if (!other || !other->lock(false)) return false;
    return other->unlock();
  }
};

class Net : public Network {
 protected:
  static Json dhcp(const std::string& adapter = "en0") {
    return {{"cmd", "net.set"}, {"adapter", adapter}, {"mode", "dhcp"}};
  }

  static Json fixed(const Json& more = Json::object()) {
    Json request = {{"cmd", "net.set"},
                    {"adapter", "en0"},
                    {"mode", "static"},
                    {"ip", "192.0.2.7"},
                    {"prefix", 24}};
    request.update(more);
    return request;
  }

  /// The failure of a call leaves everything as it was.
  void expectFailure(const std::string& call, const std::vector<std::string>& arguments = {}) {
    const Json before = preferences();
    fail(call, arguments, call + " failed");
    EXPECT_EQ(sendUnlocked(fixed()), refused("failed")) << call;
    EXPECT_EQ(preferences(), before) << call;
    EXPECT_TRUE(isUnlocked()) << call;
    mac.clearFaults();
  }
};

TEST_F(Net, SetsAStaticAddress) {
  EXPECT_EQ(sendUnlocked(fixed({{"gateway", "192.0.2.1"}, {"dns", {"192.0.2.53", "9.9.9.9"}}})),
            done());
  EXPECT_EQ(service("en0")["IPv4"], (Json{{"ConfigMethod", "Manual"},
                                          {"Addresses", {"192.0.2.7"}},
                                          {"SubnetMasks", {"255.255.255.0"}},
                                          {"Router", "192.0.2.1"}}));
  EXPECT_EQ(service("en0")["DNS"]["ServerAddresses"], Json({"192.0.2.53", "9.9.9.9"}));
  EXPECT_EQ(mac.countLog("net.set en0: 192.0.2.7/24 gateway 192.0.2.1"), 1U);
  EXPECT_TRUE(isUnlocked());
}

TEST_F(Net, SetsAStaticAddressWithoutGateway) {
  changeService("en0", {{"IPv4", {{"Router", "10.0.0.1"}, {"ConfigMethod", "Manual"}}}});
  EXPECT_EQ(sendUnlocked(fixed()), done());
  EXPECT_FALSE(service("en0")["IPv4"].contains("Router"));  // replaced, not merged
  EXPECT_EQ(mac.countLog("net.set en0: 192.0.2.7/24 gateway none"), 1U);
}

TEST_F(Net, SetsDhcp) {
  ASSERT_EQ(sendUnlocked(fixed()), done());
  EXPECT_EQ(sendUnlocked(dhcp()), done());
  EXPECT_EQ(service("en0")["IPv4"], (Json{{"ConfigMethod", "DHCP"}}));
  EXPECT_EQ(mac.countLog("net.set en0: DHCP"), 1U);
}

TEST_F(Net, KeepsOtherNameServerSettings) {
  changeService("en0", {{"DNS", {{"SearchDomains", {"corp.example"}}}}});
  EXPECT_EQ(sendUnlocked(dhcp()), done());
  EXPECT_EQ(service("en0")["DNS"], (Json{{"SearchDomains", {"corp.example"}}}));
  Json request = dhcp();
  request["dns"] = {"192.0.2.53"};
  EXPECT_EQ(sendUnlocked(request), done());
  EXPECT_EQ(service("en0")["DNS"],
            (Json{{"SearchDomains", {"corp.example"}}, {"ServerAddresses", {"192.0.2.53"}}}));
}

TEST_F(Net, EmptiesNameServerSettingsThatHaveNothingLeft) {
  EXPECT_EQ(sendUnlocked(dhcp()), done());
  EXPECT_EQ(service("en0")["DNS"], Json::object());
}

TEST_F(Net, GivesAServiceTheNameServersThatItLacks) {
  Json request = dhcp("en1");
  request["dns"] = {"192.0.2.53"};
  EXPECT_EQ(sendUnlocked(request), done());
  EXPECT_EQ(service("en1")["DNS"], (Json{{"ServerAddresses", {"192.0.2.53"}}}));
}

TEST_F(Net, GivesAServiceTheAddressesThatItLacks) {
  changeService("en0", {{"IPv4", nullptr}});
  EXPECT_EQ(sendUnlocked(fixed()), done());
  EXPECT_EQ(service("en0")["IPv4"]["Addresses"], Json({"192.0.2.7"}));
}

TEST_F(Net, EnablesTheAddressesOfTheService) {
  changeService("en0", {{"IPv4", {{"__INACTIVE__", 1}}}});
  EXPECT_EQ(sendUnlocked(dhcp()), done());
  EXPECT_FALSE(service("en0")["IPv4"].contains("__INACTIVE__"));
}

TEST_F(Net, LeavesADisabledServiceDisabled) {
  EXPECT_EQ(sendUnlocked(dhcp("bridge0")), done());
  EXPECT_TRUE(service("bridge0").contains("__INACTIVE__"));
  EXPECT_EQ(service("bridge0")["IPv4"], (Json{{"ConfigMethod", "DHCP"}}));
}

TEST_F(Net, PrefersAnEnabledServiceOfTheAdapter) {
  changeService("en1", {{"Interface", {{"DeviceName", "en0"}}}, {"UserDefinedName", "second"}});
  disableService("Ethernet");
  const Json first = named("Ethernet");
  EXPECT_EQ(sendUnlocked(fixed()), done());
  EXPECT_EQ(named("Ethernet"), first);
  EXPECT_EQ(named("second")["IPv4"]["ConfigMethod"], "Manual");
}

TEST_F(Net, TakesTheFirstOfDisabledServicesOfTheAdapter) {
  changeService("en1", {{"Interface", {{"DeviceName", "en0"}}}, {"UserDefinedName", "second"}});
  disableService("Ethernet");
  disableService("second");
  const Json second = named("second");
  EXPECT_EQ(sendUnlocked(fixed()), done());
  EXPECT_EQ(named("Ethernet")["IPv4"]["ConfigMethod"], "Manual");
  EXPECT_EQ(named("second"), second);
}

TEST_F(Net, KnowsTheAdaptersOfTheCurrentSetOnly) {
  EXPECT_EQ(sendUnlocked(dhcp("en7")), refused("unknown_adapter"));
  Json all = preferences();
  all.erase("CurrentSet");
  writePreferences(all);
  EXPECT_EQ(sendUnlocked(dhcp()), refused("unknown_adapter"));
  EXPECT_TRUE(isUnlocked());
}

TEST_F(Net, RefusesInvalidRequestsWithoutTouchingAnything) {
  const Json before = preferences();
  for (const Json& request :
       {dhcp("EN0"), dhcp("en"), dhcp("abcdefghijklm1"), fixed({{"ip", "127.0.0.1"}}),
        fixed({{"prefix", 33}}), fixed({{"prefix", true}}), fixed({{"ip", "192.0.2.255"}}),
        fixed({{"gateway", "198.51.100.1"}}), fixed({{"mode", "auto"}}),
        fixed({{"dns", {"224.0.0.1"}}})}) {
    EXPECT_EQ(sendUnlocked(request), refused("invalid")) << request;
  }
  EXPECT_EQ(preferences(), before);
}

TEST_F(Net, CommitsNothingAfterAFailure) {
  expectFailure("network.setConfiguration", {"IPv4"});
  expectFailure("network.setEnabled", {"IPv4"});
  expectFailure("network.setConfiguration", {"DNS"});
  expectFailure("network.commit");
  for (const char* call : {"network.setConfiguration", "network.setEnabled", "network.commit"}) {
    EXPECT_GE(mac.countErrors("net.set en0: " + std::string(call) + " failed"), 1U) << call;
  }
}

TEST_F(Net, SaysThatTheSystemDidNotTakeUpWhatWasCommitted) {
  fail("network.apply", {}, "Not now");
  EXPECT_EQ(sendUnlocked(fixed()), refused("failed"));
  EXPECT_EQ(mac.countErrors("net.set en0: Not now"), 1U);
  EXPECT_TRUE(isUnlocked());
}

TEST_F(Net, FailsWithoutPreferences) {
  fail("network.create");
  EXPECT_EQ(sendUnlocked(dhcp()), refused("failed"));
  EXPECT_TRUE(mac.log().empty());
}

TEST_F(Net, FailsWithoutTheLock) {
  fail("network.lock", {}, "Busy");
  EXPECT_EQ(sendUnlocked(dhcp()), refused("failed"));
  EXPECT_EQ(mac.countErrors("net.set: cannot lock network preferences: Busy"), 1U);
}

TEST_F(Net, FailsWithoutAProtocol) {
  fail("network.addProtocolType", {"DNS"});
  EXPECT_EQ(sendUnlocked(dhcp("en1")), refused("failed"));
  changeService("en0", {{"IPv4", nullptr}});
  fail("network.addProtocolType", {"IPv4"});
  EXPECT_EQ(sendUnlocked(dhcp()), refused("failed"));
  EXPECT_TRUE(isUnlocked());
}

TEST_F(Net, NeedsNoTerminalThatIsSetUp) {
  mac.addFault({{"target", kFdesetup}, {"status", 0}, {"output", "FileVault is On."}});
  provision();
  mac.clearFaults();
  EXPECT_EQ(sendUnlocked(dhcp()), done());
}

class Proxy : public Network {
 protected:
  Json set(const Json& keys) {
    Json request = {{"cmd", "proxy.set"}};
    request.update(keys);
    return sendUnlocked(request);
  }

  Json proxies(const std::string& adapter) const { return service(adapter)["Proxies"]; }

  void expectFailure(const std::string& call, const std::vector<std::string>& arguments = {}) {
    const Json before = preferences();
    fail(call, arguments, call + " failed");
    EXPECT_EQ(set({{"mode", "none"}}), refused("failed")) << call;
    EXPECT_EQ(preferences(), before) << call;
    EXPECT_TRUE(isUnlocked()) << call;
    mac.clearFaults();
  }
};

TEST_F(Proxy, SetsOneServerForEveryEnabledService) {
  EXPECT_EQ(set({{"mode", "manual"},
                 {"server", "HTTP://Proxy:8080/"},
                 {"bypass", "<local>; *.corp,10.0.0.0/8 10.0.0.0/8"}}),
            done());
  for (const char* adapter : {"en0", "en1"}) {
    const Json found = proxies(adapter);
    EXPECT_EQ(found, (Json{{"HTTPEnable", 1},
                           {"HTTPSEnable", 1},
                           {"ProxyAutoConfigEnable", 0},
                           {"HTTPProxy", "proxy"},
                           {"HTTPSProxy", "proxy"},
                           {"HTTPPort", 8080},
                           {"HTTPSPort", 8080},
                           {"ExceptionsList", {"*.corp", "10.0.0.0/8"}},
                           {"ExcludeSimpleHostnames", 1},
                           {"FTPPassive", 1}}))
        << found;
    EXPECT_TRUE(found["HTTPEnable"].is_number()) << "the system takes no boolean";
  }
  EXPECT_FALSE(proxies("bridge0").contains("HTTPProxy"));
  EXPECT_EQ(mac.countLog("proxy set on 2 service(s): proxy:8080, 2 bypass"), 1U);
  EXPECT_TRUE(isUnlocked());
}

TEST_F(Proxy, SetsAConfigurationFile) {
  EXPECT_EQ(set({{"mode", "auto"}, {"pacUrl", "HTTPS://PAC.Example:8443/Proxy.PAC?A=b"}}), done());
  EXPECT_EQ(proxies("en0")["ProxyAutoConfigEnable"], 1);
  EXPECT_EQ(proxies("en0")["ProxyAutoConfigURLString"], "https://pac.example:8443/Proxy.PAC?A=b");
  EXPECT_EQ(proxies("en0")["HTTPEnable"], 0);
  EXPECT_EQ(mac.countLog("proxy set on 2 service(s): PAC"), 1U);
}

TEST_F(Proxy, SwitchesOffWhatItLeavesInPlace) {
  set({{"mode", "manual"}, {"server", "proxy:8080"}});
  set({{"mode", "auto"}, {"pacUrl", "http://pac.example/"}});
  EXPECT_EQ(proxies("en0")["HTTPProxy"], "proxy");
  EXPECT_EQ(proxies("en0")["HTTPSEnable"], 0);
  set({{"mode", "manual"}, {"server", "proxy:8080"}});
  EXPECT_EQ(proxies("en0")["ProxyAutoConfigURLString"], "http://pac.example/");
  EXPECT_EQ(proxies("en0")["ProxyAutoConfigEnable"], 0);
  EXPECT_EQ(set({{"mode", "none"}}), done());
  const Json found = proxies("en0");
  EXPECT_EQ(found["HTTPEnable"], 0);
  EXPECT_EQ(found["HTTPSEnable"], 0);
  EXPECT_EQ(found["ProxyAutoConfigEnable"], 0);
  EXPECT_EQ(found["HTTPProxy"], "proxy");
  EXPECT_EQ(found["HTTPPort"], 8080);
  EXPECT_EQ(found["ProxyAutoConfigURLString"], "http://pac.example/");
  EXPECT_EQ(mac.countLog("proxy set on 2 service(s): none"), 1U);
}

TEST_F(Proxy, CountsTheServicesThatAreEnabled) {
  changeService("en1", {{"__INACTIVE__", 1}});
  EXPECT_EQ(set({{"mode", "none"}}), done());
  EXPECT_EQ(mac.countLog("proxy set on 1 service(s): none"), 1U);
}

TEST_F(Proxy, GivesAServiceTheProxiesThatItLacks) {
  changeService("en1", {{"Proxies", nullptr}});
  EXPECT_EQ(set({{"mode", "none"}}), done());
  EXPECT_EQ(proxies("en1")["HTTPEnable"], 0);
}

TEST_F(Proxy, FailsWithoutAnEnabledService) {
  for (const char* adapter : {"en0", "en1"}) changeService(adapter, {{"__INACTIVE__", 1}});
  EXPECT_EQ(set({{"mode", "none"}}), refused("failed"));
  EXPECT_EQ(mac.log().size(), 1U);
  EXPECT_EQ(mac.log().back().level, "Error");
  EXPECT_TRUE(mac.log().back().text.starts_with("proxy.set: ") &&
              mac.log().back().text.ends_with(" (0 service(s) set)"));
  Json all = preferences();
  all.erase("CurrentSet");
  writePreferences(all);
  EXPECT_EQ(set({{"mode", "none"}}), refused("failed"));
  EXPECT_TRUE(isUnlocked());
}

TEST_F(Proxy, ChangesEveryServiceOrNone) {
  // The first service fails, and the other one is tried all the same.
  changeService("en0", {{"Proxies", nullptr}});
  expectFailure("network.addProtocolType", {"Proxies"});
  EXPECT_EQ(mac.countErrors("proxy.set: network.addProtocolType failed (1 service(s) set)"), 1U);
  changeService("en0", {{"Proxies", Json::object()}});
  expectFailure("network.setConfiguration", {"Proxies"});
  expectFailure("network.commit");
  EXPECT_EQ(mac.countErrors("proxy.set: network.commit failed (2 service(s) set)"), 1U);
}

TEST_F(Proxy, SaysThatTheSystemDidNotTakeUpWhatWasCommitted) {
  fail("network.apply", {}, "Not now");
  EXPECT_EQ(set({{"mode", "none"}}), refused("failed"));
  EXPECT_EQ(mac.countErrors("proxy.set: Not now (2 service(s) set)"), 1U);
  EXPECT_TRUE(isUnlocked());
}

TEST_F(Proxy, NeedsNoTerminalThatIsSetUp) {
  mac.addFault({{"target", kFdesetup}, {"status", 0}, {"output", "FileVault is On."}});
  provision();
  mac.clearFaults();
  EXPECT_EQ(set({{"mode", "none"}}), done());
}

TEST_F(Proxy, FailsWithoutPreferencesOrLock) {
  fail("network.create");
  EXPECT_EQ(set({{"mode", "none"}}), refused("failed"));
  EXPECT_TRUE(mac.log().empty());
  fail("network.lock", {}, "Busy");
  EXPECT_EQ(set({{"mode", "none"}}), refused("failed"));
  EXPECT_EQ(mac.countErrors("proxy.set: cannot lock network preferences: Busy"), 1U);
}

TEST_F(Proxy, RefusesInvalidRequestsWithoutTouchingAnything) {
  const Json before = preferences();
  for (const Json& keys : {Json{{"mode", "other"}}, Json{{"mode", "manual"}, {"server", "proxy"}},
                           Json{{"mode", "manual"}, {"server", "proxy:0"}},
                           Json{{"mode", "manual"}, {"server", "proxy:8080"}, {"bypass", 7}},
                           Json{{"mode", "auto"}, {"pacUrl", "ftp://pac.example/"}},
                           Json{{"mode", "auto"}}, Json::object()}) {
    EXPECT_EQ(set(keys), refused("invalid")) << keys;
  }
  EXPECT_EQ(preferences(), before);
}

}  // namespace
