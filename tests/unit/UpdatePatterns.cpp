#include "tests/unit/UpdatePatterns.h"

#include <regex>

std::string TrimmedByPattern(const std::string& line) {
  static const std::regex pattern(R"(^[ \t]+|[ \t]+$)");
  return std::regex_replace(line, pattern, "");
}

std::optional<std::string> UpdateLabelByPattern(const std::string& line) {
  static const std::regex pattern(R"(^\* Label: (.+)$)");
  std::smatch match;
  if (!std::regex_search(line, match, pattern)) return std::nullopt;
  return match[1].str();
}

std::optional<UpdateTitle> UpdateTitleByPattern(const std::string& line) {
  static const std::regex pattern("^Title: (.*?), Version: ([^,]*)");
  std::smatch match;
  if (!std::regex_search(line, match, pattern)) return std::nullopt;
  return UpdateTitle{match[1].str(), match[2].str()};
}

std::optional<UpdateSize> UpdateSizeByPattern(const std::string& line) {
  static const std::regex pattern("Size: ([0-9]+) ?([KMG]i?B?|B)?");
  std::smatch match;
  if (!std::regex_search(line, match, pattern)) return std::nullopt;
  return UpdateSize{match[1].str(), match[2].str()};
}

std::optional<std::string> LastPercentageByPattern(const std::string& text) {
  static const std::regex pattern(R"(([0-9]{1,3}(\.[0-9]+)?)%)");
  std::optional<std::string> last;
  for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match) {
    last = (*match)[1].str();
  }
  return last;
}

bool AsksForPasswordByPattern(const std::string& text) {
  static const std::regex pattern("password", std::regex::ECMAScript | std::regex::icase);
  return std::regex_search(text, pattern);
}
