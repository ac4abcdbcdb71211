#include "simulator/client/VerbOptions.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>
#include <system_error>

#include "simulator/client/Limits.h"

namespace client {
namespace {

std::string SecondsRange() {
  std::ostringstream text;
  text << "not in the range of " << kMinimumOptionSeconds << " to " << kMaximumOptionSeconds
       << " seconds";
  return text.str();
}

}  // namespace

void AddSecondsOption(CLI::App& command, const std::string& name, std::chrono::milliseconds& value,
                      const std::string& description) {
  const auto store = [&value, name](double seconds) {
    // Written so that "nan", which is a number to the parser, does not pass.
    if (!(seconds >= kMinimumOptionSeconds && seconds <= kMaximumOptionSeconds)) {
      throw CLI::ValidationError(name, SecondsRange());
    }
    value = std::chrono::milliseconds(std::llround(seconds * 1000));
  };
  command.add_option_function<double>(name, store, description)->type_name("SECONDS");
}

void AddCommonOptions(CLI::App& command, CommonOptions& options) {
  command.add_flag("--json", options.json, "Print the raw replies, one a line, and nothing else");
  AddSecondsOption(command, "--timeout", options.timeout,
                   "How long to wait for a reply (default: 60)");
  for (CLI::App* const part : command.get_subcommands({})) AddCommonOptions(*part, options);
}

std::vector<std::string> SplitList(const std::string& list) {
  std::vector<std::string> items;
  std::size_t start = 0;
  while (start < list.size()) {
    const std::size_t end = std::min(list.find(',', start), list.size());
    items.push_back(list.substr(start, end - start));
    start = end + 1;
  }
  return items;
}

long long WholeNumber(const std::string& text, const std::string& argument) {
  long long number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) {
    throw CLI::ValidationError(argument, "not a whole number");
  }
  return number;
}

}  // namespace client
