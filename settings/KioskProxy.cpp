#include "settings/KioskProxy.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "core/KioskJson.h"
#include "core/KioskText.h"
#include "platform/Text.h"
#include "platform/UrlSession.h"
#include "settings/KioskNet.h"

namespace {

constexpr std::size_t kLongestPacUrl = 2048;
constexpr std::size_t kLongestServer = 300;
constexpr std::size_t kLongestEntry = 253;
constexpr std::size_t kMostEntries = 64;
constexpr int kHighestPort = 65535;

bool IsNumeric(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return KioskIsDigit(c) || c == '.'; });
}

std::size_t Characters(std::string_view text) { return platform::TextToUtf16(text).size(); }

// Beyond ASCII there are more of them, but neither a URL nor a host name has such characters.
bool HasSpaceOrControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return (c >= 0 && c <= ' ') || c == 0x7F; });
}

// A number up to the highest port; 0 when it is none or higher.
int NumberFrom(std::string_view digits) {
  int port = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  const bool isNumber = error == std::errc() && end == digits.data() + digits.size();
  return isNumber && port <= kHighestPort ? port : 0;
}

// "^[1-9][0-9]{0,4}$" and below 65536; else 0.
int StrictPortFrom(std::string_view text) {
  if (text.empty() || text.size() > 5 || text[0] == '0') return 0;
  return std::all_of(text.begin(), text.end(), KioskIsDigit) ? NumberFrom(text) : 0;
}

// The URL with scheme and host in lower case.
std::optional<std::string> PacUrlFrom(const std::string& text) {
  if (!platform::UrlIsValid(text)) return std::nullopt;
  const std::size_t colon = text.find(':');
  const std::string scheme = KioskLowerCase(text.substr(0, colon));
  if (colon == std::string::npos || (scheme != "http" && scheme != "https")) return std::nullopt;
  const std::size_t start = colon + 3;
  if (text.compare(colon, 3, "://") != 0) return std::nullopt;
  const std::size_t end = std::min(text.find_first_of("/?#", start), text.size());
  const std::string_view authority = std::string_view{text}.substr(start, end - start);
  if (authority.find('@') != std::string_view::npos) return std::nullopt;
  const std::size_t hostEnd = std::min(authority.rfind(':'), authority.size());
  const std::string host = KioskLowerCase(authority.substr(0, hostEnd));
  const std::string_view port = authority.substr(std::min(hostEnd + 1, authority.size()));
  if (!KioskHostname(host) || (!port.empty() && NumberFrom(port) == 0)) return std::nullopt;
  return scheme + "://" + host + text.substr(start + hostEnd);
}

std::optional<Json> AutomaticFrom(const Json& value) {
  if (!value.is_string()) return std::nullopt;
  const std::string& text = value.get_ref<const std::string&>();
  if (Characters(text) > kLongestPacUrl || HasSpaceOrControl(text)) return std::nullopt;
  const std::optional<std::string> url = PacUrlFrom(text);
  if (!url) return std::nullopt;
  return Json{{"mode", "auto"}, {"pacUrl", *url}};
}

// Adds "host" and "port".
bool AddServer(const Json& value, Json& proxy) {
  if (!value.is_string()) return false;
  const std::string& given = value.get_ref<const std::string&>();
  if (Characters(given) > kLongestServer || HasSpaceOrControl(given)) return false;
  const std::string lower = KioskLowerCase(given);
  std::string_view text = lower;
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (text.starts_with(scheme)) text.remove_prefix(scheme.size());
  }
  if (text.ends_with('/')) text.remove_suffix(1);
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos || !KioskHostname(text.substr(0, colon))) return false;
  const int port = StrictPortFrom(text.substr(colon + 1));
  if (port == 0) return false;
  proxy["host"] = text.substr(0, colon);
  proxy["port"] = port;
  return true;
}

// The entries of a list in one text, which semicolons, commas and white space separate.
Json SplitEntries(std::string_view text) {
  Json entries = Json::array();
  std::string entry;
  while (!text.empty()) {
    const bool isMark = text.front() == ';' || text.front() == ',';
    const std::size_t separator = isMark ? 1 : KioskSpaceLength(text);
    if (separator > 0) entries.push_back(std::exchange(entry, {}));
    if (separator == 0) entry += text.front();
    text.remove_prefix(std::max<std::size_t>(separator, 1));
  }
  entries.push_back(entry);
  return entries;
}

// "^[0-9.]+/[0-9]{1,2}$"
bool LooksLikeBlock(std::string_view entry, std::size_t slash) {
  if (slash == std::string_view::npos || !IsNumeric(entry.substr(0, slash))) return false;
  const std::string_view prefix = entry.substr(slash + 1);
  return !prefix.empty() && prefix.size() <= 2 &&
         std::all_of(prefix.begin(), prefix.end(), KioskIsDigit);
}

bool IsBypassEntry(std::string_view entry) {
  if (entry.size() > kLongestEntry) return false;
  const std::size_t slash = entry.find('/');
  if (LooksLikeBlock(entry, slash)) {
    std::uint32_t address = 0;
    const int prefix = NumberFrom(entry.substr(slash + 1));
    return KioskParseQuad(std::string(entry.substr(0, slash)), address) && prefix >= 1 &&
           prefix <= 32;
  }
  return KioskHostname(entry.starts_with("*.") ? entry.substr(2) : entry);
}

// Adds "bypass" and "excludeSimple".
bool AddBypass(const Json& value, Json& proxy) {
  const bool isText = value.is_string();
  if (!KioskAbsent(value) && !isText && !value.is_array()) return false;
  Json kept = Json::array();
  bool excludeSimple = false;
  for (const Json& given : isText ? SplitEntries(value.get_ref<const std::string&>()) : value) {
    if (!given.is_string()) return false;
    const std::string entry = KioskLowerCase(KioskTrim(given.get_ref<const std::string&>()));
    if (entry.empty()) continue;
    if (entry == "<local>") {
      excludeSimple = true;
    } else if (!IsBypassEntry(entry)) {
      return false;
    } else if (std::find(kept.begin(), kept.end(), entry) == kept.end()) {
      if (kept.size() == kMostEntries) return false;
      kept.push_back(entry);
    }
  }
  proxy["excludeSimple"] = excludeSimple;
  proxy["bypass"] = kept;
  return true;
}

}  // namespace

bool KioskAbsent(const Json& value) { return value.is_null(); }

bool KioskHostname(std::string_view text) {
  std::uint32_t address = 0;
  return IsNumeric(text) ? KioskParseQuad(std::string(text), address) : KioskHostLabels(text) > 0;
}

std::optional<Json> KioskProxyParse(const Json& request) {
  const Json& mode = KioskMember(request, "mode");
  if (mode == "none") return Json{{"mode", "none"}};
  if (mode == "auto") return AutomaticFrom(KioskMember(request, "pacUrl"));
  if (mode != "manual") return std::nullopt;
  Json proxy = {{"mode", "manual"}};
  if (!AddServer(KioskMember(request, "server"), proxy)) return std::nullopt;
  if (!AddBypass(KioskMember(request, "bypass"), proxy)) return std::nullopt;
  return proxy;
}
