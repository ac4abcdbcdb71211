#include <charconv>
#include <optional>

#include "simulator/mac/CommandLine.h"
#include "simulator/mac/commands/Commands.h"

namespace simmac {
namespace {

/// The seconds of a unit; 0 for what is none.
std::uint64_t UnitSeconds(std::string_view unit) {
  constexpr std::uint64_t kMinute = 60;
  constexpr std::uint64_t kHour = 60 * kMinute;
  constexpr std::uint64_t kDay = 24 * kHour;
  if (unit == "s") return 1;
  if (unit == "m") return kMinute;
  if (unit == "h") return kHour;
  return unit == "d" ? kDay : 0;
}

/// "90s", "16m", "2h" or "1d" as seconds.
std::optional<std::uint64_t> ParseDuration(const std::string& text) {
  constexpr std::uint64_t kMost = 1'000'000'000;  // of any unit, so that no product overflows
  std::uint64_t count = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, count);
  const std::uint64_t unit =
      UnitSeconds(std::string_view(stop, static_cast<std::size_t>(end - stop)));
  const bool valid = error == std::errc() && unit > 0 && count <= kMost;
  return valid ? std::optional(count * unit) : std::nullopt;
}

struct ClockArguments {
  std::optional<std::string> advance;
};

}  // namespace

void AddClock(CLI::App& app, Request& request) {
  std::optional<std::string>& advance = Keep<ClockArguments>().advance;
  CLI::App* clock = AddCommand(app, request, "clock", "Show a Mac's clock, or move it ahead");
  clock->add_option("--advance", advance, "By how much: 90s, 16m, 2h or 1d");
  clock->footer(
      "The daemon's clocks are moved. Timers that are armed keep their delay, since they count "
      "real\n"
      "time. A clock never goes back.");
  clock->callback([&request, &advance] {
    if (!advance) {
      request.action = ShowClock;
      return;
    }
    const std::optional<std::uint64_t> seconds = ParseDuration(*advance);
    if (!seconds) throw CLI::ValidationError("--advance", "A duration is like 90s, 16m, 2h or 1d");
    request.action = [seconds](const auto& root) { return AdvanceClock(root, *seconds); };
  });
}

}  // namespace simmac
