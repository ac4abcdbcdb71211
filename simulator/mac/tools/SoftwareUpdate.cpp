#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <thread>

#include "simulator/mac/PowerRequest.h"
#include "simulator/mac/SettingsFile.h"
#include "simulator/mac/UpdateCatalogue.h"
#include "simulator/mac/tools/Tool.h"
#include "simulator/mac/tools/UpdateInstallation.h"

namespace simmac {
namespace {

using platform::MacTree;
using Updates = std::vector<SoftwareUpdate>;

constexpr int kFailed = 1;

/// What a call asks for.
struct Request {
  bool list = false;
  bool install = false;
  bool help = false;
  bool noScan = false;
  bool all = false;
  bool recommended = false;
  bool restart = false;
  bool agreed = false;
  std::vector<std::string> labels;
};

const std::map<std::string, bool Request::*>& Options() {
  static const std::map<std::string, bool Request::*> options = {
      {"-l", &Request::list},          {"--list", &Request::list},
      {"-i", &Request::install},       {"--install", &Request::install},
      {"-h", &Request::help},          {"--help", &Request::help},
      {"-a", &Request::all},           {"--all", &Request::all},
      {"-r", &Request::recommended},   {"--recommended", &Request::recommended},
      {"-R", &Request::restart},       {"--restart", &Request::restart},
      {"--no-scan", &Request::noScan}, {"--agree-to-license", &Request::agreed}};
  return options;
}

std::string UsageText() {
  return "usage: softwareupdate <cmd> [<args> ...]\n"
         "\n"
         "** Manage Updates:\n"
         "\t-l | --list\t\tList all appropriate update labels (options:  --no-scan)\n"
         "\t-i | --install\t\tInstall\n"
         "\t\t<label> ...\tspecific updates\n"
         "\t\t-a | --all\t\tAll appropriate updates\n"
         "\t\t-R | --restart\t\tAutomatically restart (or shut down) if required to complete "
         "installation.\n"
         "\t\t-r | --recommended\tOnly recommended updates\n"
         "\n"
         "** Options:\n"
         "\t--no-scan\t\tDo not scan when listing or installing updates (use available updates "
         "previously scanned)\n"
         "\t--agree-to-license\tAgree to the software license agreement without user "
         "interaction.\n"
         "\t-h | --help\t\tPrint this help\n";
}

int Usage(const ToolCall& call) {
  call.output.err(UsageText());
  return kFailed;
}

/// As getopt words it: a long option in full, a short one by its letter.
int Unrecognized(const ToolCall& call, const std::string& option) {
  const bool isLong = option.rfind("--", 0) == 0;
  call.output.err(call.name + (isLong ? ": unrecognized option `" + option + "'\n"
                                      : ": invalid option -- " + option.substr(1) + "\n"));
  return Usage(call);
}

/// Fills in the request; the first option that there is none of, or nothing.
std::optional<std::string> Parse(const std::vector<std::string>& arguments, Request& request) {
  for (const std::string& argument : arguments) {
    const auto option = Options().find(argument);
    if (option != Options().end()) {
      request.*option->second = true;
    } else if (argument.rfind('-', 0) == 0) {
      return argument;
    } else {
      request.labels.push_back(argument);
    }
  }
  return std::nullopt;
}

/// Looks for updates. Says so, and why that fails when it does.
bool Scan(const ToolCall& call, const UpdateCatalogue& catalogue) {
  if (!catalogue.scanError.empty()) {
    std::this_thread::sleep_for(catalogue.scan);
    call.output.err(catalogue.scanError + "\n");
    return false;
  }
  call.output.out("Finding available software\n");
  std::this_thread::sleep_for(catalogue.scan);
  for (const std::string& line : catalogue.noise) {
    call.output.err(LogPrefix(call.name) + line + "\n");
  }
  if (catalogue.reachable) return true;
  call.output.err(
      "Can't connect to the Apple Software Update server, because you are not connected to the "
      "Internet.\n\n");
  return false;
}

/// What every call that looks at the updates begins with.
bool Begin(const ToolCall& call, const Request& request, const UpdateCatalogue& catalogue) {
  call.output.out("Software Update Tool\n\n");
  return request.noScan || Scan(call, catalogue);
}

int List(const ToolCall& call, const Request& request, const UpdateCatalogue& catalogue) {
  if (!Begin(call, request, catalogue)) return catalogue.listStatus.value_or(kFailed);
  if (catalogue.updates.empty()) {
    call.output.err("No new software available.\n");
    return catalogue.listStatus.value_or(0);
  }
  call.output.out("Software Update found the following new or updated software:\n");
  for (const SoftwareUpdate& update : catalogue.updates) {
    call.output.out(UpdateListText(catalogue, update));
  }
  return catalogue.listStatus.value_or(0);
}

/// Those of the updates that the call is for.
Updates Select(const Request& request, const Updates& updates) {
  Updates selected;
  const auto& labels = request.labels;
  std::copy_if(updates.begin(), updates.end(), std::back_inserter(selected),
               [&](const SoftwareUpdate& each) {
                 const bool byKind = request.all || (request.recommended && each.recommended);
                 return (byKind && !each.deferred) ||
                        std::count(labels.begin(), labels.end(), each.label) > 0;
               });
  return selected;
}

void SayUnknown(const ToolCall& call, const Request& request, const Updates& updates) {
  for (const std::string& label : request.labels) {
    const bool known = std::any_of(updates.begin(), updates.end(),
                                   [&](const SoftwareUpdate& each) { return each.label == label; });
    if (!known) call.output.err(label + ": No such update\n");
  }
}

/// Goes down for updates that need it, once the call is in the journal.
void RestartFor(const ToolCall& call, const Updates& updates) {
  const auto boots = [](const SoftwareUpdate& each) { return each.needsBoot(); };
  const auto halts = [](const SoftwareUpdate& each) { return each.action == "shut down"; };
  if (std::none_of(updates.begin(), updates.end(), boots)) return;
  const bool halt = std::any_of(updates.begin(), updates.end(), halts);
  if (!LeavePowerRequest(MacTree(), halt ? "halt" : "restart")) return;
  call.afterwards = [] { (void)TellLaunchd(MacTree()); };
}

int Install(const ToolCall& call, const Request& request, const UpdateCatalogue& catalogue) {
  if (request.agreed) {
    call.output.out(
        "By using the agreetolicense option, you are agreeing that you have run this tool with the "
        "license only option and have read and agreed to the terms.\n"
        "If you do not agree, press CTRL-C and cancel this process immediately.\n");
  }
  if (!Begin(call, request, catalogue)) return kFailed;
  const Updates selected = Select(request, catalogue.updates);
  SayUnknown(call, request, catalogue.updates);
  if (selected.empty()) {
    call.output.err("No updates are available.\n");
    return 0;
  }
  const int status = InstallUpdates(call, catalogue, selected);
  if (status == 0 && request.restart) RestartFor(call, selected);
  return status;
}

int AskForPassword(const ToolCall& call) {
  call.output.err("Password:");
  return kFailed;
}

}  // namespace

int SoftwareUpdateTool(const ToolCall& call) {
  Request request;
  if (const auto unknown = Parse(call.arguments, request)) return Unrecognized(call, *unknown);
  if (request.help) {
    call.output.out(UsageText());
    return 0;
  }
  const bool names = request.all || request.recommended || !request.labels.empty();
  if (request.list == request.install || (request.install && !names)) return Usage(call);
  // An administrator might type one; here nobody is asked.
  if (request.install && geteuid() != 0) return AskForPassword(call);
  const UpdateCatalogue catalogue = ParseUpdateCatalogue(ReadSettings(MacTree(), kUpdateCatalogue));
  if (request.list) return List(call, request, catalogue);
  const int status = Install(call, request, catalogue);
  return catalogue.installStatus.value_or(status);
}

}  // namespace simmac
