#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <functional>
#include <optional>

#include "simulator/mac/PowerSettings.h"
#include "simulator/mac/SettingsFile.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;
using Words = std::vector<std::string>;

constexpr int kFailed = 1;

int Usage(const ToolCall& call) {
  call.output.out("Usage: pmset <options>\nSee pmset(1) for details: 'man pmset'\n");
  return kFailed;
}

/// The tool knows lower case only, and makes its arguments so.
Words LowerCase(Words words) {
  for (std::string& word : words) {
    std::transform(word.begin(), word.end(), word.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  }
  return words;
}

int Get(const ToolCall& call, const Words& words) {
  const Json power = ReadSettings(MacTree(), kPowerSettings);
  if (words.size() == 1) {
    call.output.out(PowerSettingsText(power));
    return 0;
  }
  if (words[1] != "sched") return Usage(call);
  call.output.out(PowerScheduleText(power));
  return 0;
}

std::optional<int> ParseValue(const std::string& text) {
  int value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  const bool valid = error == std::errc() && stop == end && value >= 0;
  return valid ? std::optional(value) : std::nullopt;
}

/// Settings and their new values. A desktop Mac has one power source, the charger.
std::optional<Json> ParseSettings(const Words& words) {
  Json changes = Json::object();
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (words[i] == "-a" || words[i] == "-c") continue;
    if (!IsPowerSetting(words[i]) || i + 1 == words.size()) return std::nullopt;
    const std::optional<int> value = ParseValue(words[i + 1]);
    if (!value) return std::nullopt;
    changes[words[i++]] = *value;
  }
  return changes.empty() ? std::nullopt : std::optional(changes);
}

/// Settings that contradict each other are kept nevertheless.
void WarnOfTimings(const ToolCall& call, const Json& power) {
  const int sleep = PowerSetting(power, "sleep");
  const int display = PowerSetting(power, "displaysleep");
  const bool oddDisplay = sleep != 0 && (display == 0 || display > sleep);
  const bool oddDisk = sleep != 0 && PowerSetting(power, "disksleep") == 0;
  if (!oddDisplay && !oddDisk) return;
  call.output.err("Warning: Idle sleep timings for \"AC Power\" may not behave as expected.\n");
  if (oddDisplay) {
    call.output.err("- Display sleep should have a lower timeout than system sleep.\n");
  }
  if (oddDisk) {
    call.output.err("- Disk sleep should be non-zero whenever system sleep is non-zero.\n");
  }
}

int Set(const ToolCall& call, const Words& words) {
  const std::optional<Json> changes = ParseSettings(words);
  if (!changes) return Usage(call);
  if (geteuid() != 0) {
    call.output.out("'" + call.name + "' must be run as root...\n");
    return kFailed;
  }
  Json changed;
  const bool written = ChangeSettings(MacTree(), kPowerSettings, [&](Json& power) {
    if (!power["settings"].is_object()) power["settings"] = Json::object();
    power["settings"].update(*changes);
    changed = power;
  });
  if (!written) {
    call.output.out("pmset: Error 0xe00002c2 writing Energy Saver preferences to disk\n");
    return kFailed;
  }
  WarnOfTimings(call, changed);
  return 0;
}

int BadlyFormatted(const ToolCall& call) {
  call.output.err("Error: badly formatted repeating power event\n");
  return Usage(call);
}

/// Changes the events that the Mac repeats.
int ChangeEvents(const ToolCall& call,
                 const std::function<void(std::vector<RepeatingEvent>&)>& change) {
  if (geteuid() != 0) {
    call.output.err("pmset: Must be run as root to modify settings\n");
    return kFailed;
  }
  const bool written = ChangeSettings(MacTree(), kPowerSettings, [&change](Json& power) {
    std::vector<RepeatingEvent> events = RepeatingEvents(power);
    change(events);
    power["repeat"] = RepeatingEventsJson(events);
  });
  if (written) return 0;
  call.output.err("pmset: Error 0xe00002c2 scheduling repeating events\n");
  return kFailed;
}

/// The event that three words describe: type, days, time. Nothing when they do not.
std::optional<RepeatingEvent> ParseEvent(const Words& words, std::size_t first) {
  constexpr std::size_t kWords = 3;
  if (words.size() - first < kWords) return std::nullopt;
  const unsigned int days = EventDays(words[first + 1]);
  const std::optional<int> minute = EventMinute(words[first + 2]);
  if (days == 0 || !minute) return std::nullopt;
  return RepeatingEvent{words[first], days, *minute};
}

int Repeat(const ToolCall& call, const Words& words) {
  constexpr std::size_t kWords = 3;
  if (words.size() == 2 && words[1] == "cancel") {
    return ChangeEvents(call, [](std::vector<RepeatingEvent>& events) { events.clear(); });
  }
  if (words.size() < 2) return BadlyFormatted(call);
  std::vector<RepeatingEvent> wanted;
  for (std::size_t i = 1; i < words.size(); i += kWords) {
    if (!IsEventType(words[i])) {
      call.output.out("Error: Unspecified scheduled event type\n");
      return BadlyFormatted(call);
    }
    const std::optional<RepeatingEvent> event = ParseEvent(words, i);
    if (!event) return BadlyFormatted(call);
    wanted.push_back(*event);
  }
  return ChangeEvents(call, [&wanted](std::vector<RepeatingEvent>& events) {
    for (const RepeatingEvent& each : wanted) PutEvent(events, each);
  });
}

}  // namespace

int PmSet(const ToolCall& call) {
  const Words words = LowerCase(call.arguments);
  if (words.empty()) return Usage(call);
  if (words[0] == "-g") return Get(call, words);
  if (words[0] == "repeat") return Repeat(call, words);
  return Set(call, words);
}

}  // namespace simmac
