#include "tests/unit/ProxyRules.h"

#include <algorithm>
#include <vector>

#include "tests/unit/NetworkRules.h"
#include "tests/unit/PolicyRules.h"
#include "tests/unit/Spaces.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

// The Kelvin sign is the one character beyond ASCII whose lower case is ASCII.
std::string Lower(const std::string& text) {
  std::string lower = Replaced(text, {0x212A}, 'k');
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return lower;
}

// A blank within an entry is refused whatever it was in the text.
std::string Trimmed(const std::string& text) {
  const std::string blanked = Blanked(text);
  const std::size_t first = std::min(blanked.find_first_not_of(' '), blanked.size());
  return blanked.substr(first, blanked.find_last_not_of(' ') + 1 - first);
}

// The number of digits that may be many.
int PortOf(const std::string& digits) {
  int port = 0;
  for (const char digit : digits) port = std::min(port * 10 + (digit - '0'), 100'000);
  return port;
}

std::optional<Json> AutomaticByTheRules(const Json& given) {
  if (!given.is_string() || given.get<std::string>().size() > 2048) return std::nullopt;
  const std::optional<WebAddress> url = WebAddressByPattern(given.get<std::string>());
  if (!url || !HostByTheRule(Lower(url->host))) return std::nullopt;
  if (url->port.size() > 1) {
    const int port = PortOf(url->port.substr(1));
    if (port < 1 || port > 65'535) return std::nullopt;
  }
  const std::string start = Lower(url->scheme) + "://" + Lower(url->host);
  return Json{{"mode", "auto"}, {"pacUrl", start + url->port + url->rest}};
}

// More than 300 bytes are more than a name of 253 with its port, unless they are of fewer
// characters, which no name has.
bool AddServer(const Json& given, Json& proxy) {
  if (!given.is_string()) return false;
  std::string text = Lower(given.get<std::string>());
  if (text.size() > 300) return false;
  if (text.rfind("http://", 0) == 0) text = text.substr(7);
  if (text.rfind("https://", 0) == 0) text = text.substr(8);
  if (!text.empty() && text.back() == '/') text.pop_back();
  const std::vector<std::string> parts = SplitAt(text, ':');
  if (parts.size() != 2 || !HostByTheRule(parts[0])) return false;
  if (!MatchesPortPattern(parts[1]) || PortOf(parts[1]) >= 65'536) return false;
  proxy["host"] = parts[0];
  proxy["port"] = PortOf(parts[1]);
  return true;
}

bool IsEntry(const std::string& entry) {
  if (entry.size() > 253) return false;
  if (MatchesAddressBlockPattern(entry)) {
    const std::vector<std::string> parts = SplitAt(entry, '/');
    const int prefix = PortOf(parts[1]);
    return QuadByTheList(parts[0]) && prefix >= 1 && prefix <= 32;
  }
  return HostByTheRule(entry.rfind("*.", 0) == 0 ? entry.substr(2) : entry);
}

/// The elements of a "bypass", whichever of its forms it has.
std::optional<Json> EntriesOf(const Json& given) {
  if (given.is_null()) return Json::array();
  if (given.is_array()) return given;
  if (!given.is_string()) return std::nullopt;
  std::string text = Blanked(given.get<std::string>());
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == ';' || c == ','; }, ' ');
  return Json(SplitAt(text, ' '));
}

bool AddBypass(const Json& given, Json& proxy) {
  const std::optional<Json> entries = EntriesOf(given);
  if (!entries) return false;
  proxy["bypass"] = Json::array();
  proxy["excludeSimple"] = false;
  for (const Json& element : *entries) {
    if (!element.is_string()) return false;
    const std::string entry = Lower(Trimmed(element.get<std::string>()));
    if (entry == "<local>") proxy["excludeSimple"] = true;
    if (entry.empty() || entry == "<local>") continue;
    if (!IsEntry(entry)) return false;
    Json& kept = proxy["bypass"];
    if (std::count(kept.begin(), kept.end(), entry) == 0) kept.push_back(entry);
  }
  return proxy["bypass"].size() <= 64;
}

}  // namespace

bool HostByTheRule(const std::string& text) {
  if (text.empty() || text.size() >= 254) return false;
  if (MatchesNumericHostPattern(text)) return QuadByTheList(text).has_value();
  return MatchesHostLabelsPattern(text);
}

std::optional<Json> ProxyByTheRules(const Json& given) {
  const Json mode = Member(given, "mode");
  if (mode == "none") return Json{{"mode", "none"}};
  if (mode == "auto") return AutomaticByTheRules(Member(given, "pacUrl"));
  if (mode != "manual") return std::nullopt;
  Json proxy = {{"mode", "manual"}};
  if (!AddServer(Member(given, "server"), proxy)) return std::nullopt;
  if (!AddBypass(Member(given, "bypass"), proxy)) return std::nullopt;
  return proxy;
}
