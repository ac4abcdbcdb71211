#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "simulator/client/InstallDisplay.h"
#include "simulator/client/InstallOutcome.h"
#include "simulator/client/Limits.h"
#include "simulator/client/Screen.h"
#include "simulator/client/Unlocked.h"
#include "simulator/client/UpdatesFollow.h"
#include "simulator/client/UpdatesTable.h"
#include "simulator/client/VerbOptions.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

struct FollowOptions {
  bool noWait = false;
  std::chrono::milliseconds interval = kUpdatesInterval;
};

ExitStatus RunList(Session& session) {
  const Answer answer = AskUnlocked(session, UpdatesRequest());
  if (answer.status == ExitStatus::kSuccess && !session.json()) {
    std::cout << UpdatesTable(answer.reply);
  }
  return answer.status;
}

/// Said with --json as well, where the last reply says "ok": true.
ExitStatus Failed(const Session& session, const std::string& what, const std::string& error) {
  session.complain(what + " failed. " + UpdatesProblem(error));
  return ExitStatus::kRefused;
}

ExitStatus RunCheck(Session& session, const FollowOptions& options) {
  Json request = UpdatesRequest();
  request["check"] = true;
  if (options.noWait) return ChangeUnlocked(session, request, "The check has begun.");
  Screen screen(session.json());
  Answer answer = AskUnlocked(session, request);
  if (answer.status != ExitStatus::kSuccess) return answer.status;
  answer = UpdatesFollow(session, screen, std::move(answer), kUpdatesCheck, options.interval,
                         [](const Json&) {});
  if (answer.status != ExitStatus::kSuccess) return answer.status;
  const std::optional<std::string> error = ReplyString(answer.reply, "error");
  if (error) return Failed(session, "The check", *error);
  if (!session.json()) std::cout << UpdatesTable(answer.reply);
  return ExitStatus::kSuccess;
}

/// Follows an install that has begun; `before` is the record from before it.
ExitStatus FollowInstall(Session& session, const FollowOptions& options, const Json& before) {
  Screen screen(session.json());
  InstallDisplay display(screen);
  InstallOutcome outcome(before);
  const auto show = [&display, &outcome](const Json& record) {
    outcome.note(record);
    if (!outcome.installs()) return;
    display.progress(InstallPercent(record), std::chrono::steady_clock::now());
  };
  const Answer answer = UpdatesFollow(session, screen, ExchangeUnlocked(session, UpdatesRequest()),
                                      kUpdatesInstall, options.interval, show);
  if (answer.status != ExitStatus::kSuccess) return answer.status;
  const std::optional<std::string> error = ReplyString(answer.reply, "error");
  if (error) return Failed(session, "The install", *error);
  screen.sentence(outcome.text(answer.reply));
  return ExitStatus::kSuccess;
}

ExitStatus RunInstall(Session& session, const FollowOptions& options) {
  const Json request = {{"cmd", "os.install"}};
  if (options.noWait) return ChangeUnlocked(session, request, "The install has begun.");
  const Answer before = AskUnlocked(session, UpdatesRequest());
  if (before.status != ExitStatus::kSuccess) return before.status;
  const Answer begun = AskUnlocked(session, request);
  if (begun.status != ExitStatus::kSuccess) return begun.status;
  return FollowInstall(session, options, before.reply);
}

VerbAction AddFollowOptions(CLI::App& command,
                            ExitStatus (*run)(Session& session, const FollowOptions& options)) {
  const auto options = std::make_shared<FollowOptions>();
  command.add_flag("--no-wait", options->noWait, "Only begin, and return");
  AddSecondsOption(command, "--interval", options->interval,
                   "How long to wait between two questions (default: 1)");
  command.footer("Goes on by itself when kioskctl ends before it, as by Ctrl-C.\n\n" +
                 command.get_footer());
  return [options, run](Session& session) { return run(session, *options); };
}

constexpr Verb kUpdatesParts[] = {
    {"list", "Show the pending updates, and how checks, installs and the policy stand",
     [](CLI::App&) -> VerbAction { return RunList; }},
    {"check", "Look for updates and show what there is",
     [](CLI::App& command) { return AddFollowOptions(command, RunCheck); }},
    {"install", "Install all updates and show how far that is",
     [](CLI::App& command) { return AddFollowOptions(command, RunInstall); }},
};

}  // namespace

VerbAction VerbUpdates(CLI::App& command) { return VerbGroup(command, kUpdatesParts); }

}  // namespace client
