#include <algorithm>
#include <cstdio>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/GuiSessions.h"
#include "simulator/mac/JsonFields.h"
#include "simulator/mac/PowerRequest.h"
#include "simulator/mac/SystemVersion.h"
#include "simulator/mac/commands/Commands.h"
#include "simulator/mac/commands/Follow.h"
#include "simulator/mac/launchd/Launchd.h"

namespace simmac {
namespace {

using platform::MacTree;

void Print(const std::string& text) {
  (void)std::fputs((text + "\n").c_str(), stdout);
  (void)std::fflush(stdout);
}

Json Status(const std::string& root) {
  const MacTree mac(root);
  const std::optional<pid_t> launchd = RunningLaunchd(mac);
  const Json boot = mac.readJson(kBootFile).value_or(Json::object());
  const SystemVersion system = ReadSystemVersion(mac);
  Json status = {{"running", launchd.has_value()},
                 {"system", {{"version", system.version}, {"build", system.build}}},
                 {"bootCount", IntegerOf(boot, "count")},
                 {"daemons", Json::object()},
                 {"login", false},
                 {"sessions", Json::array()}};
  if (!launchd) return status;
  status["launchd"] = *launchd;
  status["daemons"] = ObjectOf(boot, "daemons");
  status["login"] = FlagOf(boot, "login");
  for (const GuiSession& session : GuiSessions(mac)) {
    const auto user = mac.userWithUid(session.uid);
    status["sessions"].push_back({{"uid", session.uid},
                                  {"user", user ? user->name : ""},
                                  {"pid", session.pid},
                                  {"asid", session.asid}});
  }
  return status;
}

void PrintStatus(const Json& status) {
  const bool running = status["running"].get<bool>();
  Print(running ? "running, boot " + status["bootCount"].dump() : "not running");
  Print(
      SystemVersion{TextOf(status["system"], "version"), TextOf(status["system"], "build")}.text());
  for (const auto& [label, pid] : status["daemons"].items()) {
    Print("daemon " + label + ": process " + pid.dump());
  }
  for (const Json& session : status["sessions"]) {
    Print("session of " + session["user"].get<std::string>() + " (" + session["uid"].dump() +
          "): process " + session["pid"].dump());
  }
}

std::string Joined(const std::vector<std::string>& arguments) {
  std::string text;
  for (const std::string& argument : arguments) text += " " + argument;
  return text;
}

/// One call as a person reads it: the status, the command, and below it what it printed.
void PrintCall(const std::string& line) {
  const Json call = Json::parse(line, nullptr, false);
  if (!call.is_object()) return;
  constexpr std::size_t kWidth = 4;
  const std::string status = std::to_string(IntegerOf(call, "status"));
  const std::string padding(kWidth - std::min(kWidth, status.size()), ' ');
  Print(padding + status + "  " + TextOf(call, "tool") + Joined(TextsOf(call, "arguments")));
  const std::string output = TextOf(call, "output");
  std::size_t start = 0;
  while (start < output.size()) {
    // A carriage return would take the reader back over what stands before it.
    const std::size_t end = std::min(output.find_first_of("\r\n", start), output.size());
    const bool shown = end > start || output[end] == '\n';
    if (shown) Print("      | " + output.substr(start, end - start));
    start = end + 1;
  }
}

int ShowLines(const std::string& path, bool follow,
              const std::function<void(const std::string&)>& print) {
  return EachLine(path, follow, print) ? 0 : Refuse(path + " cannot be read.");
}

}  // namespace

int ShowStatus(const std::string& root, bool json) {
  if (!IsMac(root)) return 1;
  const Json status = Status(root);
  if (json)
    Print(status.dump(2, ' ', false, Json::error_handler_t::replace));
  else
    PrintStatus(status);
  return 0;
}

int ShowJournal(const std::string& root, bool json, bool follow) {
  if (!IsMac(root)) return 1;
  return ShowLines(MacTree(root).path(platform::kMacJournal), follow, json ? Print : PrintCall);
}

int ShowSystemLog(const std::string& root, bool follow) {
  if (!IsMac(root)) return 1;
  return ShowLines(MacTree(root).path(platform::kMacSystemLog), follow, Print);
}

}  // namespace simmac
