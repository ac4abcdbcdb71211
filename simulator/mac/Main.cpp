// simmac: makes, boots and looks after simulated Macs.

#include <algorithm>
#include <filesystem>
#include <iostream>

#include "simulator/mac/CommandLine.h"
#include "simulator/mac/commands/Commands.h"
#include "simulator/mac/launchd/Launchd.h"

namespace {

using simmac::AddCommand;
using simmac::Keep;
using simmac::Request;

void AddCreate(CLI::App& app, Request& request) {
  auto& options = Keep<simmac::CreateOptions>();
  CLI::App* command = AddCommand(app, request, "create", "Make a new Mac");
  command->add_option("--portal", options.portal, "Portal that the terminal is configured for");
  command->add_option("--trust", options.trust, "Certificate authorities that the Mac trusts (PEM)")
      ->allow_extra_args(false);
  command->add_option("--computer-name", options.computerName, "The computer's name");
  command->add_option("--os-version", options.osVersion, "The system's version");
  command->add_option("--os-build", options.osBuild, "The system's build");
  command->add_option("--app-version", options.appVersion, "The application's version");
  command->add_flag("--force", options.force, "Replace a Mac that is there already");
  command->add_flag("--tools-only", options.toolsOnly,
                    "Leave out the daemon, the application and kioskctl");
  command->callback([&request, &options] {
    request.action = [&options](const auto& root) { return simmac::CreateMac(root, options); };
  });
}

struct BootArguments {
  double loginDelay = 0;
  long throttle = -1;
};

int RunBoot(const std::string& root, const BootArguments& arguments) {
  if (!simmac::IsMac(root)) return 1;
  simmac::BootOptions options;
  options.loginDelay = std::chrono::milliseconds(static_cast<long>(arguments.loginDelay * 1000));
  if (arguments.throttle >= 0) options.throttle = std::chrono::seconds(arguments.throttle);
  return simmac::Boot(root, options);
}

void AddBoot(CLI::App& app, Request& request) {
  auto& arguments = Keep<BootArguments>();
  constexpr double kLongestDelay = 3600;
  constexpr long kLongestThrottle = 3600;
  CLI::App* command = AddCommand(app, request, "boot",
                                 "Boot a Mac and run it in the foreground until it is halted");
  command
      ->add_option("--login-delay", arguments.loginDelay,
                   "Seconds between the daemons' start and the login window")
      ->check(CLI::Range(0.0, kLongestDelay));
  command
      ->add_option("--throttle", arguments.throttle,
                   "Seconds between two starts of a daemon, in place of its own ThrottleInterval")
      ->check(CLI::Range(0L, kLongestThrottle));
  command->callback([&request, &arguments] {
    request.action = [&arguments](const auto& root) { return RunBoot(root, arguments); };
  });
}

void AddPower(CLI::App& app, Request& request) {
  AddCommand(app, request, "reboot", "Restart a running Mac and wait until it is up again")
      ->callback([&request] { request.action = simmac::RebootMac; });
  AddCommand(app, request, "halt", "Switch a running Mac off and wait until it is")
      ->callback([&request] { request.action = simmac::HaltMac; });
}

struct ShowArguments {
  bool json = false;
  bool follow = false;
};

void AddShow(CLI::App& app, Request& request) {
  auto& arguments = Keep<ShowArguments>();
  CLI::App* status = AddCommand(app, request, "status", "Show whether a Mac runs and who uses it");
  status->add_flag("--json", arguments.json, "As one JSON object");
  status->callback([&request, &arguments] {
    request.action = [&](const auto& root) { return simmac::ShowStatus(root, arguments.json); };
  });
  CLI::App* journal = AddCommand(app, request, "journal", "Show every call of a system tool");
  journal->add_flag("--json", arguments.json, "One JSON object a line");
  journal->add_flag("--follow", arguments.follow, "Wait for more");
  journal->callback([&request, &arguments] {
    request.action = [&](const auto& root) {
      return simmac::ShowJournal(root, arguments.json, arguments.follow);
    };
  });
  CLI::App* log = AddCommand(app, request, "log", "Show the system log");
  log->add_flag("--follow", arguments.follow, "Wait for more");
  log->callback([&request, &arguments] {
    request.action = [&](const auto& root) {
      return simmac::ShowSystemLog(root, arguments.follow);
    };
  });
}

struct FaultArguments {
  std::string target;
  std::vector<std::string> arguments;
  std::optional<int> times, status, delayMs, signal;
  std::optional<std::string> output, error;
  bool effect = false;
};

Json FaultOf(const FaultArguments& given) {
  Json fault = {{"target", given.target}};
  if (!given.arguments.empty()) fault["arguments"] = given.arguments;
  if (given.times) fault["times"] = *given.times;
  if (given.status) fault["status"] = *given.status;
  if (given.output) fault["output"] = *given.output;
  if (given.error) fault["errorOutput"] = *given.error;
  if (given.delayMs) fault["delayMs"] = *given.delayMs;
  if (given.signal) fault["signal"] = *given.signal;
  if (given.effect) fault["effect"] = true;
  return fault;
}

/// A tool's status is one byte, a service's error any number. Throws what the parser throws.
void CheckStatus(const FaultArguments& given) {
  constexpr int kHighestStatus = 255;
  const bool tool = given.target.rfind('/', 0) == 0;
  const int status = given.status.value_or(0);
  if (tool && (status < 0 || status > kHighestStatus)) {
    throw CLI::ValidationError("--status", "A tool's exit status is from 0 to 255");
  }
}

void AddFaultAdd(CLI::App& fault, Request& request) {
  constexpr int kMostTimes = 1'000'000;
  constexpr int kLongestDelay = 3'600'000;
  constexpr int kHighestSignal = 64;
  auto& given = Keep<FaultArguments>();
  CLI::App* add = fault.add_subcommand("add", "Make the next matching calls misbehave");
  add->add_option("--target", given.target, "A tool's path or a service's name")->required();
  add->add_option("--argument", given.arguments, "The calls' next argument, from the first one on")
      ->allow_extra_args(false);
  add->add_option("--times", given.times, "How many calls; all when not given")
      ->check(CLI::Range(1, kMostTimes));
  add->add_option("--status", given.status, "Exit status (0 to 255), or a service's error number");
  add->add_option("--output", given.output, "What the tool prints");
  add->add_option("--error", given.error, "What it prints on standard error");
  add->add_option("--delay-ms", given.delayMs, "Milliseconds to wait first")
      ->check(CLI::Range(0, kLongestDelay));
  add->add_option("--signal", given.signal, "Number of the signal that the tool dies by")
      ->check(CLI::Range(1, kHighestSignal));
  add->add_flag("--effect", given.effect, "Let the tool do its real work as well");
  add->callback([&request, &given] {
    CheckStatus(given);
    request.action = [&given](const auto& root) { return simmac::AddFault(root, FaultOf(given)); };
  });
}

void AddFaults(CLI::App& app, Request& request) {
  CLI::App* fault = AddCommand(app, request, "fault", "Make tools and services of a Mac misbehave");
  fault->require_subcommand(1);
  AddFaultAdd(*fault, request);
  fault->add_subcommand("list", "Show the faults as JSON")->callback([&request] {
    request.action = simmac::ListFaults;
  });
  fault->add_subcommand("clear", "Remove all faults")->callback([&request] {
    request.action = simmac::ClearFaults;
  });
}

void AddRun(CLI::App& app, Request& request) {
  auto& options = Keep<simmac::RunOptions>();
  CLI::App* command = AddCommand(app, request, "run", "Run a command inside a Mac");
  command->add_option("--user", options.user, "Name or id of the user it runs as; root by default");
  command->add_option("COMMAND", options.command, "The command's absolute path and its arguments")
      ->required();
  command->footer(
      "simmac's own options stand before COMMAND: from its first word on everything is the\n"
      "command's.");
  command->callback([&request, &options] {
    request.action = [&options](const auto& root) { return simmac::RunInMac(root, options); };
  });
}

struct UserArguments {
  std::string name;
  std::optional<std::string> password;
  bool administrator = false;
};

void AddUsers(CLI::App& app, Request& request) {
  auto& given = Keep<UserArguments>();
  CLI::App* user = AddCommand(app, request, "user", "Look after a Mac's accounts");
  user->require_subcommand(1);
  CLI::App* add = user->add_subcommand("add", "Make an account with a home");
  add->add_option("NAME", given.name, "The account's short name")->required();
  add->add_option("--password", given.password, "Its password; none by default");
  add->add_flag("--admin", given.administrator, "Make it an administrator");
  add->callback([&request, &given] {
    request.action = [&given](const auto& root) {
      return simmac::AddUser(root, given.name, given.password, given.administrator);
    };
  });
}

struct SetArguments {
  std::string state;
  std::string name;
  std::string password;
};

void AddSettings(CLI::App& app, Request& request) {
  auto& given = Keep<SetArguments>();
  CLI::App* set = AddCommand(app, request, "set", "Change a Mac's settings");
  set->require_subcommand(1);
  CLI::App* vault = set->add_subcommand("filevault", "What fdesetup says of FileVault");
  vault->add_option("STATE", given.state, "on or off")
      ->required()
      ->check(CLI::IsMember({"on", "off"}));
  vault->callback([&request, &given] {
    request.action = [&given](const auto& root) {
      return simmac::SetFileVault(root, given.state == "on");
    };
  });
  CLI::App* login = set->add_subcommand("auto-login", "Who signs in at boot");
  login->add_option("NAME", given.name, "The account's short name")->required();
  login->add_option("PASSWORD", given.password, "The password to store, right or wrong")
      ->required();
  login->callback([&request, &given] {
    request.action = [&given](const auto& root) {
      return simmac::SetAutoLogin(root, given.name, given.password);
    };
  });
}

void AddCommands(CLI::App& app, Request& request) {
  app.require_subcommand(1);
  AddCreate(app, request);
  AddBoot(app, request);
  AddPower(app, request);
  AddShow(app, request);
  AddFaults(app, request);
  AddRun(app, request);
  AddUsers(app, request);
  AddSettings(app, request);
  simmac::AddUpdates(app, request);
  simmac::AddClock(app, request);
}

/// The line's words. What follows the first word of "run MAC COMMAND" is the command's, whatever it
/// looks like, which the parser is told by "--".
std::vector<std::string> Words(int count, char** values) {
  constexpr int kCommand = 2;  // the second word that is no option
  std::vector<std::string> words(values + std::min(count, 1), values + count);
  if (words.empty() || words.front() != "run") return words;
  int plain = 0;
  for (std::size_t i = 1; i < words.size() && words[i] != "--"; ++i) {
    if (words[i] == "--user") {
      ++i;
    } else if (words[i].rfind('-', 0) != 0 && ++plain == kCommand) {
      words.insert(words.begin() + static_cast<std::ptrdiff_t>(i), "--");
      break;
    }
  }
  return words;
}

/// The exit status when the line asks for nothing that can be done.
std::optional<int> Parse(CLI::App& app, int count, char** values) {
  constexpr int kWrongUsage = 2;
  try {
    std::vector<std::string> words = Words(count, values);
    // The parser takes them from the end.
    std::reverse(words.begin(), words.end());
    app.parse(std::move(words));
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    // Asking for help is not an error.
    if (error.get_exit_code() == 0) return app.exit(error);
    std::cerr << "simmac: " << error.what() << "; --help tells more.\n";
    return kWrongUsage;
  }
}

/// An absolute path without a slash at its end; the Mac's root may be left by name only before
/// somebody changes the root directory.
std::string Absolute(const std::string& path) {
  std::error_code error;
  std::string full = std::filesystem::absolute(path, error).lexically_normal();
  while (full.size() > 1 && full.back() == '/') full.pop_back();
  return full;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): CLI11 throws at a wrong declaration, JSON at no memory
int main(int count, char** values) {
  CLI::App app("Makes, boots and looks after simulated Macs.", "simmac");
  Request request;
  AddCommands(app, request);
  if (const std::optional<int> status = Parse(app, count, values)) return *status;
  const std::string root = Absolute(request.mac);
  // An empty name stays empty, and every path of such a Mac would be one of the host.
  if (root.empty()) return simmac::Refuse("The directory of the Mac has no name.");
  if (root == "/") return simmac::Refuse("The root directory cannot be a simulated Mac.");
  if (const std::optional<int> status = simmac::GainPrivileges(root, values)) return *status;
  return request.action(root);
}
