// The tables of the policies once more, in the plainest form, to hold the parsers against.
#pragma once

#include <optional>
#include <string>

#include "platform/Json.h"

/// Whether `value` is one of `from` to `to`, as an integer or a real without fraction.
inline bool IsNumberIn(const Json& value, int from, int to) {
  for (int number = from; number <= to; ++number) {
    if (value.is_number() && value == Json(number)) return true;
  }
  return false;
}

/// The minute of the day that `value` names as HH:MM, found by trying them all.
inline std::optional<int> MinuteOfDay(const Json& value) {
  const auto two = [](int number) {
    return std::string(number < 10 ? "0" : "") + std::to_string(number);
  };
  for (int minute = 0; minute < 24 * 60; ++minute) {
    if (value == two(minute / 60) + ":" + two(minute % 60)) return minute;
  }
  return std::nullopt;
}

/// The weekdays that `value` lists, found by asking for each.
inline std::optional<Json> Weekdays(const Json& value) {
  if (!value.is_array() || value.size() > 7) return std::nullopt;
  for (const Json& element : value) {
    if (!IsNumberIn(element, 0, 6)) return std::nullopt;
  }
  Json days = Json::array();
  for (int day = 0; day <= 6; ++day) {
    for (const Json& element : value) {
      if (element == Json(day) && (days.empty() || days.back() != day)) days.push_back(day);
    }
  }
  return days;
}

/// Whether `object` has something other than null under `key`.
inline bool Has(const Json& object, const char* key) {
  return object.contains(key) && !object.at(key).is_null();
}

/// What `object` has under `key`, or null.
inline Json Member(const Json& object, const char* key) {
  return Has(object, key) ? object.at(key) : Json();
}
