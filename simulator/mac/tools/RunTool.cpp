#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <optional>
#include <utility>

#include "platform/simulated/Faults.h"
#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"
#include "simulator/mac/Limits.h"
#include "simulator/mac/tools/Tool.h"

namespace simmac {
namespace {

/// What a call came to.
struct Outcome {
  int status = 0;
  std::optional<int> signal;
};

Outcome RunWithFault(const Tool& tool, const ToolCall& call, const platform::Fault& fault) {
  if (fault.output) call.output.out(*fault.output);
  if (fault.errorOutput) call.output.err(*fault.errorOutput);
  if (!fault.effect) return {fault.status.value_or(0), fault.signal};
  if (fault.output || fault.errorOutput) call.output.mute();
  const int status = tool.run(call);
  return {fault.status.value_or(status), fault.signal};
}

Outcome RunOnce(const Tool& tool, const ToolCall& call) {
  const auto fault = platform::TakeFault(tool.path, call.arguments);
  return fault ? RunWithFault(tool, call, *fault) : Outcome{tool.run(call), std::nullopt};
}

// Everybody may put something else in the journal's place: a pipe must not hold a tool up, and no
// name of another file must lead it there.
Descriptor OpenJournal() {
  Descriptor file =
      OpenFile(platform::kMacJournal, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  const bool isOwn = file.valid() && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
                     status.st_nlink == 1;
  return isOwn ? std::move(file) : Descriptor();
}

void AppendToJournal(const Tool& tool, const ToolCall& call, const Outcome& outcome) {
  Json line = {{"tool", tool.path},
               {"arguments", call.arguments},
               {"status", outcome.signal.value_or(outcome.status)},
               {"output", call.output.transcript()}};
  if (outcome.signal) line["signal"] = *outcome.signal;
  const Descriptor journal = OpenJournal();
  // A Mac whose journal was taken away works on without one.
  if (journal.valid()) {
    (void)WriteWhole(journal.get(),
                     line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
  }
}

void DieBy(int number) {
  (void)signal(number, SIG_DFL);
  (void)raise(number);
}

}  // namespace

void ToolOutput::out(std::string_view text) { write(STDOUT_FILENO, text); }

void ToolOutput::err(std::string_view text) { write(STDERR_FILENO, text); }

void ToolOutput::write(int stream, std::string_view text) {
  if (_muted) return;
  // A reader that went away is no reason to leave work half done.
  (void)WriteWhole(stream, text);
  _transcript += text.substr(0, kMaxTranscript - std::min(kMaxTranscript, _transcript.size()));
}

int RunTool(const Tool& tool, const std::vector<std::string>& arguments) {
  (void)signal(SIGPIPE, SIG_IGN);
  ToolOutput output;
  std::function<void()> afterwards;
  const ToolCall call{std::string(LastPathComponent(tool.path)), arguments, output, afterwards};
  if (!tool.journaled) return tool.run(call);
  const Outcome outcome = RunOnce(tool, call);
  AppendToJournal(tool, call, outcome);
  if (afterwards) afterwards();
  if (outcome.signal) DieBy(*outcome.signal);
  return outcome.status;
}

std::string LogPrefix(const std::string& toolName) {
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  (void)std::snprintf(text + length, sizeof text - length, ".%03d ",
                      static_cast<int>(now.tv_usec / 1000));
  return text + toolName + "[" + std::to_string(getpid()) + ":" + std::to_string(gettid()) + "] ";
}

}  // namespace simmac
