// Power settings and the schedule of sleep and wake, as the Mac's power.json has them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Json.h"

namespace simmac {

/// An event that the Mac repeats: "sleep" on days "MTWRF" at a minute of the day.
struct RepeatingEvent {
  std::string type;       ///< as one types it: wakeorpoweron, not wakepoweron
  unsigned int days = 0;  ///< Monday is bit 0, Sunday bit 6
  int minute = 0;         ///< 0 to 1439

  /// Whether it switches the Mac on. A Mac repeats one event that does and one that does not.
  bool switchesOn() const;
};

/// What stands in a new Mac's power.json.
Json PowerSettingsSeed();

/// Whether pmset sets a setting of this name.
bool IsPowerSetting(const std::string& name);

/// A setting's value; the one of a new Mac when the file has none or a wrong one.
int PowerSetting(const Json& power, const std::string& name);

/// Whether events of this type exist.
bool IsEventType(const std::string& type);

/// The days that letters of "MTWRFSU" stand for, in either case; other letters count for nothing.
unsigned int EventDays(const std::string& letters);

/// A time of day, "HH:MM:SS", as minutes since midnight; nothing when it is none.
std::optional<int> EventMinute(const std::string& time);

/// Puts an event in the place of the one that does the same, switch on or off. The one that
/// switches on comes first.
void PutEvent(std::vector<RepeatingEvent>& events, const RepeatingEvent& event);

/// The repeating events of power.json, two at most. What is no event is left out.
std::vector<RepeatingEvent> RepeatingEvents(const Json& power);

/// Events as RepeatingEvents reads them.
Json RepeatingEventsJson(const std::vector<RepeatingEvent>& events);

/// What `pmset -g` and `pmset -g sched` print.
std::string PowerSettingsText(const Json& power);
std::string PowerScheduleText(const Json& power);

}  // namespace simmac
