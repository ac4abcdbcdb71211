#include "tests/unit/OutputRules.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "tests/unit/Spaces.h"
#include "tests/unit/UpdatePatterns.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

// Saturated; a long double has room for every integer of 64 bits.
std::int64_t BytesOf(const UpdateSize& size) {
  long double bytes = std::strtold(size.digits.c_str(), nullptr);
  const char unit = size.unit.empty() ? 'B' : size.unit[0];
  if (unit == 'K') bytes *= 1'024;
  if (unit == 'M') bytes *= 1'048'576;
  if (unit == 'G') bytes *= 1'073'741'824;
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  return bytes >= static_cast<long double>(most) ? most : static_cast<std::int64_t>(bytes);
}

void ReadTitleLine(Json& update, const std::string& line) {
  if (const auto named = UpdateTitleByPattern(line)) {
    const bool said = named->title.find(named->version) != std::string::npos;
    update["title"] = said ? named->title : named->title + " " + named->version;
  }
  if (const auto size = UpdateSizeByPattern(line)) update["sizeBytes"] = BytesOf(*size);
  update["restartRequired"] = line.find("Action: restart") != std::string::npos ||
                              line.find("[restart]") != std::string::npos;
}

// The library's patterns know ASCII alone, so that other characters take part as a blank or as a
// letter.
std::string InAscii(const std::string& line) {
  std::string text = Replaced(line, kWhiteSpace, ' ');
  std::replace_if(
      text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; }, 'z');
  return text;
}

}  // namespace

Json UpdatesByPattern(const std::string& text) {
  Json updates = Json::array();
  for (const std::string& given : LinesOf(text)) {
    const std::string line = TrimmedByPattern(given);
    if (const auto label = UpdateLabelByPattern(line)) {
      const std::string name = TrimmedByPattern(*label);
      updates.push_back(
          {{"id", name}, {"title", name}, {"sizeBytes", 0}, {"restartRequired", false}});
    } else if (!updates.empty() && line.rfind("Title:", 0) == 0) {
      ReadTitleLine(updates.back(), line);
    }
  }
  return updates;
}

double ProgressByPattern(const std::string& text) {
  const std::optional<std::string> last = LastPercentageByPattern(text);
  if (!last) return -1.0;
  const double percent = std::strtod(last->c_str(), nullptr);
  return percent <= 100 ? percent : -1.0;
}

std::optional<Json> PowerSettingsByPattern(const std::string& text) {
  Json settings = Json::object();
  for (const std::string& line : LinesOf(text)) {
    for (const char* key : {"displaysleep", "sleep"}) {
      const std::optional<std::string> digits = PowerSettingByPattern(InAscii(line), key);
      if (digits && !settings.contains(key)) settings[key] = std::stoi(*digits);
    }
  }
  return settings.size() == 2 ? std::optional(settings) : std::nullopt;
}

std::optional<double> OffsetByPattern(const std::string& text) {
  for (const std::string& line : LinesOf(text)) {
    if (const auto number = ClockOffsetByPattern(line)) {
      return std::strtod(number->c_str(), nullptr) * 1000;
    }
  }
  return std::nullopt;
}

std::optional<std::string> TimeServerByPattern(const std::string& text) {
  const std::string label = "Network Time Server:";
  const std::size_t at = text.find(label);
  if (at == std::string::npos) return std::nullopt;
  for (const std::string& word : SplitAt(Blanked(text.substr(at + label.size())), ' ')) {
    if (word.empty()) continue;
    if (word.size() >= 254 || !MatchesTimeServerPattern(word)) return std::nullopt;
    return word;
  }
  return std::nullopt;
}
