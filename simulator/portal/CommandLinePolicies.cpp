// The commands that set policies.
#include "simulator/portal/CommandLineParser.h"
#include "simulator/portal/JsonText.h"
#include "simulator/portal/Shapes.h"

namespace portal {
namespace {

constexpr char kPowerHelp[] =
    "JSON: {\"screenOffMinutes\": 0 to 240, \"sleepMinutes\": 0 to 240, \"schedule\": "
    "{\"enabled\":\n"
    "true or false, \"sleepAt\": \"HH:MM\", \"wakeAt\": \"HH:MM\", \"days\": [0 (Sunday) to 6, at "
    "most\n"
    "seven]}}. Both minutes are needed; the rest is, when absent or null, disabled, 22:00, 07:00 "
    "and\n"
    "Monday to Friday. An enabled schedule needs a day, and sleepAt and wakeAt must differ. Other\n"
    "keys are ignored by terminals.\n"
    "A source is heeded only together with a policy; without one it is \"default\".\n";

constexpr char kUpdatesHelp[] =
    "--automatic, --start, --end and --days change what they name and leave the rest; a window of\n"
    "which only a part is given is 02:00 to 05:00 otherwise.\n"
    "JSON: {\"automatic\": true or false, \"window\": {\"start\": \"HH:MM\", \"end\": \"HH:MM\",\n"
    "\"days\": [0 (Sunday) to 6, one to seven of them]}}. When absent or null, automatic is false, "
    "the\n"
    "window is 02:00 to 05:00 and the days are all seven; a window needs start and end. Other "
    "keys\n"
    "are ignored by terminals. A window is in the terminal's local time; one that ends when it\n"
    "starts lasts a full day.\n"
    "A source is heeded only together with a policy; without one it is \"default\".\n";

std::string CheckClock(const std::string& text) {
  return IsClock(text) ? "" : "not a time from 00:00 to 23:59: " + text;
}

std::string CheckDays(const std::string& text) {
  return ParseDays(text) ? "" : "neither \"all\" nor days such as mon,tue: " + text;
}

}  // namespace

CLI::App* CommandLineParser::addPolicy(const std::string& kind, const std::string& what,
                                       const std::string& choices) {
  CLI::App* const command = addForTerminal(
      kind, what, [this, kind](const Commands& commands) { return setPolicy(commands, kind); });
  CLI::Option* const policy =
      command->add_option("JSON", _given.policy, "The policy")->check(CheckJson);
  CLI::Option* const source = command->add_option("--source", _given.source,
                                                  "Where it comes from: device, tenant or default");
  command->add_flag("--raw", _given.raw, "Let invalid values pass");
  command
      ->add_flag("--none", _given.none,
                 "Send the policy and its source no more; the terminal keeps those it has")
      ->excludes(policy)
      ->excludes(source);
  command->parse_complete_callback([this, choices] {
    if (_given.source && !_given.raw && !IsSource(*_given.source))
      throw CLI::ValidationError("--source", "neither device nor tenant nor default");
    if (!_given.policy && !_given.source && !_given.none && !_given.updates.any())
      throw CLI::RequiredError(choices);
  });
  return command;
}

void CommandLineParser::addPower() {
  addPolicy("power", "Set a terminal's power policy, or send none", "JSON, --source or --none")
      ->footer(kPowerHelp + _app.get_footer());
}

void CommandLineParser::addUpdates() {
  CLI::App* const command =
      addPolicy("updates", "Set a terminal's update policy, or send none",
                "JSON, --automatic, --start, --end, --days, --source or --none");
  const std::vector<CLI::Option*> settings = {
      command
          ->add_option_function<std::string>(
              "--automatic",
              [this](const std::string& word) { _given.updates.automatic = Switch(word); },
              "Install updates by itself: on or off")
          ->check(CLI::IsMember({"on", "off"})),
      command->add_option("--start", _given.updates.start, "When the window opens: HH:MM")
          ->check(CheckClock),
      command->add_option("--end", _given.updates.end, "When the window closes: HH:MM")
          ->check(CheckClock),
      command
          ->add_option("--days", _given.updates.days,
                       "On which days it opens: all, or some of sun,mon,tue,wed,thu,fri,sat")
          ->check(CheckDays)};
  for (CLI::Option* const setting : settings)
    for (const char* other : {"JSON", "--raw", "--none"})
      setting->excludes(command->get_option(other));
  command->footer(kUpdatesHelp + _app.get_footer());
}

int CommandLineParser::setPolicy(const Commands& commands, const std::string& kind) const {
  if (_given.updates.any()) return commands.updates(_given.terminal, _given.updates, _given.source);
  Json change = Json::object();
  if (_given.none) change = {{kind, nullptr}, {kind + "Source", nullptr}};
  if (_given.policy) change[kind] = *ParseJson(*_given.policy);
  if (_given.source) change[kind + "Source"] = *_given.source;
  return commands.change(_given.terminal, change, _given.raw);
}

}  // namespace portal
