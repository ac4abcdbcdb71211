#include <array>
#include <cstdio>
#include <ctime>

#include "platform/simulated/ClockFile.h"
#include "simulator/mac/SettingsFile.h"
#include "simulator/mac/commands/Commands.h"

namespace simmac {
namespace {

using platform::MacTree;

std::uint64_t Ahead(const MacTree& mac) {
  return platform::ReadClockAhead(mac.path(platform::kMacClock));
}

/// In the largest units first: "1 d 2 h 5 s", "0 s".
std::string DurationText(std::uint64_t seconds) {
  constexpr std::array<std::pair<std::uint64_t, const char*>, 4> kUnits = {
      {{86400, " d"}, {3600, " h"}, {60, " min"}, {1, " s"}}};
  std::string text;
  for (const auto& [length, name] : kUnits) {
    const std::uint64_t count = seconds / length;
    seconds %= length;
    if (count > 0) text += (text.empty() ? "" : " ") + std::to_string(count) + name;
  }
  return text.empty() ? "0 s" : text;
}

std::string TimeText(std::uint64_t ahead) {
  const std::time_t moment = std::time(nullptr) + static_cast<std::time_t>(ahead);
  std::tm utc{};
  (void)gmtime_r(&moment, &utc);
  std::array<char, 32> text{};
  (void)std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text.data();
}

int Show(const MacTree& mac) {
  const std::uint64_t ahead = Ahead(mac);
  (void)std::printf("%s, %s ahead of the host\n", TimeText(ahead).c_str(),
                    DurationText(ahead).c_str());
  return 0;
}

}  // namespace

int ShowClock(const std::string& root) {
  if (!IsMac(root)) return 1;
  return Show(MacTree(root));
}

int AdvanceClock(const std::string& root, std::uint64_t seconds) {
  if (!IsMac(root)) return 1;
  const MacTree mac(root);
  bool possible = true;
  const bool written = ChangeSettings(mac, platform::kMacClock, [&](Json& clock) {
    const std::uint64_t before = Ahead(mac);
    possible = seconds <= platform::kMaximumClockAheadSeconds - before;
    if (possible) clock = {{platform::kMacClockAhead, before + seconds}};
  });
  if (!possible) return Refuse("A clock is ahead by ten years at most.");
  return written ? Show(mac) : Refuse("The clock of " + root + " cannot be written.");
}

}  // namespace simmac
