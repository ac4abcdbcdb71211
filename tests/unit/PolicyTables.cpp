#include "tests/unit/PolicyTables.h"

#include <algorithm>
#include <ctime>

#include "tests/unit/PolicyRules.h"
#include "tests/unit/WrittenPatterns.h"

namespace {

std::optional<Json> ScheduleByTheTables(const Json& given) {
  if (!given.is_object()) return std::nullopt;
  Json schedule = {{"enabled", false}, {"sleepAt", "22:00"}, {"wakeAt", "07:00"}};
  schedule["days"] = {1, 2, 3, 4, 5};
  for (const char* key : {"enabled", "sleepAt", "wakeAt", "days"}) {
    if (Has(given, key)) schedule[key] = given.at(key);
  }
  const std::optional<int> sleepAt = MinuteOfDay(schedule["sleepAt"]);
  const std::optional<int> wakeAt = MinuteOfDay(schedule["wakeAt"]);
  const std::optional<Json> days = Weekdays(schedule["days"]);
  if (!schedule["enabled"].is_boolean() || !sleepAt || !wakeAt || !days) return std::nullopt;
  if (schedule["enabled"] == true && (days->empty() || *sleepAt == *wakeAt)) return std::nullopt;
  schedule["days"] = *days;
  return schedule;
}

std::optional<Json> WindowByTheTables(const Json& given) {
  if (!given.is_object() || !Has(given, "start") || !Has(given, "end")) return std::nullopt;
  if (!MinuteOfDay(given.at("start")) || !MinuteOfDay(given.at("end"))) return std::nullopt;
  const Json everyDay{0, 1, 2, 3, 4, 5, 6};
  const std::optional<Json> days = Weekdays(Has(given, "days") ? given.at("days") : everyDay);
  if (!days || days->empty()) return std::nullopt;
  return Json{{"start", given.at("start")}, {"end", given.at("end")}, {"days", *days}};
}

/// The date of the day so many days after the one of `now`, and its weekday from 0 = Sunday.
std::tm DayNear(const platform::CivilTime& now, int days) {
  std::tm day = {};
  day.tm_year = now.year - 1900;
  day.tm_mon = now.month - 1;
  day.tm_mday = now.day + days;
  timegm(&day);
  return day;
}

bool Truth(const Json& given, const char* key, bool otherwise) {
  if (!Has(given, key)) return otherwise;
  const Json& value = given.at(key);
  if (value.is_boolean()) return value == true;
  return value.is_number() ? value != 0 : otherwise;
}

}  // namespace

std::optional<Json> PowerByTheTables(const Json& given) {
  if (!given.is_object()) return std::nullopt;
  Json policy = Json::object();
  for (const char* key : {"screenOffMinutes", "sleepMinutes"}) {
    if (!Has(given, key) || !IsNumberIn(given.at(key), 0, 240)) return std::nullopt;
    policy[key] = given.at(key).get<int>();
  }
  const std::optional<Json> schedule =
      ScheduleByTheTables(Has(given, "schedule") ? given.at("schedule") : Json::object());
  if (!schedule) return std::nullopt;
  policy["schedule"] = *schedule;
  return policy;
}

std::optional<Json> UpdatesByTheTables(const Json& given) {
  if (!given.is_object()) return std::nullopt;
  Json policy = {{"automatic", false}};
  policy["window"] = {{"start", "02:00"}, {"end", "05:00"}, {"days", {0, 1, 2, 3, 4, 5, 6}}};
  if (Has(given, "automatic")) {
    if (!given.at("automatic").is_boolean()) return std::nullopt;
    policy["automatic"] = given.at("automatic");
  }
  if (Has(given, "window")) {
    const std::optional<Json> window = WindowByTheTables(given.at("window"));
    if (!window) return std::nullopt;
    policy["window"] = *window;
  }
  return policy;
}

std::optional<std::string> WindowByTheMinutes(const Json& window, const platform::CivilTime& now) {
  constexpr int kDay = 24 * 60;
  const int start = MinuteOfDay(window["start"]).value();
  const int end = MinuteOfDay(window["end"]).value();
  const int length = end > start ? end - start : kDay - start + end;
  // The later opening is the one that counts.
  for (const int day : {0, -1}) {
    const std::tm opening = DayNear(now, day);
    const int since = now.hour * 60 + now.minute - day * kDay - start;
    const Json& days = window["days"];
    if (since < 0 || since >= length ||
        std::count(days.begin(), days.end(), opening.tm_wday) == 0) {
      continue;
    }
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d", &opening));
  }
  return std::nullopt;
}

Json SignInByTheTable(const Json& given) {
  Json hosts = Json::array();
  if (given.is_object() && Has(given, "extraHosts") && given.at("extraHosts").is_array()) {
    for (const Json& host : given.at("extraHosts")) {
      if (!host.is_string() || host.get<std::string>().size() > 253) continue;
      if (!MatchesHostNamePattern(host.get<std::string>())) continue;
      if (hosts.size() < 10 && std::count(hosts.begin(), hosts.end(), host) == 0) {
        hosts.push_back(host);
      }
    }
  }
  const bool object = given.is_object();
  return {{"microsoft", object ? Truth(given, "microsoft", true) : true},
          {"email", object ? Truth(given, "email", false) : false},
          {"extraHosts", hosts}};
}
