#include "settings/KioskNet.h"

#include <algorithm>
#include <string_view>

#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "settings/KioskPower.h"

namespace {

constexpr std::size_t kLongestAdapterName = 12;
constexpr std::size_t kLongestAdapterNumber = 4;
constexpr std::size_t kMostServers = 4;
constexpr std::int64_t kLongestPrefix = 32;
constexpr std::int64_t kLongestPrefixWithBroadcast = 30;

bool IsLower(char c) { return c >= 'a' && c <= 'z'; }

// "^[a-z]{1,12}[0-9]{1,4}$"
bool IsAdapter(const Json& value) {
  if (!value.is_string()) return false;
  const std::string& text = value.get_ref<const std::string&>();
  const auto digits = std::find_if_not(text.begin(), text.end(), IsLower);
  const auto name = static_cast<std::size_t>(digits - text.begin());
  const std::size_t number = text.size() - name;
  return name >= 1 && name <= kLongestAdapterName && number >= 1 &&
         number <= kLongestAdapterNumber && std::all_of(digits, text.end(), KioskIsDigit);
}

// One number of a dotted address.
bool TakeOctet(std::string_view& text, std::uint32_t& octet) {
  const std::string_view part = text.substr(0, text.find('.'));
  if (part.empty() || part.size() > 3 || (part.size() > 1 && part[0] == '0')) return false;
  if (!std::all_of(part.begin(), part.end(), KioskIsDigit)) return false;
  octet = 0;
  for (const char digit : part) octet = octet * 10 + static_cast<std::uint32_t>(digit - '0');
  text.remove_prefix(part.size());
  return octet <= 255;
}

// An address that a host can have: neither loopback nor beyond unicast.
bool IsUsable(const Json& value, std::uint32_t& address) {
  if (!KioskParseQuad(value, address)) return false;
  const std::uint32_t first = address >> 24;
  return first >= 1 && first <= 223 && first != 127;
}

std::optional<Json> ServersFrom(const Json& value) {
  Json servers = Json::array();
  if (value.is_null()) return servers;
  if (!value.is_array() || value.size() > kMostServers) return std::nullopt;
  for (const Json& element : value) {
    std::uint32_t address = 0;
    if (!IsUsable(element, address)) return std::nullopt;
    const Json server = KioskQuadString(address);
    if (std::find(servers.begin(), servers.end(), server) == servers.end()) {
      servers.push_back(server);
    }
  }
  return servers;
}

struct Subnet {
  std::int64_t prefix;
  std::uint32_t mask;
  std::uint32_t network;

  // Whether an address of the subnet names a host; the smallest subnets have no others.
  bool isHost(std::uint32_t address) const {
    return prefix > kLongestPrefixWithBroadcast ||
           (address != network && address != (network | ~mask));
  }
};

Subnet SubnetOf(std::uint32_t address, std::int64_t prefix) {
  const std::uint32_t mask = prefix == kLongestPrefix ? ~0U : ~(~0U >> prefix);
  return {prefix, mask, address & mask};
}

bool IsNone(const Json& gateway) { return gateway.is_null() || gateway == ""; }

// Adds the keys of a static address to `network`.
bool AddStatic(const Json& request, Json& network) {
  std::uint32_t ip = 0;
  std::int64_t prefix = 0;
  if (!IsUsable(KioskMember(request, "ip"), ip)) return false;
  if (!KioskIsInteger(KioskMember(request, "prefix"), prefix)) return false;
  if (prefix < 1 || prefix > kLongestPrefix) return false;
  const Subnet subnet = SubnetOf(ip, prefix);
  if (!subnet.isHost(ip)) return false;
  const Json& given = KioskMember(request, "gateway");
  if (!IsNone(given)) {
    std::uint32_t gateway = 0;
    if (!IsUsable(given, gateway) || gateway == ip || (gateway & subnet.mask) != subnet.network ||
        !subnet.isHost(gateway)) {
      return false;
    }
    network["gateway"] = KioskQuadString(gateway);
  }
  network["ip"] = KioskQuadString(ip);
  network["prefix"] = prefix;
  network["mask"] = KioskQuadString(subnet.mask);
  return true;
}

}  // namespace

bool KioskParseQuad(const Json& value, std::uint32_t& address) {
  if (!value.is_string()) return false;
  std::string_view rest = value.get_ref<const std::string&>();
  std::uint32_t packed = 0;
  for (int part = 0; part < 4; ++part) {
    std::uint32_t octet = 0;
    if (part > 0) {
      if (!rest.starts_with('.')) return false;
      rest.remove_prefix(1);
    }
    if (!TakeOctet(rest, octet)) return false;
    packed = packed << 8 | octet;
  }
  if (!rest.empty()) return false;
  address = packed;
  return true;
}

std::string KioskQuadString(std::uint32_t address) {
  return KioskMessage("%u.%u.%u.%u", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF,
                      address & 0xFF);
}

std::optional<Json> KioskNetParse(const Json& request) {
  const Json& adapter = KioskMember(request, "adapter");
  const Json& mode = KioskMember(request, "mode");
  if (!IsAdapter(adapter) || (mode != "dhcp" && mode != "static")) return std::nullopt;
  const std::optional<Json> servers = ServersFrom(KioskMember(request, "dns"));
  if (!servers) return std::nullopt;
  Json network = {{"adapter", adapter}, {"dhcp", mode == "dhcp"}, {"dns", *servers}};
  if (mode == "static" && !AddStatic(request, network)) return std::nullopt;
  return network;
}
