#include <iostream>

#include "simulator/client/Verbs.h"

namespace client {
namespace {

ExitStatus RunRestart(Session& session) {
  const Answer answer = session.ask({{"cmd", "restart.now"}});
  if (answer.status == ExitStatus::kSuccess && !session.json()) {
    std::cout << "The Mac restarts now." << std::endl;
  }
  return answer.status;
}

}  // namespace

VerbAction VerbRestart(CLI::App&) { return RunRestart; }

}  // namespace client
