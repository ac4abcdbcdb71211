#include "tests/unit/WrittenPatterns.h"

#include <map>
#include <regex>

namespace {

/// What the first group captures of a match at the start of `text`.
std::optional<std::string> CapturedAtStart(const std::string& text, const std::regex& pattern) {
  std::smatch match;
  const auto atStart = std::regex_constants::match_continuous;
  if (!std::regex_search(text, match, pattern, atStart)) return std::nullopt;
  return match[1].str();
}

}  // namespace

bool MatchesHostNamePattern(const std::string& text) {
  static const std::regex pattern(
      R"(^(?=.{1,253}$)[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?(\.[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?)+$)");
  return std::regex_match(text, pattern);
}

bool MatchesPairingCodePattern(const std::string& text) {
  static const std::regex pattern("^[A-HJ-NP-Z2-9]{8}$");
  return std::regex_match(text, pattern);
}

bool MatchesClockPattern(const std::string& text) {
  static const std::regex pattern("^([01][0-9]|2[0-3]):[0-5][0-9]$");
  return std::regex_match(text, pattern);
}

bool MatchesHostLabelPattern(const std::string& text) {
  static const std::regex pattern("^[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?$");
  return std::regex_match(text, pattern);
}

bool MatchesHostLabelsPattern(const std::string& text) {
  static const std::regex pattern(
      R"(^[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?(\.[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?)*$)");
  return std::regex_match(text, pattern);
}

bool MatchesNumericHostPattern(const std::string& text) {
  static const std::regex pattern("^[0-9.]+$");
  return std::regex_match(text, pattern);
}

bool MatchesPortPattern(const std::string& text) {
  static const std::regex pattern("^[1-9][0-9]{0,4}$");
  return std::regex_match(text, pattern);
}

bool MatchesAddressBlockPattern(const std::string& text) {
  static const std::regex pattern("^[0-9.]+/[0-9]{1,2}$");
  return std::regex_match(text, pattern);
}

bool MatchesAdapterPattern(const std::string& text) {
  static const std::regex pattern("^[a-z]{1,12}[0-9]{1,4}$");
  return std::regex_match(text, pattern);
}

bool MatchesTimeServerPattern(const std::string& text) {
  static const std::regex pattern("^[A-Za-z0-9][A-Za-z0-9.-]*$");
  return std::regex_match(text, pattern);
}

std::optional<std::string> PowerSettingByPattern(const std::string& line, const std::string& key) {
  static std::map<std::string, std::regex> patterns;
  const auto made = patterns.find(key);
  if (made != patterns.end()) return CapturedAtStart(line, made->second);
  const std::regex pattern(R"(^\s*)" + key + R"(\s+([0-9]{1,5})\b)");
  return CapturedAtStart(line, patterns.emplace(key, pattern).first->second);
}

std::optional<std::string> ClockOffsetByPattern(const std::string& line) {
  static const std::regex pattern(R"(^([+-]?[0-9]+(\.[0-9]+)?) \+/- [0-9.]+ )");
  return CapturedAtStart(line, pattern);
}

std::optional<WebAddress> WebAddressByPattern(const std::string& text) {
  static const std::regex pattern(R"(^([Hh][Tt][Tt][Pp][Ss]?)://([A-Za-z0-9.-]+)(:[0-9]*)?)"
                                  R"(((/([\w.~!$&'()*+,;=:@/-]|%[0-9A-Fa-f]{2})*)?)"
                                  R"((\?([\w.~!$&'()*+,;=:@/?-]|%[0-9A-Fa-f]{2})*)?)"
                                  R"((#([\w.~!$&'()*+,;=:@/?-]|%[0-9A-Fa-f]{2})*)?)$)");
  std::smatch match;
  if (!std::regex_match(text, match, pattern)) return std::nullopt;
  return WebAddress{match[1].str(), match[2].str(), match[3].str(), match[4].str()};
}
