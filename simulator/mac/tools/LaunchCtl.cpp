#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <optional>

#include "simulator/mac/GuiSessions.h"
#include "simulator/mac/tools/KickStart.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

constexpr int kNotPermitted = 1;
constexpr int kNoSuchProcess = 3;
constexpr int kUsage = 64;
constexpr int kNoDomain = 112;
constexpr int kNoService = 113;

/// "gui/UID" or "gui/UID/SERVICE".
struct Target {
  uid_t uid = 0;
  std::string service;
};

std::optional<Target> ParseTarget(const std::string& text) {
  constexpr std::string_view kGui = "gui/";
  if (text.rfind(kGui, 0) != 0) return std::nullopt;
  Target target;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + kGui.size(), end, target.uid);
  if (error != std::errc() || (stop != end && *stop != '/')) return std::nullopt;
  if (stop != end) target.service.assign(stop + 1, end);
  return target;
}

int Fail(const ToolCall& call, const std::string& text, int status) {
  call.output.err(text + "\n");
  return status;
}

/// An agent as a line of its domain: process, last exit status, label.
std::string ServiceLine(const SessionAgent& agent) {
  const std::string pid = agent.pid > 0 ? std::to_string(agent.pid) : "-";
  const std::string status = agent.lastStatus ? std::to_string(*agent.lastStatus) : "-";
  char columns[64];
  (void)std::snprintf(columns, sizeof columns, "\t\t%8s %6s \t", pid.c_str(), status.c_str());
  return columns + agent.label + "\n";
}

std::string Services(const GuiSession& session) {
  std::string lines;
  for (const SessionAgent& agent : session.agents) lines += ServiceLine(agent);
  return "\tservices = {\n" + lines + "\t}\n";
}

std::string Counts(const GuiSession& session) {
  const std::size_t loaded = session.agents.size();
  const auto running = std::count_if(session.agents.begin(), session.agents.end(),
                                     [](const SessionAgent& agent) { return agent.pid > 0; });
  return "\tactive count = " + std::to_string(loaded + 1) +
         "\n\tservice count = " + std::to_string(loaded) +
         "\n\tactive service count = " + std::to_string(running) + "\n";
}

/// The domain's description, as far as there is something behind it.
std::string Describe(const GuiSession& session) {
  const std::string uid = std::to_string(session.uid);
  const std::string asid = std::to_string(session.asid);
  return "gui/" + uid + " = {\n\ttype = login\n\thandle = " + asid + "\n" + Counts(session) +
         "\tcreator = loginwindow[" + std::to_string(session.pid) +
         "]\n\tcreator euid = 0\n\tsession = Aqua\n"
         "\tendpoint destination = com.apple.xpc.launchd.domain.user." +
         uid +
         "\n\tauxiliary bootstrapper = com.apple.xpc.otherbsd (complete)\n"
         "\tsecurity context = {\n\t\tuid = " +
         uid + "\n\t\tasid = " + asid +
         "\n\t}\n\n\tbringup time = 64 ms\n\tdeath port = 0x14503\n\n\tenvironment = {\n\t}\n\n" +
         Services(session) + "\n\tproperties = gui | gui login\n}\n";
}

/// The same of one agent.
std::string Describe(const GuiSession& session, const SessionAgent& agent) {
  const bool runs = agent.pid > 0;
  const std::string status =
      agent.lastStatus ? std::to_string(*agent.lastStatus) : "(never exited)";
  return "gui/" + std::to_string(session.uid) + "/" + agent.label +
         " = {\n\tactive count = " + (runs ? "1" : "0") + "\n\ttype = LaunchAgent\n\tstate = " +
         (runs ? "running\n\n\tpid = " + std::to_string(agent.pid) + "\n" : "not running\n\n") +
         "\tlast exit code = " + status + "\n}\n";
}

/// The agent that a target names; null when the session has none of that label.
const SessionAgent* FindAgent(const GuiSession& session, const Target& target) {
  const auto agent =
      std::find_if(session.agents.begin(), session.agents.end(),
                   [&target](const SessionAgent& each) { return each.label == target.service; });
  return agent == session.agents.end() ? nullptr : &*agent;
}

int Print(const ToolCall& call, const Target& target) {
  if (geteuid() != 0 && geteuid() != target.uid) {
    return Fail(call, "Could not print domain: 1: Operation not permitted", kNotPermitted);
  }
  const std::string domain = "domain for user gui: " + std::to_string(target.uid);
  const auto session = GuiSessionOf(platform::MacTree(), target.uid);
  if (!session) return Fail(call, "Bad request.\nCould not find " + domain, kNoDomain);
  if (target.service.empty()) {
    call.output.out(Describe(*session));
    return 0;
  }
  const SessionAgent* agent = FindAgent(*session, target);
  if (!agent) {
    return Fail(call,
                "Bad request.\nCould not find service \"" + target.service + "\" in " + domain,
                kNoService);
  }
  call.output.out(Describe(*session, *agent));
  return 0;
}

/// Returns as soon as the session, or its agent, was told to end; that it ended shows later.
int BootOut(const ToolCall& call, const Target& target) {
  const auto session = GuiSessionOf(platform::MacTree(), target.uid);
  const SessionAgent* agent = session ? FindAgent(*session, target) : nullptr;
  if (!session || (!target.service.empty() && !agent)) {
    return Fail(call, "Boot-out failed: 3: No such process", kNoSuchProcess);
  }
  const bool told = agent ? BootOutAgent(*session, *agent) : kill(session->pid, SIGTERM) == 0;
  if (!told) return Fail(call, "Boot-out failed: 1: Operation not permitted", kNotPermitted);
  return 0;
}

}  // namespace

int LaunchCtl(const ToolCall& call) {
  const std::string verb = call.arguments.empty() ? "help" : call.arguments[0];
  if (verb == "kickstart") return KickStart(call);
  if (verb != "print" && verb != "bootout") {
    return Fail(call,
                "Unrecognized subcommand: " + verb +
                    "\nUsage: launchctl <subcommand> ... | help [subcommand]",
                kUsage);
  }
  const auto target = ParseTarget(call.arguments.size() > 1 ? call.arguments[1] : "");
  if (!target) return Fail(call, "Unrecognized target specifier.", kUsage);
  return verb == "print" ? Print(call, *target) : BootOut(call, *target);
}

}  // namespace simmac
