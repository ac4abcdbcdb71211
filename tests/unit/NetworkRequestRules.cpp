#include "tests/unit/NetworkRequestRules.h"

#include <algorithm>

#include "tests/unit/NetworkRules.h"
#include "tests/unit/PolicyRules.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

std::optional<std::uint32_t> UsableByTheRule(const Json& value) {
  const std::optional<std::uint32_t> address = QuadByTheList(value);
  if (!address) return std::nullopt;
  const std::uint32_t first = *address / 0x1000000;
  return first == 0 || first == 127 || first >= 224 ? std::nullopt : address;
}

std::string Dotted(std::uint64_t address) {
  std::string text;
  for (const std::uint64_t place : {0x1000000U, 0x10000U, 0x100U, 1U}) {
    text += (text.empty() ? "" : ".") + std::to_string(address / place % 256);
  }
  return text;
}

std::optional<Json> ServersByTheTable(const Json& given) {
  if (given.is_null()) return Json::array();
  if (!given.is_array() || given.size() > 4) return std::nullopt;
  Json servers = Json::array();
  for (const Json& element : given) {
    if (!UsableByTheRule(element)) return std::nullopt;
    if (std::count(servers.begin(), servers.end(), element) == 0) servers.push_back(element);
  }
  return servers;
}

/// Whether an address is within a subnet and, where the ends are taken, not one of them.
bool IsHostOf(std::uint64_t network, std::uint64_t size, std::uint64_t address) {
  if (address < network || address >= network + size) return false;
  return size < 4 || (address != network && address != network + size - 1);
}

bool AddStatic(const Json& given, Json& network) {
  const std::optional<std::uint32_t> ip = UsableByTheRule(Member(given, "ip"));
  const Json prefix = Member(given, "prefix");
  if (!ip || !IsNumberIn(prefix, 1, 32)) return false;
  const std::uint64_t size = std::uint64_t{1} << (32 - prefix.get<int>());
  const std::uint64_t first = *ip / size * size;
  if (!IsHostOf(first, size, *ip)) return false;
  const Json gateway = Member(given, "gateway");
  if (!gateway.is_null() && gateway != "") {
    const std::optional<std::uint32_t> router = UsableByTheRule(gateway);
    if (!router || *router == *ip || !IsHostOf(first, size, *router)) return false;
    network["gateway"] = gateway;
  }
  network["ip"] = given.at("ip");
  network["prefix"] = prefix.get<int>();
  network["mask"] = Dotted(0x100000000 - size);
  return true;
}

}  // namespace

std::optional<Json> NetworkByTheTable(const Json& given) {
  if (!given.is_object()) return std::nullopt;
  const Json adapter = Member(given, "adapter");
  const Json mode = Member(given, "mode");
  if (!adapter.is_string() || !MatchesAdapterPattern(adapter.get<std::string>())) {
    return std::nullopt;
  }
  if (mode != "dhcp" && mode != "static") return std::nullopt;
  const std::optional<Json> servers = ServersByTheTable(Member(given, "dns"));
  if (!servers) return std::nullopt;
  Json network = {{"adapter", adapter}, {"dhcp", mode == "dhcp"}, {"dns", *servers}};
  if (mode == "static" && !AddStatic(given, network)) return std::nullopt;
  return network;
}
