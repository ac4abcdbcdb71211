#include <unistd.h>

#include <charconv>
#include <csignal>
#include <optional>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

using platform::MacTree;

int Fail(const ToolCall& call, const std::string& text) {
  call.output.err("shutdown: " + text + "\n");
  return 1;
}

int Usage(const ToolCall& call, const std::string& text) {
  (void)Fail(call, text);
  call.output.err(
      "usage: shutdown [-] [-h | -r | -s | -k] [-o [-n]] [-q] time [warning-message ...]\n");
  return 1;
}

/// launchd's process, if it runs.
std::optional<pid_t> Launchd(const MacTree& mac) {
  if (!LockIsHeld(mac.path(platform::kMacLaunchdPid))) return std::nullopt;
  const std::optional<std::string> text = mac.read(platform::kMacLaunchdPid);
  pid_t pid = 0;
  if (text) (void)std::from_chars(text->data(), text->data() + text->size(), pid);
  return pid > 1 ? std::optional(pid) : std::nullopt;
}

int GoDown(const ToolCall& call, const std::string& request) {
  const MacTree mac;
  constexpr mode_t kMode = 0644;
  call.output.out("Shutdown NOW!\n");
  if (!mac.replace(platform::kMacPowerRequest, request, kMode)) {
    call.output.err("shutdown: couldn't lock for reboot: Operation not permitted\n");
    return 0;
  }
  if (const std::optional<pid_t> launchd = Launchd(mac)) (void)kill(*launchd, SIGHUP);
  return 0;
}

}  // namespace

/// Knows the immediate forms only; every other time is a bad one to it.
int Shutdown(const ToolCall& call) {
  if (geteuid() != 0) return Fail(call, "NOT super-user");
  std::string request;
  std::size_t next = 0;
  for (; next < call.arguments.size() && call.arguments[next].rfind('-', 0) == 0; ++next) {
    const std::string& flag = call.arguments[next];
    if (flag != "-r" && flag != "-h") return Usage(call, "illegal option -- " + flag.substr(1));
    if (!request.empty()) return Usage(call, "incompatible switches -h, -k, -r and -s");
    request = flag == "-r" ? "restart" : "halt";
  }
  if (request.empty()) return Usage(call, "-h, -r, -s or -k is required");
  const std::string time = next < call.arguments.size() ? call.arguments[next] : "";
  if (time != "now" && time != "+0") return Fail(call, "bad time format");
  return GoDown(call, request);
}

}  // namespace simmac
