#include "settings/KioskPowerApply.h"

#include <algorithm>

#include "account/KioskRun.h"
#include "core/KioskJson.h"
#include "core/KioskLog.h"
#include "core/KioskText.h"
#include "settings/KioskPower.h"

namespace {

constexpr char kPmset[] = "/usr/bin/pmset";
constexpr std::size_t kMostDigits = 5;

std::vector<std::string> TimeoutArgs(std::int64_t displaySleep, std::int64_t sleep) {
  return {"-a", "displaysleep", std::to_string(displaySleep), "sleep", std::to_string(sleep)};
}

const std::vector<std::string>& CancelArgs() {
  static const std::vector<std::string> arguments = {"repeat", "cancel"};
  return arguments;
}

// The minutes that a line "  KEY  MINUTES..." gives a key: "^\s*KEY\s+([0-9]{1,5})\b".
std::optional<int> MinutesOf(std::string_view line, std::string_view key) {
  line.remove_prefix(KioskLeadingSpace(line));
  if (!line.starts_with(key)) return std::nullopt;
  line.remove_prefix(key.size());
  const std::size_t space = KioskLeadingSpace(line);
  if (space == 0) return std::nullopt;
  line.remove_prefix(space);
  const auto* const end = std::find_if_not(line.begin(), line.end(), KioskIsDigit);
  const auto digits = static_cast<std::size_t>(end - line.begin());
  if (digits == 0 || digits > kMostDigits) return std::nullopt;
  if (KioskStartsWithWordCharacter(line.substr(digits))) return std::nullopt;
  return std::stoi(std::string(line.substr(0, digits)));
}

}  // namespace

std::string KioskPmsetDays(const Json& days) {
  struct Letter {
    int day;
    char letter;
  };
  constexpr Letter kLetters[] = {{1, 'M'}, {2, 'T'}, {3, 'W'}, {4, 'R'},
                                 {5, 'F'}, {6, 'S'}, {0, 'U'}};
  std::string text;
  for (const Letter& row : kLetters) {
    if (std::find(days.begin(), days.end(), row.day) != days.end()) text += row.letter;
  }
  return text;
}

std::vector<std::string> KioskPowerTimeoutArgs(const Json& policy) {
  return TimeoutArgs(policy["screenOffMinutes"], policy["sleepMinutes"]);
}

std::vector<std::string> KioskPowerScheduleArgs(const Json& policy) {
  const Json& schedule = policy["schedule"];
  if (schedule["enabled"] != true) return CancelArgs();
  const std::string days = KioskPmsetDays(schedule["days"]);
  const auto seconds = [&](const char* key) { return schedule[key].get<std::string>() + ":00"; };
  return {"repeat", "sleep", days, seconds("sleepAt"), "wakeorpoweron", days, seconds("wakeAt")};
}

KioskError KioskPowerApply(const Json& policy, bool& armed) {
  std::string output;
  if (KioskRun(kPmset, KioskPowerTimeoutArgs(policy), &output) != 0) {
    KioskLogError("pmset timeouts refused: %@", output);
    return "failed";
  }
  const bool enabled = policy["schedule"]["enabled"] == true;
  if (!enabled && !armed) return std::nullopt;
  std::string repeatOutput;
  if (KioskRun(kPmset, KioskPowerScheduleArgs(policy), &repeatOutput) != 0) {
    KioskLogError("pmset repeat refused: %@", repeatOutput);
    return enabled ? KioskError("wake_unavailable") : std::nullopt;
  }
  armed = enabled;
  return std::nullopt;
}

std::optional<Json> KioskPowerParsePmset(std::string_view text) {
  Json snapshot = Json::object();
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t next = KioskNextLine(text, start);
    const std::string_view line = text.substr(start, next - start);
    for (const char* key : {"displaysleep", "sleep"}) {
      if (snapshot.contains(key)) continue;
      if (const std::optional<int> minutes = MinutesOf(line, key)) snapshot[key] = *minutes;
    }
    start = next;
  }
  return snapshot.size() == 2 ? std::optional(snapshot) : std::nullopt;
}

std::optional<Json> KioskPowerSnapshot() {
  std::string output;
  if (KioskRun(kPmset, {"-g"}, &output) != 0) return std::nullopt;
  return KioskPowerParsePmset(output);
}

void KioskPowerRestore(const Json& snapshot, bool armed) {
  std::string repeatOutput;
  if (armed && KioskRun(kPmset, CancelArgs(), &repeatOutput) != 0) {
    KioskLogError("pmset repeat cancel: %@", repeatOutput);
  }
  std::int64_t displaySleep = 0;
  std::int64_t sleep = 0;
  if (!KioskIsInteger(KioskMember(snapshot, "displaysleep"), displaySleep) || displaySleep < 0 ||
      !KioskIsInteger(KioskMember(snapshot, "sleep"), sleep) || sleep < 0) {
    return;
  }
  std::string output;
  if (KioskRun(kPmset, TimeoutArgs(displaySleep, sleep), &output) != 0) {
    KioskLogError("pmset restore refused: %@", output);
  } else {
    KioskLog("power settings put back: display sleep %ld, sleep %ld", displaySleep, sleep);
  }
}
