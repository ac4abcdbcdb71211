#include "simulator/mac/FileVault.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {

int FdeSetup(const ToolCall& call) {
  constexpr int kUnknownVerb = 1;
  if (call.arguments.empty() || call.arguments.front() != "status") {
    call.output.err("fdesetup: a command must be specified.\n");
    return kUnknownVerb;
  }
  call.output.out(FileVaultStatus(platform::MacTree()) + "\n");
  return 0;
}

}  // namespace simmac
