#include "simulator/client/InstallDisplay.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "simulator/client/Limits.h"

namespace client {
namespace {

constexpr std::size_t kWholePercent = 100;

/// What the line holds beside the bar: the words around it, and one column that stays free, since a
/// terminal may begin a new line after its last.
constexpr std::size_t kOtherColumns = std::string_view("Installing [] 100 %").size() + 1;

std::string Bar(int percent) {
  const std::size_t columns = Screen::columns().value_or(kOtherColumns + kMaximumBarWidth);
  const std::size_t width =
      std::min(std::max(columns, kOtherColumns) - kOtherColumns, kMaximumBarWidth);
  const std::size_t full = width * static_cast<std::size_t>(percent) / kWholePercent;
  return "[" + std::string(full, '#') + std::string(width - full, '.') + "] ";
}

}  // namespace

InstallDisplay::InstallDisplay(Screen& screen) : _screen(screen) {}

void InstallDisplay::progress(int percent, std::chrono::steady_clock::time_point now) {
  const std::string number = std::to_string(percent) + " %";
  if (_screen.mode() == Screen::Mode::kTerminal) {
    _screen.overwrite("Installing " + Bar(percent) + number);
    return;
  }
  const bool early = _shownPercent >= 0 && now - _shownAt < kProgressLineInterval;
  if (percent == _shownPercent || early) return;
  _screen.sentence("Installing: " + number);
  _shownPercent = percent;
  _shownAt = now;
}

}  // namespace client
