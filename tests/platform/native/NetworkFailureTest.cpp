#include "tests/native/Doubles.h"
#include "tests/platform/NetworkOfAMac.h"

namespace platform {
namespace {

using contract::NewSession;
using contract::ProtocolOf;
using contract::ServiceOf;

class NetworkFailure : public contract::World {
 protected:
  NetworkFailure() { setNetworkPreferences(contract::NetworkOfAMac()); }

  /// Has the next call of a function fail, and expects that to be the reason that is given.
  template <class Call>
  static void expect(const char* function, Call call) {
    native::Fail(function, 1, std::string("no ") + function);
    EXPECT_FALSE(call()) << function;
    EXPECT_EQ(NetworkPreferencesError(), std::string("no ") + function);
  }
};

TEST_F(NetworkFailure, OfASessionSaysWhy) {
  expect("SCPreferencesCreate", [] { return NetworkPreferences::create("name").has_value(); });
  const NetworkPreferences session = NewSession();
  expect("SCPreferencesLock", [&] { return session.lock(true); });
  ASSERT_TRUE(session.lock(true));
  expect("SCPreferencesCommitChanges", [&] { return session.commitChanges(); });
  expect("SCPreferencesApplyChanges", [&] { return session.applyChanges(); });
  expect("SCNetworkSetCopyCurrent", [&] { return session.currentServices().has_value(); });
  expect("SCNetworkSetCopyServices", [&] { return session.currentServices().has_value(); });
  expect("SCPreferencesUnlock", [&] { return session.unlock(); });
}

TEST_F(NetworkFailure, OfAServiceSaysWhy) {
  const NetworkPreferences session = NewSession();
  const NetworkService service = ServiceOf(session);
  expect("SCNetworkServiceGetInterface", [&] { return service.bsdName().has_value(); });
  expect("SCNetworkInterfaceGetBSDName", [&] { return service.bsdName().has_value(); });
  expect("SCNetworkServiceGetEnabled", [&] { return service.enabled(); });
  expect("SCNetworkServiceCopyProtocol", [&] { return service.protocol("DNS").has_value(); });
  expect("SCNetworkServiceAddProtocolType", [&] { return service.addProtocolType("IPv6"); });
}

TEST_F(NetworkFailure, OfAProtocolSaysWhy) {
  const NetworkPreferences session = NewSession();
  const NetworkProtocol ipv4 = ProtocolOf(session, kNetworkProtocolIPv4);
  expect("SCNetworkProtocolGetConfiguration", [&] { return ipv4.configuration().has_value(); });
  expect("SCNetworkProtocolSetConfiguration", [&] { return ipv4.setConfiguration(std::nullopt); });
  expect("SCNetworkProtocolSetEnabled", [&] { return ipv4.setEnabled(true); });
  EXPECT_TRUE(ipv4.configuration());
}

TEST_F(NetworkFailure, OfATextIsAnInvalidArgument) {
  const NetworkPreferences session = NewSession();
  const NetworkService service = ServiceOf(session);
  for (const char* text : {"DNS", "\xFF"}) {
    const auto expectRefusal = [&](auto call) {
      EXPECT_FALSE(session.unlock());  // another error
      if (*text == 'D') native::Fail("CFStringCreateWithBytes");
      EXPECT_FALSE(call());
      EXPECT_EQ(NetworkPreferencesError(), "Invalid argument");
    };
    expectRefusal([&] { return NetworkPreferences::create(text).has_value(); });
    expectRefusal([&] { return service.protocol(text).has_value(); });
    expectRefusal([&] { return service.addProtocolType(text); });
  }
}

TEST_F(NetworkFailure, OfAConfigurationsMemoryChangesAndLeaksNothing) {
  const NetworkPreferences session = NewSession();
  const NetworkProtocol ipv4 = ProtocolOf(session, kNetworkProtocolIPv4);
  const std::string before = native::LiveObjects();
  const Json configuration = {{"list", {"text"}}, {"number", 1}, {kProxiesHttpEnable, true}};
  for (const auto& [function, calls] :
       {std::pair("CFStringCreateWithBytes", 4), std::pair("CFNumberCreate", 2),
        std::pair("CFArrayCreateMutable", 1), std::pair("CFDictionaryCreateMutable", 1)}) {
    for (int number = 1; number <= calls; ++number) {
      native::Fail(function, number);
      EXPECT_FALSE(ipv4.setConfiguration(configuration)) << function << ' ' << number;
      EXPECT_EQ(native::LiveObjects(), before) << function << ' ' << number;
    }
  }
  EXPECT_EQ(ipv4.configuration(), Json({{"ConfigMethod", "DHCP"}}));
}

TEST_F(NetworkFailure, OfOthersThanRoot) {
  native::TheMac().isRoot = false;
  const NetworkPreferences session = NewSession();
  EXPECT_TRUE(ServiceOf(session).enabled());
  EXPECT_FALSE(session.lock(true));
  EXPECT_EQ(NetworkPreferencesError(), "Permission denied");
  EXPECT_FALSE(session.commitChanges());
  EXPECT_FALSE(session.applyChanges());
}

TEST_F(NetworkFailure, LeavesAProtocolWhenItsServiceHasGone) {
  const NetworkPreferences session = NewSession();
  std::optional<NetworkProtocol> dns;
  {
    const NetworkService service = ServiceOf(session);
    dns = service.protocol(kNetworkProtocolDns);
  }
  EXPECT_TRUE(dns->setConfiguration(Json{{"SearchDomains", {"a.example"}}}));
  EXPECT_EQ(dns->configuration(), Json({{"SearchDomains", {"a.example"}}}));
}

}  // namespace
}  // namespace platform
