#include "simulator/client/VerbOptions.h"

#include <cmath>

#include "simulator/client/Limits.h"

namespace client {

void AddSecondsOption(CLI::App& command, const std::string& name, std::chrono::milliseconds& value,
                      const std::string& description) {
  const auto store = [&value](double seconds) {
    // Written so that "nan", which is a number to the parser, does not pass.
    if (!(seconds >= kMinimumOptionSeconds && seconds <= kMaximumOptionSeconds)) {
      throw CLI::ValidationError("seconds out of range");
    }
    value = std::chrono::milliseconds(std::llround(seconds * 1000));
  };
  command.add_option_function<double>(name, store, description)->type_name("SECONDS");
}

void AddCommonOptions(CLI::App& command, CommonOptions& options) {
  command.add_flag("--json", options.json, "Print the raw replies, one a line, and nothing else");
  AddSecondsOption(command, "--timeout", options.timeout,
                   "How long to wait for a reply (default: 60)");
}

}  // namespace client
