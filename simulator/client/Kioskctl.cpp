// kioskctl: the command-line client of the command channel.
#include <csignal>
#include <iostream>
#include <optional>

#include "simulator/client/VerbOptions.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

/// Reads the command line; an exit status when that is all there is to do (help, wrong usage).
std::optional<ExitStatus> Parse(CLI::App& application, int count, char** arguments) {
  try {
    application.parse(count, arguments);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    return application.exit(error) == 0 ? ExitStatus::kSuccess : ExitStatus::kUsage;
  }
}

/// What is to be said counts as done only when it could be said.
ExitStatus Printed(const Session& session, ExitStatus status) {
  if (std::cout.flush() || status != ExitStatus::kSuccess) return status;
  session.complain("Standard output cannot be written to.");
  return ExitStatus::kRefused;
}

ExitStatus Main(int count, char** arguments) {
  CLI::App application{"Speaks to kioskd over its command channel.", "kioskctl"};
  CommonOptions options;
  application.footer(
      "Exit status: 0 done, 1 refused by kioskd (or a code's time was up, the settings were not\n"
      "unlocked or no longer, the unlock could not be kept, a check or an install of updates\n"
      "failed, or nothing could be printed), 2 wrong usage, 3 kioskd gave no answer.\n"
      "The environment's KIOSK_CHANNEL names another socket.");
  application.failure_message(VerbFailure);
  const VerbAction action = VerbGroup(application, kVerbs);
  AddCommonOptions(application, options);
  if (const std::optional<ExitStatus> status = Parse(application, count, arguments)) return *status;
  Session session(options);
  return Printed(session, action(session));
}

}  // namespace
}  // namespace client

// NOLINTNEXTLINE(bugprone-exception-escape): only memory can run out
int main(int argc, char** argv) {
  (void)std::signal(SIGPIPE, SIG_IGN);  // cannot fail for this signal
  return static_cast<int>(client::Main(argc, argv));
}
