#include "simulator/mac/PowerSettings.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <limits>
#include <string_view>

#include "simulator/mac/JsonFields.h"

namespace simmac {
namespace {

struct Setting {
  const char* name;
  int initial;
};

/// In the order in which a desktop Mac lists them.
constexpr Setting kSettings[] = {
    {"standby", 1},
    {"Sleep On Power Button", 1},
    {"autorestartatconnect", 0},
    {"autorestart", 0},
    {"powernap", 1},
    {"networkoversleep", 0},
    {"disksleep", 10},
    {"sleep", 1},
    {"ttyskeepawake", 1},
    {"displaysleep", 10},
    {"tcpkeepalive", 1},
    {"lowpowermode", 0},
    {"womp", 1},
};

struct EventType {
  const char* typed;
  const char* listed;  ///< the system's own name, which listings show
  bool switchesOn;
};

constexpr EventType kEventTypes[] = {
    {"sleep", "sleep", false},     {"shutdown", "shutdown", false},
    {"restart", "restart", false}, {"wake", "wake", true},
    {"poweron", "poweron", true},  {"wakeorpoweron", "wakepoweron", true},
};

constexpr std::string_view kDayLetters = "MTWRFSU";
constexpr std::array<const char*, kDayLetters.size()> kDayNames = {
    "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"};
constexpr unsigned int kWeekdays = 0b0011111;
constexpr unsigned int kWeekend = 0b1100000;

const Setting* FindSetting(const std::string& name) {
  const auto* found = std::find_if(std::begin(kSettings), std::end(kSettings),
                                   [&name](const Setting& each) { return name == each.name; });
  return found == std::end(kSettings) ? nullptr : found;
}

const EventType* FindEventType(const std::string& type) {
  const auto* found = std::find_if(std::begin(kEventTypes), std::end(kEventTypes),
                                   [&type](const EventType& each) { return type == each.typed; });
  return found == std::end(kEventTypes) ? nullptr : found;
}

/// The number that begins `text`, of one or two digits and below `limit`, and its sign after it if
/// there is to be one; both are taken from the text. Nothing when it does not begin so.
std::optional<int> TakeNumber(std::string_view& text, int limit, std::string_view sign) {
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  if (digits < 1 || digits > 2 || text.substr(digits, sign.size()) != sign) return std::nullopt;
  int number = 0;
  (void)std::from_chars(text.data(), text.data() + digits, number);  // they are digits
  text.remove_prefix(digits + sign.size());
  return number < limit ? std::optional(number) : std::nullopt;
}

std::string DayLetters(unsigned int days) {
  std::string letters;
  for (std::size_t day = 0; day < kDayLetters.size(); ++day) {
    if (days & (1U << day)) letters += kDayLetters[day];
  }
  return letters;
}

std::string DaysText(unsigned int days) {
  if (days == (kWeekdays | kWeekend)) return "every day";
  if (days == kWeekdays) return "weekdays only";
  if (days == kWeekend) return "weekends only";
  for (std::size_t day = 0; day < kDayNames.size(); ++day) {
    if (days == 1U << day) return kDayNames[day];
  }
  return "Some days";
}

/// On the twelve-hour clock, on which the tool has midnight as 0:00AM.
std::string TimeText(int minute) {
  constexpr int kHour = 60;
  constexpr int kNoon = 12;
  const int hour = minute / kHour;
  char text[32];
  (void)std::snprintf(text, sizeof text, "%d:%02d%s", hour > kNoon ? hour - kNoon : hour,
                      minute % kHour, hour < kNoon ? "AM" : "PM");
  return text;
}

/// The same as one types it.
std::string ClockText(int minute) {
  constexpr int kHour = 60;
  char text[32];
  (void)std::snprintf(text, sizeof text, "%02d:%02d:00", minute / kHour, minute % kHour);
  return text;
}

/// The array `key` of an object; an empty one when there is none.
const Json& ArrayOf(const Json& object, const char* key) {
  static const Json none = Json::array();
  const Json& field = FieldOf(object, key);
  return field.is_array() ? field : none;
}

std::optional<RepeatingEvent> ParseEvent(const Json& object) {
  const RepeatingEvent event{TextOf(object, "type"), EventDays(TextOf(object, "days")),
                             EventMinute(TextOf(object, "time")).value_or(-1)};
  const bool valid = IsEventType(event.type) && event.days != 0 && event.minute >= 0;
  return valid ? std::optional(event) : std::nullopt;
}

/// Who keeps the Mac from something, behind the setting that this is about.
std::string Prevention(const std::vector<std::string>& processes, const std::string& what) {
  if (processes.empty()) return "";
  std::string text = " (" + what + " prevented by ";
  for (const std::string& process : processes) {
    text += (&process == &processes.front() ? "" : ", ") + process;
  }
  return text + ")";
}

std::string SettingLine(const Json& power, const std::string& name) {
  std::array<char, 64> line{};
  (void)std::snprintf(line.data(), line.size(), " %-20s %d", name.c_str(),
                      PowerSetting(power, name));
  std::string text = line.data();
  if (name == "sleep") text += Prevention(TextsOf(power, "sleepPreventedBy"), "sleep");
  if (name == "displaysleep") {
    text += Prevention(TextsOf(power, "displaySleepPreventedBy"), "display sleep");
  }
  return text + "\n";
}

std::string RepeatingText(const Json& power) {
  std::string lines;
  for (const RepeatingEvent& event : RepeatingEvents(power)) {
    lines += std::string("  ") + FindEventType(event.type)->listed + " at " +
             TimeText(event.minute) + " " + DaysText(event.days) + "\n";
  }
  return lines.empty() ? "" : "Repeating power events:\n" + lines;
}

/// Events that happen once. No tool of this Mac makes them; they are shown as they are written.
std::string ScheduledText(const Json& power) {
  std::string lines;
  int number = 0;
  for (const Json& event : ArrayOf(power, "scheduled")) {
    lines += " [" + std::to_string(number++) + "]  " + TextOf(event, "type") + " at " +
             TextOf(event, "time") + " by '" + TextOf(event, "by") + "'" +
             (FlagOf(event, "userVisible") ? " User visible: true" : "") + "\n";
  }
  return lines.empty() ? "" : "Scheduled power events:\n" + lines;
}

}  // namespace

bool RepeatingEvent::switchesOn() const {
  const EventType* known = FindEventType(type);
  return known && known->switchesOn;
}

Json PowerSettingsSeed() {
  Json settings = Json::object();
  for (const Setting& setting : kSettings) settings[setting.name] = setting.initial;
  return {{"settings", settings},
          {"sleepDisabled", false},
          {"sleepPreventedBy", {"powerd", "runningboardd"}},
          {"displaySleepPreventedBy", Json::array()},
          {"repeat", Json::array()},
          {"scheduled", Json::array()}};
}

bool IsPowerSetting(const std::string& name) {
  // The one with spaces in its name is only shown.
  return FindSetting(name) && name.find(' ') == std::string::npos;
}

int PowerSetting(const Json& power, const std::string& name) {
  const Json settings = ObjectOf(power, "settings");
  const Json& value = FieldOf(settings, name.c_str());
  const Setting* setting = FindSetting(name);
  const int initial = setting ? setting->initial : 0;
  if (!value.is_number_integer()) return initial;
  const std::int64_t number = value.get<std::int64_t>();
  const bool possible = number >= 0 && number <= std::numeric_limits<int>::max();
  return possible ? static_cast<int>(number) : initial;
}

bool IsEventType(const std::string& type) { return FindEventType(type) != nullptr; }

unsigned int EventDays(const std::string& letters) {
  unsigned int days = 0;
  for (const char letter : letters) {
    const auto upper = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    const std::size_t day = kDayLetters.find(upper);
    if (day != std::string_view::npos) days |= 1U << day;
  }
  return days;
}

std::optional<int> EventMinute(const std::string& time) {
  constexpr int kHours = 24;
  constexpr int kSixty = 60;
  std::string_view rest = time;
  const std::optional<int> hour = TakeNumber(rest, kHours, ":");
  const std::optional<int> minute = TakeNumber(rest, kSixty, ":");
  const std::optional<int> second = TakeNumber(rest, kSixty, "");
  const bool valid = hour && minute && second && rest.empty();
  return valid ? std::optional(*hour * kSixty + *minute) : std::nullopt;
}

void PutEvent(std::vector<RepeatingEvent>& events, const RepeatingEvent& event) {
  const bool on = event.switchesOn();
  events.erase(std::remove_if(events.begin(), events.end(),
                              [on](const RepeatingEvent& each) { return each.switchesOn() == on; }),
               events.end());
  events.insert(on ? events.begin() : events.end(), event);
}

std::vector<RepeatingEvent> RepeatingEvents(const Json& power) {
  std::vector<RepeatingEvent> events;
  for (const Json& each : ArrayOf(power, "repeat")) {
    if (const std::optional<RepeatingEvent> event = ParseEvent(each)) PutEvent(events, *event);
  }
  return events;
}

Json RepeatingEventsJson(const std::vector<RepeatingEvent>& events) {
  Json list = Json::array();
  for (const RepeatingEvent& event : events) {
    list.push_back({{"type", event.type},
                    {"days", DayLetters(event.days)},
                    {"time", ClockText(event.minute)}});
  }
  return list;
}

std::string PowerSettingsText(const Json& power) {
  std::string text = "System-wide power settings:\n SleepDisabled\t\t";
  text += FlagOf(power, "sleepDisabled") ? "1\n" : "0\n";
  text += "Currently in use:\n";
  for (const Setting& setting : kSettings) text += SettingLine(power, setting.name);
  return text;
}

std::string PowerScheduleText(const Json& power) {
  const std::string text = RepeatingText(power) + ScheduledText(power);
  return text.empty() ? "No scheduled events.\n" : text;
}

}  // namespace simmac
