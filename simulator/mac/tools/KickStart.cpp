#include "simulator/mac/tools/KickStart.h"

#include <unistd.h>

namespace simmac {
namespace {

constexpr char kTimeDaemon[] = "com.apple.timed";
constexpr int kNotPermitted = 1;
constexpr int kUsage = 64;
constexpr int kNoService = 113;

int Fail(const ToolCall& call, const std::string& text, int status) {
  call.output.err(text + "\n");
  return status;
}

}  // namespace

int KickStart(const ToolCall& call) {
  constexpr std::string_view kSystem = "system/";
  const bool kill = call.arguments.size() > 1 && call.arguments[1] == "-k";
  const std::size_t words = kill ? 3 : 2;
  if (call.arguments.size() != words) {
    return Fail(call, "Usage: launchctl kickstart [-k] [-p] <service-target>", kUsage);
  }
  const std::string& target = call.arguments.back();
  if (target.rfind(kSystem, 0) != 0) {
    return Fail(call, "Unrecognized target specifier.", kUsage);
  }
  const std::string service = target.substr(kSystem.size());
  if (service != kTimeDaemon) {
    return Fail(call, "Could not find service \"" + service + "\" in domain for system",
                kNoService);
  }
  if (geteuid() == 0) return 0;
  return Fail(call, "Could not kickstart service \"" + service + "\": 1: Operation not permitted",
              kNotPermitted);
}

}  // namespace simmac
