#include <algorithm>
#include <cstdio>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/GuiSessions.h"
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
  const std::optional<pid_t> launchd = RunningLaunchd(root);
  const Json boot = mac.readJson(kBootFile).value_or(Json::object());
  Json status = {{"running", launchd.has_value()},
                 {"bootCount", boot.value("count", 0)},
                 {"daemons", Json::object()},
                 {"login", false},
                 {"sessions", Json::array()}};
  if (!launchd) return status;
  status["launchd"] = *launchd;
  status["daemons"] = boot.value("daemons", Json::object());
  status["login"] = boot.value("login", false);
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
  for (const auto& [label, pid] : status["daemons"].items()) {
    Print("daemon " + label + ": process " + pid.dump());
  }
  for (const Json& session : status["sessions"]) {
    Print("session of " + session["user"].get<std::string>() + " (" + session["uid"].dump() +
          "): process " + session["pid"].dump());
  }
}

std::string Joined(const Json& arguments) {
  std::string text;
  for (const Json& argument : arguments) text += " " + argument.get<std::string>();
  return text;
}

/// One call as a person reads it: the status, the command, and below it what it printed.
void PrintCall(const std::string& line) {
  const Json call = Json::parse(line, nullptr, false);
  if (!call.is_object()) return;
  char status[8];
  (void)std::snprintf(status, sizeof status, "%4d  ", call.value("status", 0));
  Print(status + call.value("tool", "") + Joined(call.value("arguments", Json::array())));
  const std::string output = call.value("output", "");
  std::size_t start = 0;
  while (start < output.size()) {
    const std::size_t end = std::min(output.find('\n', start), output.size());
    Print("      | " + output.substr(start, end - start));
    start = end + 1;
  }
}

}  // namespace

int ShowStatus(const std::string& root, bool json) {
  if (!IsMac(root)) return 1;
  const Json status = Status(root);
  if (json)
    Print(status.dump(2));
  else
    PrintStatus(status);
  return 0;
}

int ShowJournal(const std::string& root, bool json, bool follow) {
  if (!IsMac(root)) return 1;
  EachLine(MacTree(root).path(platform::kMacJournal), follow, json ? Print : PrintCall);
  return 0;
}

int ShowSystemLog(const std::string& root, bool follow) {
  if (!IsMac(root)) return 1;
  EachLine(MacTree(root).path(platform::kMacSystemLog), follow, Print);
  return 0;
}

}  // namespace simmac
