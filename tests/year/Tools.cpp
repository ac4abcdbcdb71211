// In place of the daemon's process runner: the tool for software updates and the one for restarts
// do as the test says, and all others do nothing and succeed.
#include <sstream>
#include <utility>

#include "account/KioskRun.h"
#include "platform/Clock.h"
#include "tests/year/Around.h"

namespace {

using Arguments = std::vector<std::string>;

struct Run {
  std::int32_t status = 0;
  std::string output;
};

Run List() {
  Around& around = TheAround();
  ++around.lists;
  platform::ClockSleep(around.listTakesNs);
  if (around.listFails) return {1, "The servers cannot be reached."};
  std::ostringstream text;
  for (std::size_t each = 0; each < around.pendingUpdates; ++each) {
    text << "* Label: Update" << each << "\n\tTitle: Update, Version: 1, Size: 5KiB, "
         << (around.updateNeedsRestart ? "Action: restart, \n" : "\n");
  }
  return {0, text.str()};
}

Run Install() {
  Around& around = TheAround();
  ++around.installs;
  platform::ClockSleep(around.installTakesNs);
  return around.installFails ? Run{1, "The disk is full."} : Run{0, "Done."};
}

Run RunTool(const std::string& path, const Arguments& arguments) {
  if (path == "/usr/sbin/softwareupdate") return arguments.at(0) == "-l" ? List() : Install();
  if (path != "/sbin/shutdown") return {};
  TheAround().restartAsked = !TheAround().restartFails;
  return TheAround().restartFails ? Run{1, "not now"} : Run{};
}

}  // namespace

std::int32_t KioskRunFollowing(const std::string& path, const Arguments& arguments,
                               std::string* output,
                               const std::function<void(std::string_view chunk)>& onChunk) {
  Run run = RunTool(path, arguments);
  if (onChunk) onChunk(run.output);
  if (output != nullptr) *output = std::move(run.output);
  return run.status;
}

std::int32_t KioskRun(const std::string& path, const Arguments& arguments, std::string* output) {
  return KioskRunFollowing(path, arguments, output, nullptr);
}

bool KioskRunChecked(const std::string& path, const Arguments& arguments) {
  return KioskRun(path, arguments, nullptr) == 0;
}
