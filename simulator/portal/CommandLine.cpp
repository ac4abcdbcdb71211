#include "simulator/portal/CommandLine.h"

#include "simulator/portal/CommandLineParser.h"
#include "simulator/portal/JsonText.h"
#include "simulator/portal/Limits.h"

namespace portal {
namespace {

constexpr char kMisbehaveHelp[] =
    "slow: answers come late. cut: an answer ends after half of its body. empty: it has no body.\n"
    "corrupt: a byte in the middle of its body is another. All of these serve the request first.\n"
    "garbage: 200 and bytes that are not JSON. html500: 500 and a page. status: a status and body\n"
    "as given. None of these serves the request.\n"
    "wrongCertificate: connections see that of another authority. refuse: there are none.";

}  // namespace

std::string CheckJson(const std::string& text) {
  return ParseJson(text) ? "" : "not JSON: " + text;
}

std::function<std::string(const std::string&)> CheckLength(std::size_t least, std::size_t most) {
  return [least, most](const std::string& text) -> std::string {
    const std::size_t length = Characters(text);
    if (length >= least && length <= most) return "";
    return "has " + std::to_string(length) + " characters, not " + std::to_string(least) + " to " +
           std::to_string(most);
  };
}

std::optional<bool> Switch(const std::optional<std::string>& word) {
  if (!word) return std::nullopt;
  return *word == "on";
}

CommandLineParser::CommandLineParser() {
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
  addPower();
  addUpdates();
  addBranding();
  addPhoto();
  addMisbehave();
}

int CommandLineParser::run(int argc, char** argv) {
  try {
    _app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return _app.exit(error) == 0 ? kOk : kUsage;
  }
  _given.serve.dir = _given.dir;
  return _action(Commands(_given.dir, _given.json));
}

CLI::App* CommandLineParser::add(const std::string& name, const std::string& what, Action action) {
  return nest(&_app, name, what, std::move(action));
}

CLI::App* CommandLineParser::nest(CLI::App* command, const std::string& name,
                                  const std::string& what, Action action) {
  CLI::App* const nested = command->add_subcommand(name, what);
  nested->callback([this, action = std::move(action)] { _action = action; });
  return nested;
}

CLI::App* CommandLineParser::addForTerminal(const std::string& name, const std::string& what,
                                            Action action) {
  return takeTerminal(add(name, what, std::move(action)));
}

CLI::App* CommandLineParser::takeTerminal(CLI::App* command) {
  command->add_option("ID", _given.terminal, "The terminal")->required();
  return command;
}

void CommandLineParser::addServe() {
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

void CommandLineParser::addCodes() {
  add("codes", "List the pairing codes", [](const Commands& commands) { return commands.codes(); });
  CLI::App* const claim = add(
      "claim",
      "Make a terminal of the device that shows this code; always a new one, even if the device "
      "was a terminal before",
      [this](const Commands& commands) { return commands.claim(_given.code, _given.text); });
  claim->add_option("CODE", _given.code, "The code")->required();
  claim->add_option("--name", _given.text, "The terminal's name; its host name otherwise")
      ->check(CheckLength(1, kMaxName));
  CLI::App* const expire =
      add("expire", "End the life of a code",
          [this](const Commands& commands) { return commands.expire(_given.code); });
  expire->add_option("CODE", _given.code, "The code")->required();
}

void CommandLineParser::addTerminals() {
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
      ->required()
      ->check(CheckLength(1, kMaxName));
  addExitPassword();
}

void CommandLineParser::addExitPassword() {
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

void CommandLineParser::addSignIn() {
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

void CommandLineParser::addMisbehave() {
  CLI::App* const command =
      add("misbehave", "Let the portal do something wrong, or show what it does wrong",
          [this](const Commands& commands) {
            return _given.mode.empty() ? commands.showMisbehaviour()
                                       : commands.misbehave(misbehaviour());
          });
  command->add_option("MODE", _given.mode,
                      "none, slow, cut, empty, corrupt, garbage, html500, status, wrongCertificate "
                      "or refuse");
  command->add_option("--path", _given.path,
                      "Only requests whose path begins so, such as /api/kiosk/branding/photos/");
  command->add_option("--times", _given.times, "Only so many requests or connections");
  command->add_option("--delay-ms", _given.delayMs, "slow: how late answers are");
  command->add_option("--status", _given.status, "status: the status of answers");
  command->add_option("--body", _given.body, "status: the JSON body of answers")->check(CheckJson);
  command->footer(kMisbehaveHelp);
}

Json CommandLineParser::misbehaviour() const {
  Json settings = {{"mode", _given.mode}};
  if (_given.path) settings["path"] = *_given.path;
  if (_given.times) settings["times"] = *_given.times;
  if (_given.delayMs) settings["delayMs"] = *_given.delayMs;
  if (_given.status) settings["status"] = *_given.status;
  if (_given.body) settings["body"] = *ParseJson(*_given.body);
  return settings;
}

int RunCommandLine(int argc, char** argv) { return CommandLineParser().run(argc, argv); }

}  // namespace portal
