#include "tests/year/Policies.h"

#include <array>
#include <cstdio>

namespace {

std::string ClockText(int minute) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%02d:%02d", minute / 60, minute % 60);
  return text.data();
}

int Below(Random& dice, std::size_t bound) { return static_cast<int>(dice.below(bound)); }

unsigned SomeDays(Random& dice) {
  return dice.oneIn(2) ? 0x7FU : static_cast<unsigned>(dice.below(0x7F)) + 1;
}

UpdatePolicy Invalid(Random& dice) {
  const Json window = {{"start", "02:00"}, {"end", "05:00"}};
  const std::array<Json, 7> flawed{
      Json{{"automatic", 1}, {"window", window}},
      Json{{"automatic", true}, {"window", {{"start", "24:00"}, {"end", "05:00"}}}},
      Json{{"automatic", true}, {"window", {{"start", "2:00"}, {"end", "05:00"}}}},
      Json{{"automatic", true},
           {"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", Json::array()}}}},
      Json{{"automatic", true}, {"window", {{"start", "02:00"}, {"end", "05:00"}, {"days", {7}}}}},
      Json{{"automatic", true}, {"window", "always"}},
      Json::array({true})};
  UpdatePolicy policy;
  policy.sent = dice.pick(flawed);
  return policy;
}

UpdatePolicy Disabled(Random& dice) {
  UpdatePolicy policy = PolicyOf(120, 180);
  policy.automatic = false;
  if (dice.oneIn(2)) {
    policy.sent["automatic"] = false;
  } else {
    policy.sent = Json::object();
  }
  return policy;
}

}  // namespace

std::optional<long> OpenWindow(const UpdatePolicy& policy, const LocalMinute& now) {
  if (!policy.automatic) return std::nullopt;
  for (const long day : {now.day, now.day - 1}) {
    const bool opens = ((policy.weekdays >> WeekdayOf(day)) & 1U) != 0;
    const long since = (now.day - day) * kMinutesADay + now.minute - policy.start;
    if (opens && since >= 0 && since < policy.length) return day;
  }
  return std::nullopt;
}

UpdatePolicy PolicyOf(int start, int length, unsigned weekdays) {
  UpdatePolicy policy{.sent = {},
                      .isValid = true,
                      .automatic = true,
                      .start = start,
                      .length = length,
                      .weekdays = weekdays};
  Json days = Json::array();
  for (int day = 6; day >= 0; --day) {
    if (((weekdays >> day) & 1U) != 0) days.push_back(day);
  }
  policy.sent = {{"automatic", true},
                 {"window",
                  {{"start", ClockText(start)},
                   {"end", ClockText((start + length) % kMinutesADay)},
                   {"days", days}}}};
  return policy;
}

UpdatePolicy PolicyAroundAClockChange(Random& dice) {
  return PolicyOf(60 + 15 * Below(dice, 8), 15 * (1 + Below(dice, 6)));
}

UpdatePolicy AnyPolicy(Random& dice) {
  const unsigned days = SomeDays(dice);
  switch (dice.below(10)) {
    case 0:
      return Invalid(dice);
    case 1:
      return Disabled(dice);
    case 2:
      return {};
    case 3:  // a whole day
      return PolicyOf(Below(dice, kMinutesADay), kMinutesADay, days);
    case 4:  // shorter than some check-ins are apart
      return PolicyOf(Below(dice, kMinutesADay), 1 + Below(dice, 15), days);
    case 5:
    case 6:  // past midnight
      return PolicyOf(20 * 60 + Below(dice, 240), 241 + Below(dice, 240), days);
    default:
      return PolicyOf(Below(dice, kMinutesADay), 30 + Below(dice, 270), days);
  }
}
