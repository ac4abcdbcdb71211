#include <optional>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

constexpr char kOff[] = "FileVault is Off.";

std::string Status() {
  const std::optional<Json> file = platform::MacTree().readJson(platform::kMacFileVault);
  if (!file || !file->is_object() || !file->contains("status")) return kOff;
  const Json& status = (*file)["status"];
  return status.is_string() ? status.get<std::string>() : kOff;
}

}  // namespace

int FdeSetup(const ToolCall& call) {
  constexpr int kUnknownVerb = 1;
  if (call.arguments.empty() || call.arguments.front() != "status") {
    call.output.err("fdesetup: a command must be specified.\n");
    return kUnknownVerb;
  }
  call.output.out(Status() + "\n");
  return 0;
}

}  // namespace simmac
