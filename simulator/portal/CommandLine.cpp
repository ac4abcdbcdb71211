#include "simulator/portal/CommandLine.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/portal/Commands.h"
#include "simulator/portal/JsonText.h"
#include "simulator/portal/Serve.h"

namespace portal {
namespace {

/// Everything that the command line can say.
struct Arguments {
  std::string dir;
  bool json = false;
  ServeOptions serve;
  std::string terminal;
  std::string code;
  std::optional<std::string> text;
  std::optional<std::string> microsoft;
  std::optional<std::string> email;
  std::optional<std::vector<std::string>> hosts;
  bool noHosts = false;
  std::optional<std::string> policy;
  std::optional<std::string> source;
  bool raw = false;
  bool none = false;
  std::string mode;
  std::optional<std::string> path;
  std::optional<int> times;
  std::optional<int> delayMs;
  std::optional<int> status;
  std::optional<std::string> body;
};

constexpr char kPowerHelp[] =
    "JSON: {\"screenOffMinutes\": 0 to 240, \"sleepMinutes\": 0 to 240, \"schedule\": "
    "{\"enabled\":\n"
    "true or false, \"sleepAt\": \"HH:MM\", \"wakeAt\": \"HH:MM\", \"days\": [0 (Sunday) to 6, at "
    "most\n"
    "seven]}}. Both minutes are needed; the rest is, when absent or null, disabled, 22:00, 07:00 "
    "and\n"
    "Monday to Friday. An enabled schedule needs a day, and sleepAt and wakeAt must differ. Other\n"
    "keys are ignored by terminals.\n"
    "A source is heeded only together with a policy; without one it is \"default\".";

constexpr char kUpdatesHelp[] =
    "JSON: {\"automatic\": true or false, \"window\": {\"start\": \"HH:MM\", \"end\": \"HH:MM\",\n"
    "\"days\": [0 (Sunday) to 6, one to seven of them]}}. When absent or null, automatic is false, "
    "the\n"
    "window is 02:00 to 05:00 and the days are all seven; a window needs start and end. Other "
    "keys\n"
    "are ignored by terminals.\n"
    "A source is heeded only together with a policy; without one it is \"default\".";

std::string CheckJson(const std::string& text) {
  return ParseJson(text) ? "" : "not JSON: " + text;
}

std::optional<bool> Switch(const std::optional<std::string>& word) {
  if (!word) return std::nullopt;
  return *word == "on";
}

/// The program's commands, wired to what they do.
class CommandLine {
 public:
  CommandLine();
  int run(int argc, char** argv);

 private:
  using Action = std::function<int(const Commands&)>;

  CLI::App* add(const std::string& name, const std::string& what, Action action);
  CLI::App* addForTerminal(const std::string& name, const std::string& what, Action action);
  void addServe();
  void addCodes();
  void addTerminals();
  void addExitPassword();
  void addSignIn();
  void addPolicy(const std::string& kind, const std::string& what, const std::string& help);
  void addMisbehave();
  int setPolicy(const Commands& commands, const std::string& kind) const;
  Json misbehaviour() const;

  CLI::App _app{
      "The reference portal that kiosk terminals talk to, and its administrator's commands"};
  Arguments _given;
  Action _action;
};

CommandLine::CommandLine() {
  _app.add_option("--dir", _given.dir, "The portal's folder")->required();
  _app.add_flag("--json", _given.json, "Print JSON, for programs");
  _app.require_subcommand(1);
  _app.fallthrough();
  _app.footer(
      "ID is a terminal's name, its id, the beginning of its id, or \"-\" for the only one. "
      "Several\n"
      "terminals may have one name: a device that is paired anew becomes a new terminal beside "
      "the\n"
      "old one, which stays until it is forgotten. Then only the id tells them apart.\n"
      "A terminal is \"enrolled\" from the moment its code is claimed, even if its device never\n"
      "fetches the token; then it never checks in: revoke or forget it.\n"
      "Exit status: 0 done, 1 refused, 2 wrong usage, 3 the portal was not reached.");
  addServe();
  addCodes();
  addTerminals();
  addSignIn();
  addPolicy("power", "Set a terminal's power policy, or send none", kPowerHelp);
  addPolicy("updates", "Set a terminal's update policy, or send none", kUpdatesHelp);
  addMisbehave();
}

int CommandLine::run(int argc, char** argv) {
  try {
    _app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return _app.exit(error) == 0 ? kOk : kUsage;
  }
  _given.serve.dir = _given.dir;
  return _action(Commands(_given.dir, _given.json));
}

CLI::App* CommandLine::add(const std::string& name, const std::string& what, Action action) {
  CLI::App* const command = _app.add_subcommand(name, what);
  command->callback([this, action = std::move(action)] { _action = action; });
  return command;
}

CLI::App* CommandLine::addForTerminal(const std::string& name, const std::string& what,
                                      Action action) {
  CLI::App* const command = add(name, what, std::move(action));
  command->add_option("ID", _given.terminal, "The terminal")->required();
  return command;
}

void CommandLine::addServe() {
  CLI::App* const serve = add("serve", "Serve until SIGTERM or SIGINT",
                              [this](const Commands&) { return Serve(_given.serve); });
  const CLI::Range port(0, 65535);
  serve->add_option("--port", _given.serve.port, "Port for terminals; 0: any")->check(port);
  serve->add_option("--admin-port", _given.serve.adminPort, "Port for the administrator; 0: any")
      ->check(port);
  serve->add_option_function<std::string>(
      "--record", [this](const std::string& path) { _given.serve.record = path; },
      "Append every exchange to this file, one JSON line each, tokens and passwords replaced; the "
      "file becomes its owner's alone");
}

void CommandLine::addCodes() {
  add("codes", "List the pairing codes", [](const Commands& commands) { return commands.codes(); });
  CLI::App* const claim = add(
      "claim",
      "Make a terminal of the device that shows this code; always a new one, even if the device "
      "was a terminal before",
      [this](const Commands& commands) { return commands.claim(_given.code, _given.text); });
  claim->add_option("CODE", _given.code, "The code")->required();
  claim->add_option("--name", _given.text, "The terminal's name; its host name otherwise");
  CLI::App* const expire =
      add("expire", "End the life of a code",
          [this](const Commands& commands) { return commands.expire(_given.code); });
  expire->add_option("CODE", _given.code, "The code")->required();
}

void CommandLine::addTerminals() {
  add("terminals", "List the terminals",
      [](const Commands& commands) { return commands.terminals(); });
  addForTerminal("show", "Show a terminal",
                 [this](const Commands& commands) { return commands.show(_given.terminal); });
  addForTerminal("revoke", "Revoke a terminal: it is told to stop being a kiosk",
                 [this](const Commands& commands) { return commands.revoke(_given.terminal); });
  addForTerminal("forget", "Forget a terminal: its token becomes unknown",
                 [this](const Commands& commands) { return commands.forget(_given.terminal); });
  addForTerminal("rename", "Give a terminal a name",
                 [this](const Commands& commands) {
                   return commands.change(_given.terminal, {{"name", *_given.text}});
                 })
      ->add_option("NAME", _given.text, "The name")
      ->required();
  addExitPassword();
}

void CommandLine::addExitPassword() {
  addForTerminal(
      "exit-password",
      "Set the maintenance password, which leaves kiosk mode; it is read from standard input, "
      "on a terminal without echo",
      [this](const Commands& commands) { return commands.exitPassword(_given.terminal); })
      ->add_option("INPUT", _given.text, "\"-\" or nothing: standard input")
      ->check([](const std::string& text) -> std::string {
        if (text == "-") return "";
        return "a password on the command line can be seen by others; give it on standard input";
      });
}

void CommandLine::addSignIn() {
  CLI::App* const command = addForTerminal(
      "sign-in", "Change a terminal's sign-in options", [this](const Commands& commands) {
        if (_given.noHosts) _given.hosts.emplace();
        return commands.signIn(_given.terminal, Switch(_given.microsoft), Switch(_given.email),
                               _given.hosts);
      });
  const CLI::IsMember onOrOff({"on", "off"});
  command->add_option("--microsoft", _given.microsoft, "Sign in with Microsoft: on or off")
      ->check(onOrOff);
  command->add_option("--email", _given.email, "Sign in by e-mail: on or off")->check(onOrOff);
  CLI::Option* const hosts = command->add_option_function<std::vector<std::string>>(
      "--host", [this](const std::vector<std::string>& list) { _given.hosts = list; },
      "A further host that sign-in may reach; replaces those set before");
  hosts->allow_extra_args(false);
  command->add_flag("--no-hosts", _given.noHosts, "Remove the further hosts")->excludes(hosts);
}

void CommandLine::addPolicy(const std::string& kind, const std::string& what,
                            const std::string& help) {
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
  command->parse_complete_callback([this] {
    if (!_given.policy && !_given.source && !_given.none)
      throw CLI::RequiredError("JSON, --source or --none");
  });
  command->footer(help + "\n" + _app.get_footer());
}

int CommandLine::setPolicy(const Commands& commands, const std::string& kind) const {
  Json change = Json::object();
  if (_given.none) change = {{kind, nullptr}, {kind + "Source", nullptr}};
  if (_given.policy) change[kind] = *ParseJson(*_given.policy);
  if (_given.source) change[kind + "Source"] = *_given.source;
  return commands.change(_given.terminal, change, _given.raw);
}

void CommandLine::addMisbehave() {
  CLI::App* const command =
      add("misbehave", "Let the portal do something wrong, or show what it does wrong",
          [this](const Commands& commands) {
            return _given.mode.empty() ? commands.showMisbehaviour()
                                       : commands.misbehave(misbehaviour());
          });
  command->add_option("MODE", _given.mode,
                      "none, slow, cut, garbage, html500, status, wrongCertificate or refuse");
  command->add_option("--path", _given.path, "Only requests whose path begins so");
  command->add_option("--times", _given.times, "Only so many requests or connections");
  command->add_option("--delay-ms", _given.delayMs, "slow: how late answers are");
  command->add_option("--status", _given.status, "status: the status of answers");
  command->add_option("--body", _given.body, "status: the JSON body of answers")->check(CheckJson);
}

Json CommandLine::misbehaviour() const {
  Json settings = {{"mode", _given.mode}};
  if (_given.path) settings["path"] = *_given.path;
  if (_given.times) settings["times"] = *_given.times;
  if (_given.delayMs) settings["delayMs"] = *_given.delayMs;
  if (_given.status) settings["status"] = *_given.status;
  if (_given.body) settings["body"] = *ParseJson(*_given.body);
  return settings;
}

}  // namespace

int RunCommandLine(int argc, char** argv) { return CommandLine().run(argc, argv); }

}  // namespace portal
