#include <unistd.h>

#include <charconv>
#include <csignal>
#include <optional>

#include "simulator/mac/GuiSessions.h"
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

/// The domain's description, as far as there is something behind it.
std::string Describe(const GuiSession& session) {
  const std::string uid = std::to_string(session.uid);
  const std::string asid = std::to_string(session.asid);
  return "gui/" + uid + " = {\n\ttype = login\n\thandle = " + asid +
         "\n\tactive count = 1\n\tservice count = 0\n\tactive service count = 0\n"
         "\tcreator = loginwindow[" +
         std::to_string(session.pid) +
         "]\n\tcreator euid = 0\n\tsession = Aqua\n"
         "\tendpoint destination = com.apple.xpc.launchd.domain.user." +
         uid +
         "\n\tauxiliary bootstrapper = com.apple.xpc.otherbsd (complete)\n"
         "\tsecurity context = {\n\t\tuid = " +
         uid + "\n\t\tasid = " + asid +
         "\n\t}\n\n\tbringup time = 64 ms\n\tdeath port = 0x14503\n\n\tenvironment = {\n\t}\n\n"
         "\tservices = {\n\t}\n\n\tproperties = gui | gui login\n}\n";
}

int Print(const ToolCall& call, const Target& target) {
  if (geteuid() != 0 && geteuid() != target.uid) {
    return Fail(call, "Could not print domain: 1: Operation not permitted", kNotPermitted);
  }
  const std::string domain = "domain for user gui: " + std::to_string(target.uid);
  const auto session = GuiSessionOf(platform::MacTree(), target.uid);
  if (!session) return Fail(call, "Bad request.\nCould not find " + domain, kNoDomain);
  if (!target.service.empty()) {
    return Fail(call,
                "Bad request.\nCould not find service \"" + target.service + "\" in " + domain,
                kNoService);
  }
  call.output.out(Describe(*session));
  return 0;
}

/// Returns as soon as the session was told to end; that it ended shows later.
int BootOut(const ToolCall& call, const Target& target) {
  const auto session = GuiSessionOf(platform::MacTree(), target.uid);
  if (!session || !target.service.empty()) {
    return Fail(call, "Boot-out failed: 3: No such process", kNoSuchProcess);
  }
  if (kill(session->pid, SIGTERM) != 0) {
    return Fail(call, "Boot-out failed: 1: Operation not permitted", kNotPermitted);
  }
  return 0;
}

}  // namespace

int LaunchCtl(const ToolCall& call) {
  const std::string verb = call.arguments.empty() ? "help" : call.arguments[0];
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
