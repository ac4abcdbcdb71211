#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/client/PowerTable.h"
#include "simulator/client/Unlocked.h"
#include "simulator/client/VerbOptions.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

struct PowerOptions {
  long long screenOff = 0;
  long long sleep = 0;
  std::string schedule;
  std::optional<std::string> sleepAt;
  std::optional<std::string> wakeAt;
  std::optional<std::vector<int>> days;
};

/// A reply with a policy is shown also when kioskd could not do all that was asked.
ExitStatus Ask(Session& session, const Json& request) {
  const Answer answer = AskUnlocked(session, request);
  if (answer.reply.contains("effective") && !session.json()) std::cout << PowerTable(answer.reply);
  return answer.status;
}

VerbAction Show(CLI::App&) {
  return [](Session& session) { return Ask(session, {{"cmd", "power.get"}}); };
}

VerbAction Follow(CLI::App&) {
  return [](Session& session) {
    return Ask(session, {{"cmd", "power.set"}, {"useOrganisation", true}});
  };
}

/// What is not given is left out; the daemon has defaults for it.
Json Schedule(const PowerOptions& options) {
  Json schedule = {{"enabled", options.schedule == "on"}};
  if (options.sleepAt) schedule["sleepAt"] = *options.sleepAt;
  if (options.wakeAt) schedule["wakeAt"] = *options.wakeAt;
  if (options.days) schedule["days"] = *options.days;
  return schedule;
}

ExitStatus RunSet(Session& session, const PowerOptions& options) {
  Json request = {{"cmd", "power.set"},
                  {"screenOffMinutes", options.screenOff},
                  {"sleepMinutes", options.sleep}};
  if (!options.schedule.empty()) request["schedule"] = Schedule(options);
  return Ask(session, request);
}

/// The daemon counts the days from Sunday.
std::vector<int> DayNumbers(const std::string& list) {
  constexpr std::string_view kNames[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
  std::vector<int> numbers;
  for (const std::string& name : SplitList(list)) {
    const auto* const found = std::find(std::begin(kNames), std::end(kNames), name);
    if (found == std::end(kNames)) {
      throw CLI::ValidationError("--days", "mon, tue, wed, thu, fri, sat and sun are known");
    }
    numbers.push_back(static_cast<int>(found - std::begin(kNames)));
  }
  return numbers;
}

void AddMinutes(CLI::App& command, const std::string& name, long long& value,
                const std::string& description) {
  const auto store = [&value, name](const std::string& text) { value = WholeNumber(text, name); };
  command.add_option_function<std::string>(name, store, description)->type_name("MIN")->required();
}

void AddSchedule(CLI::App& command, PowerOptions& options) {
  CLI::Option* const schedule =
      command
          .add_option("--schedule", options.schedule,
                      "Whether the Mac sleeps and wakes by the clock (without: as it is)")
          ->check(CLI::IsMember({"on", "off"}))
          ->option_text("on|off");
  command.add_option("--sleep-at", options.sleepAt, "When it goes to sleep (default: 22:00)")
      ->option_text("HH:MM")
      ->needs(schedule);
  command.add_option("--wake-at", options.wakeAt, "When it wakes (default: 07:00)")
      ->option_text("HH:MM")
      ->needs(schedule);
  const auto store = [&options](const std::string& list) { options.days = DayNumbers(list); };
  command.add_option_function<std::string>("--days", store, "On which days (default: mon to fri)")
      ->option_text("mon,tue,...")
      ->needs(schedule);
}

VerbAction Set(CLI::App& command) {
  const auto options = std::make_shared<PowerOptions>();
  AddMinutes(command, "--screen-off", options->screenOff,
             "Minutes until the screen goes off, 0 for never");
  AddMinutes(command, "--sleep", options->sleep, "Minutes until the Mac sleeps, 0 for never");
  AddSchedule(command, *options);
  return [options](Session& session) { return RunSet(session, *options); };
}

constexpr Verb kPowerParts[] = {
    {"show", "Show what the organisation and the terminal say, and what is in force", Show},
    {"set", "Override the organisation's policy at this terminal", Set},
    {"follow", "Drop the terminal's override; follow the organisation", Follow},
};

}  // namespace

VerbAction VerbPower(CLI::App& command) { return VerbGroup(command, kPowerParts); }

}  // namespace client
