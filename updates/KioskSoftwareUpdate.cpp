#include "updates/KioskSoftwareUpdate.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <system_error>

#include "core/KioskText.h"
#include "platform/Text.h"

namespace {

constexpr std::size_t kLongestErrorLine = 200;
constexpr std::size_t kMostPercentDigits = 3;

// What follows `lead` in the text, or nothing when it does not begin so.
std::optional<std::string_view> After(std::string_view text, std::string_view lead) {
  if (!text.starts_with(lead)) return std::nullopt;
  return text.substr(lead.size());
}

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// The multiplier of a unit at the start of `text`: "([KMG]i?B?|B)?", of which the first letter
// decides.
std::int64_t UnitBytes(std::string_view text) {
  constexpr std::string_view kUnits = "KMG";
  const std::size_t power = text.empty() ? std::string_view::npos : kUnits.find(text.front());
  return power == std::string_view::npos ? 1 : std::int64_t{1024} << (10 * power);
}

std::int64_t Product(std::int64_t count, std::int64_t unit) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  return count > kMost / unit ? kMost : count * unit;
}

// The first "Size: ([0-9]+) ?([KMG]i?B?|B)?" in the line, in bytes.
std::optional<std::int64_t> SizeIn(std::string_view line) {
  constexpr std::string_view kLead = "Size: ";
  for (std::size_t at = line.find(kLead); at != std::string_view::npos; at = line.find(kLead, at)) {
    at += kLead.size();
    const std::string_view rest = line.substr(at);
    if (rest.empty() || !KioskIsDigit(rest.front())) continue;
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), count);
    if (error == std::errc::result_out_of_range) count = std::numeric_limits<std::int64_t>::max();
    const std::string_view behind = rest.substr(static_cast<std::size_t>(end - rest.data()));
    return Product(count, UnitBytes(After(behind, " ").value_or(behind)));
  }
  return std::nullopt;
}

// "^Title: (.*?), Version: ([^,]*)": the two as they are shown.
std::optional<std::string> TitleIn(std::string_view line) {
  constexpr std::string_view kVersion = ", Version: ";
  const std::optional<std::string_view> rest = After(line, "Title: ");
  const std::size_t end = rest ? rest->find(kVersion) : std::string_view::npos;
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view title = rest->substr(0, end);
  const std::string_view behind = rest->substr(end + kVersion.size());
  const std::string_view version = behind.substr(0, behind.find(','));
  // An empty version counts as contained in every title.
  return Contains(title, version) ? std::string(title)
                                  : std::string(title) + " " + std::string(version);
}

void ReadTitleLine(std::string_view line, Json& update) {
  if (const std::optional<std::string> title = TitleIn(line)) update["title"] = *title;
  if (const std::optional<std::int64_t> bytes = SizeIn(line)) update["sizeBytes"] = *bytes;
  update["restartRequired"] = Contains(line, "Action: restart") || Contains(line, "[restart]");
}

// "^\* Label: (.+)$"
std::optional<std::string> LabelIn(std::string_view line) {
  const std::optional<std::string_view> label = After(line, "* Label: ");
  if (!label || label->empty()) return std::nullopt;
  return std::string(KioskTrimBlanks(*label));
}

// Where the match of "([0-9]{1,3}(\.[0-9]+)?)%" whose percent sign is at `end` begins, which is as
// far left as possible; `end` when there is none.
std::size_t PercentStart(std::string_view text, std::size_t end) {
  const auto digitsBefore = [text](std::size_t at) {
    std::size_t count = 0;
    while (count < at && KioskIsDigit(text[at - count - 1])) ++count;
    return count;
  };
  const std::size_t last = digitsBefore(end);
  const std::size_t dot = end - last;
  const bool hasDot = last > 0 && dot > 0 && text[dot - 1] == '.';
  const std::size_t whole = hasDot ? digitsBefore(dot - 1) : 0;
  if (whole > 0) return dot - 1 - std::min(whole, kMostPercentDigits);
  return end - std::min(last, kMostPercentDigits);
}

// The first `units` UTF-16 code units of the text, but no half of a character.
std::string Beginning(std::string_view text, std::size_t units) {
  const std::u16string whole = platform::TextToUtf16(text);
  if (whole.size() <= units) return std::string(text);
  constexpr char16_t kSurrogateMask = 0xFC00;
  constexpr char16_t kHighSurrogate = 0xD800;
  const bool splits = (whole[units - 1] & kSurrogateMask) == kHighSurrogate;
  return platform::TextFromUtf16(std::u16string_view{whole}.substr(0, units - (splits ? 1 : 0)));
}

}  // namespace

Json KioskSoftwareUpdateParse(std::string_view text) {
  Json updates = Json::array();
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t next = KioskNextLine(text, start);
    const std::string_view line = KioskTrim(text.substr(start, next - start));
    start = next;
    if (const std::optional<std::string> label = LabelIn(line)) {
      updates.push_back(
          {{"id", *label}, {"title", *label}, {"sizeBytes", 0}, {"restartRequired", false}});
    } else if (!updates.empty() && line.starts_with("Title:")) {
      ReadTitleLine(line, updates.back());
    }
  }
  return updates;
}

double KioskSoftwareUpdateProgress(std::string_view text) {
  for (std::size_t at = text.rfind('%'); at != std::string_view::npos && at > 0;
       at = text.rfind('%', at - 1)) {
    const std::size_t start = PercentStart(text, at);
    if (start == at) continue;
    const double percent =
        std::strtod(std::string(text.substr(start, at - start)).c_str(), nullptr);
    return percent <= 100 ? percent : -1.0;
  }
  return -1.0;
}

std::string KioskSoftwareUpdateError(std::string_view output) {
  if (Contains(KioskLowerCase(output), "password")) return "authorization_required";
  const std::string_view line = KioskTrim(KioskLastLine(output));
  return line.empty() ? "failed" : Beginning(line, kLongestErrorLine);
}
