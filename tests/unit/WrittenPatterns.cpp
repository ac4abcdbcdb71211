#include "tests/unit/WrittenPatterns.h"

#include <regex>

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
