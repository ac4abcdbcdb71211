#include <iostream>
#include <memory>
#include <string>

#include "simulator/client/PairOutcome.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

ExitStatus RunCheck(Session& session, const std::string& code) {
  const Answer answer = session.ask(PairCheckRequest(code));
  if (answer.status != ExitStatus::kSuccess || session.json()) return answer.status;
  std::cout << PairOutcomeText(answer.reply) << '\n';
  if (ReplyFlag(answer.reply, "restarting")) {
    std::cout << PairRestartText(PairRestartSeconds(answer.reply)) << '\n';
  }
  return ExitStatus::kSuccess;
}

}  // namespace

VerbAction VerbCheck(CLI::App& command) {
  const auto code = std::make_shared<std::string>();
  command.add_option("CODE", *code, "The pairing code")->required();
  return [code](Session& session) { return RunCheck(session, *code); };
}

}  // namespace client
