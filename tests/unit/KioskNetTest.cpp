#include <gtest/gtest.h>

#include <string>

#include "core/KioskJson.h"
#include "settings/KioskNet.h"
#include "tests/unit/NetworkRequestRules.h"
#include "tests/unit/NetworkRules.h"
#include "tests/unit/RandomJson.h"

namespace {

std::optional<std::uint32_t> Quad(const Json& value) {
  std::uint32_t address = 0;
  if (!KioskParseQuad(value, address)) return std::nullopt;
  return address;
}

Json Dhcp() { return {{"adapter", "en0"}, {"mode", "dhcp"}}; }

Json Static(const char* ip, const Json& prefix) {
  return {{"adapter", "en0"}, {"mode", "static"}, {"ip", ip}, {"prefix", prefix}};
}

Json With(Json request, const char* key, const Json& value) {
  request[key] = value;
  return request;
}

Json Routed(const char* ip, int prefix, const Json& gateway) {
  return With(Static(ip, prefix), "gateway", gateway);
}

bool IsValid(const Json& request) { return KioskNetParse(request).has_value(); }

TEST(Quad, ReadsFourNumbersTheFirstInTheHighestByte) {
  EXPECT_EQ(Quad("1.2.3.4"), 0x01020304U);
  EXPECT_EQ(Quad("0.0.0.0"), 0U);
  EXPECT_EQ(Quad("255.255.255.255"), 0xFFFFFFFFU);
  EXPECT_EQ(Quad("192.168.10.100"), 0xC0A80A64U);
}

TEST(Quad, RefusesWhatIsNoAddress) {
  for (const char* text :
       {"010.1.1.1", "1.1.1.00", "1.2.3",    "1.2.3.4.5",   "256.1.1.1", "1.1.1.999", "1..2.3",
        ".1.2.3",    "1.2.3.",   " 1.2.3.4", "1.2.3.4 ",    "1.2.3.4\n", "1.2.3.-4",  "+1.2.3.4",
        "0x1.2.3.4", "1",        "16909060", "1000.1.1.1",  "",          ".",         "...",
        "a.b.c.d",   "1,2,3,4",  "::1",      "1.2.3.\uFF14"}) {
    EXPECT_EQ(Quad(text), std::nullopt) << testing::PrintToString(text);
  }
  EXPECT_EQ(Quad(std::string("1.2.3.4\0", 8)), std::nullopt);
}

TEST(Quad, RefusesWhatIsNotText) {
  for (const char* text : {"null", "1", "1.2", "true", "[1,2,3,4]", "{}", "[\"1.2.3.4\"]"}) {
    EXPECT_EQ(Quad(Json::parse(text)), std::nullopt) << text;
  }
}

TEST(Quad, LeavesTheResultAloneWhenItRefuses) {
  std::uint32_t address = 42;
  EXPECT_FALSE(KioskParseQuad("1.2.3.256", address));
  EXPECT_FALSE(KioskParseQuad("1.2.3.4.5", address));
  EXPECT_FALSE(KioskParseQuad(7, address));
  EXPECT_EQ(address, 42U);
}

TEST(Quad, AgreesWithTheListOnRandomText) {
  Random random(41);
  int accepted = 0;
  for (int round = 0; round < 20'000; ++round) {
    const std::string text =
        random.oneIn(4) ? random.text("0125.", random.below(12)) : NearlyQuad(random);
    const std::optional<std::uint32_t> expected = QuadByTheList(text);
    accepted += expected ? 1 : 0;
    ASSERT_EQ(Quad(text), expected) << testing::PrintToString(text);
  }
  EXPECT_GT(accepted, 2'000);
  EXPECT_LT(accepted, 18'000);
}

TEST(QuadString, WritesPlainDecimals) {
  EXPECT_EQ(KioskQuadString(0), "0.0.0.0");
  EXPECT_EQ(KioskQuadString(0x01020304), "1.2.3.4");
  EXPECT_EQ(KioskQuadString(0xC0A80A64), "192.168.10.100");
  EXPECT_EQ(KioskQuadString(0xFFFFFFFF), "255.255.255.255");
}

TEST(QuadString, IsReadBackAsTheSameAddress) {
  Random random(42);
  for (int round = 0; round < 20'000; ++round) {
    const auto address = static_cast<std::uint32_t>(random.bits());
    ASSERT_EQ(Quad(KioskQuadString(address)), address);
  }
}

TEST(NetRequest, IsAnObject) {
  for (const char* text : {"null", "true", "1", "\"dhcp\"", "[]", "[\"en0\",\"dhcp\"]", "{}"}) {
    EXPECT_FALSE(IsValid(Json::parse(text))) << text;
  }
}

TEST(NetRequest, NamesAnAdapter) {
  for (const char* adapter : {"en0", "bridge100", "a0", "abcdefghijkl1234", "utun9999"}) {
    EXPECT_EQ(KioskNetParse(With(Dhcp(), "adapter", adapter)),
              (Json{{"adapter", adapter}, {"dhcp", true}, {"dns", Json::array()}}));
  }
  for (const Json& adapter :
       {Json("EN0"), Json("en"), Json("abcdefghijklm0"), Json("en12345"), Json("0"), Json("0en"),
        Json(""), Json("en0\n"), Json(" en0"), Json("en0x"), Json("en 0"), Json("\u00E9n0"),
        Json("en\uFF10"), Json(), Json(0), Json(true), Json::array({"en0"})}) {
    EXPECT_FALSE(IsValid(With(Dhcp(), "adapter", adapter))) << adapter;
  }
}

TEST(NetRequest, IsDhcpOrStatic) {
  EXPECT_TRUE(IsValid(Static("192.168.1.10", 24)));
  for (const Json& mode : {Json("DHCP"), Json("manual"), Json(""), Json("dhcp\n"), Json(),
                           Json(true), Json(0), Json::array({"dhcp"})}) {
    EXPECT_FALSE(IsValid(With(Static("192.168.1.10", 24), "mode", mode))) << mode;
  }
}

TEST(NetRequest, TakesUpToFourNameServers) {
  const Json four = {"1.1.1.1", "9.9.9.9", "10.0.0.1", "223.255.255.255"};
  EXPECT_EQ((*KioskNetParse(With(Dhcp(), "dns", four)))["dns"], four);
  EXPECT_FALSE(
      IsValid(With(Dhcp(), "dns", {"1.1.1.1", "1.1.1.1", "1.1.1.1", "1.1.1.1", "1.1.1.1"})));
}

TEST(NetRequest, MayHaveNoNameServers) {
  for (const Json& none : {Json(), Json::array()}) {
    EXPECT_EQ((*KioskNetParse(With(Dhcp(), "dns", none)))["dns"], Json::array());
  }
}

TEST(NetRequest, KeepsEachNameServerOnceWhereItStoodFirst) {
  EXPECT_EQ((*KioskNetParse(With(Dhcp(), "dns", {"1.1.1.1", "1.1.1.1"})))["dns"],
            Json::array({"1.1.1.1"}));
  EXPECT_EQ((*KioskNetParse(With(Dhcp(), "dns", {"9.9.9.9", "1.1.1.1", "9.9.9.9"})))["dns"],
            Json({"9.9.9.9", "1.1.1.1"}));
}

TEST(NetRequest, RefusesNameServersThatAreNone) {
  for (const Json& server :
       {Json("127.0.0.1"), Json("224.0.0.1"), Json("0.1.2.3"), Json("255.255.255.255"),
        Json("dns.example.com"), Json("1.1.1"), Json(""), Json("::1"), Json(), Json(1)}) {
    EXPECT_FALSE(IsValid(With(Dhcp(), "dns", Json::array({"1.1.1.1", server})))) << server;
  }
  for (const Json& dns : {Json("1.1.1.1"), Json(false), Json(0), Json::object()}) {
    EXPECT_FALSE(IsValid(With(Dhcp(), "dns", dns))) << dns;
  }
}

TEST(NetRequest, IgnoresAddressesInDhcpMode) {
  Json request = Dhcp();
  request["ip"] = "not an address";
  request["prefix"] = 99;
  request["gateway"] = true;
  EXPECT_EQ(KioskNetParse(request), KioskNetParse(Dhcp()));
}

TEST(NetRequest, HasAnAddressAndItsMaskInStaticMode) {
  EXPECT_EQ(KioskNetParse(Static("192.168.1.10", 24)), (Json{{"adapter", "en0"},
                                                             {"dhcp", false},
                                                             {"dns", Json::array()},
                                                             {"ip", "192.168.1.10"},
                                                             {"prefix", 24},
                                                             {"mask", "255.255.255.0"}}));
}

TEST(NetRequest, RequiresAUsableAddressInStaticMode) {
  for (const char* ip : {"1.0.0.1", "126.255.255.254", "128.0.0.1", "223.255.255.254"}) {
    EXPECT_TRUE(IsValid(Static(ip, 8))) << ip;
  }
  for (const char* ip : {"0.0.0.1", "127.0.0.1", "224.0.0.1", "240.0.0.1", "255.255.255.255",
                         "192.168.1", "192.168.01.1", ""}) {
    EXPECT_FALSE(IsValid(Static(ip, 8))) << ip;
  }
  Json without = Static("192.168.1.10", 24);
  without.erase("ip");
  EXPECT_FALSE(IsValid(without));
}

TEST(NetRequest, HasAMaskForEveryPrefix) {
  const auto mask = [](int prefix) { return (*KioskNetParse(Static("10.1.2.3", prefix)))["mask"]; };
  EXPECT_EQ(mask(1), "128.0.0.0");
  EXPECT_EQ(mask(8), "255.0.0.0");
  EXPECT_EQ(mask(23), "255.255.254.0");
  EXPECT_EQ(mask(31), "255.255.255.254");
  EXPECT_EQ(mask(32), "255.255.255.255");
}

TEST(NetRequest, RequiresAPrefixOf1To32) {
  EXPECT_EQ(KioskNetParse(Static("10.1.2.3", 24.0))->dump(),
            KioskNetParse(Static("10.1.2.3", 24))->dump());
  for (const char* text : {"0", "33", "-1", "24.5", "\"24\"", "true", "null", "[24]", "1e300",
                           "4294967320", "18446744073709551615"}) {
    EXPECT_FALSE(IsValid(Static("10.1.2.3", Json::parse(text)))) << text;
  }
}

TEST(NetRequest, RefusesTheSubnetsFirstAndLastAddress) {
  EXPECT_FALSE(IsValid(Static("192.168.1.0", 24)));
  EXPECT_FALSE(IsValid(Static("192.168.1.255", 24)));
  EXPECT_FALSE(IsValid(Static("192.168.1.4", 30)));
  EXPECT_FALSE(IsValid(Static("192.168.1.7", 30)));
  EXPECT_TRUE(IsValid(Static("192.168.1.1", 24)));
  EXPECT_TRUE(IsValid(Static("192.168.1.254", 24)));
  EXPECT_TRUE(IsValid(Static("192.168.1.6", 30)));
}

TEST(NetRequest, AcceptsAnyAddressOfTheSmallestSubnets) {
  EXPECT_TRUE(IsValid(Static("192.168.1.0", 31)));
  EXPECT_TRUE(IsValid(Static("192.168.1.1", 31)));
  EXPECT_TRUE(IsValid(Static("10.0.0.0", 32)));
  EXPECT_TRUE(IsValid(Routed("192.168.1.0", 31, "192.168.1.1")));
}

TEST(NetRequest, TakesAGatewayOfTheSameSubnet) {
  EXPECT_EQ((*KioskNetParse(Routed("192.168.1.10", 24, "192.168.1.1")))["gateway"], "192.168.1.1");
  EXPECT_FALSE(IsValid(Routed("192.168.1.10", 24, "192.168.2.1")));
  EXPECT_FALSE(IsValid(Routed("192.168.1.10", 24, "192.168.1.10")));
  EXPECT_FALSE(IsValid(Routed("192.168.1.10", 24, "192.168.1.0")));
  EXPECT_FALSE(IsValid(Routed("192.168.1.10", 24, "192.168.1.255")));
  EXPECT_FALSE(IsValid(Routed("192.168.1.10", 32, "192.168.1.1")));
  EXPECT_FALSE(IsValid(Routed("126.1.1.1", 1, "127.0.0.1")));
}

TEST(NetRequest, MayHaveNoGateway) {
  for (const Json& none : {Json(), Json("")}) {
    EXPECT_EQ(KioskNetParse(Routed("192.168.1.10", 24, none)),
              KioskNetParse(Static("192.168.1.10", 24)));
  }
  for (const Json& gateway : {Json(" "), Json("none"), Json(false), Json(0), Json::array()}) {
    EXPECT_FALSE(IsValid(Routed("192.168.1.10", 24, gateway))) << gateway;
  }
}

/// An address of few subnets, so that addresses often meet, at their ends in particular.
Json NearbyAddress(Random& random) {
  static const std::vector<std::string> subnets{"192.168.1.", "192.168.1.", "10.0.0."};
  static const std::vector<std::string> hosts{"0", "1", "2", "3", "10", "127", "254", "255"};
  if (random.oneIn(16)) return NearlyQuad(random);
  return random.pick(subnets) + random.pick(hosts);
}

Json NearlyServers(Random& random) {
  Json servers = Json::array();
  for (std::size_t count = random.oneIn(10) ? 5 : random.below(5); count > 0; --count) {
    servers.push_back(random.oneIn(40) ? Json(NearlyQuad(random)) : NearbyAddress(random));
  }
  return servers;
}

Json NearlyRequest(Random& random) {
  static const std::vector<Json> adapters{"en0", "en0", "bridge100", "EN0", "en", "en00000"};
  static const std::vector<Json> modes{"static", "static", "static", "static", "static", "dhcp"};
  static const std::vector<Json> prefixes{24, 24, 24.0, 16, 8, 1, 23, 25, 29, 30, 31, 32};
  static const std::vector<Json> odd{0, 33, -1, 24.5};
  Json request = Json::object();
  request["adapter"] = random.oneIn(6) ? random.pick(adapters) : Json("en0");
  request["mode"] = UsuallyOneOf(random, modes);
  if (random.oneIn(3)) request["dns"] = UsuallyOneOf(random, {NearlyServers(random)});
  UsuallyPut(random, request, "ip", UsuallyOneOf(random, {NearbyAddress(random)}));
  UsuallyPut(random, request, "prefix", UsuallyOneOf(random, random.oneIn(20) ? odd : prefixes));
  if (random.oneIn(2)) {
    request["gateway"] =
        UsuallyOneOf(random, {NearbyAddress(random), NearbyAddress(random), "192.168.1.1", ""});
  }
  return request;
}

/// The request that asks for `network`.
Json RequestFor(const Json& network) {
  Json request = network;
  request["mode"] = network["dhcp"] == true ? "dhcp" : "static";
  return request;
}

TEST(NetRequest, AgreesWithTheTableOnRandomRequests) {
  Random random(43);
  int accepted = 0;
  int routed = 0;
  for (int round = 0; round < 10'000; ++round) {
    const Json given = NearlyRequest(random);
    const std::optional<Json> expected = NetworkByTheTable(given);
    const std::optional<Json> network = KioskNetParse(given);
    ASSERT_EQ(network, expected) << given;
    if (!network) continue;
    ++accepted;
    routed += network->contains("gateway") ? 1 : 0;
    ASSERT_EQ(network->dump(), expected->dump()) << given;
    ASSERT_EQ(KioskNetParse(RequestFor(*network)), *network) << given;
  }
  EXPECT_GT(accepted, 1'000);
  EXPECT_LT(accepted, 9'000);
  EXPECT_GT(routed, 150);
}

TEST(NetRequest, RefusesOrParsesWhateverTheValueIs) {
  Random random(44);
  for (int round = 0; round < 2'000; ++round) {
    const Json given = AnyJson(random, 4);
    ASSERT_EQ(KioskNetParse(given), NetworkByTheTable(given)) << given;
    const Json request = {{"adapter", "en0"},
                          {"mode", "static"},
                          {"dns", AnyJson(random, 2)},
                          {"ip", "10.0.0.5"},
                          {"prefix", AnyJson(random, 1)},
                          {"gateway", AnyJson(random, 1)}};
    ASSERT_EQ(KioskNetParse(request), NetworkByTheTable(request)) << request;
  }
}

}  // namespace
