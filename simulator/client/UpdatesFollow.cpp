#include "simulator/client/UpdatesFollow.h"

#include <string>
#include <thread>

#include "simulator/client/Unlocked.h"

namespace client {
namespace {

bool IsUnderWay(const Answer& answer, const UpdatesOperation& operation) {
  return answer.status == ExitStatus::kSuccess && ReplyFlag(answer.reply, operation.flag);
}

/// Why the operation can no longer be followed. Said with --json as well: the operation goes on,
/// which no reply tells.
void ExplainLoss(const Session& session, const Answer& answer, const UpdatesOperation& operation) {
  const std::string name = operation.name;
  if (IsNotUnlocked(answer)) {
    session.complain("The unlock has ended. The " + name +
                     " goes on; to see what comes of it, use kioskctl unlock and then kioskctl "
                     "updates list. (not_unlocked)");
    return;
  }
  session.explain(answer);
  if (answer.status == ExitStatus::kNoAnswer) {
    session.complain("The " + name +
                     " can no longer be followed; kioskd or the Mac may be starting anew.");
  }
}

/// The exit status of an operation whose end was to be seen.
ExitStatus Explain(const Session& session, const Screen& screen, const Answer& answer,
                   const UpdatesOperation& operation) {
  if (!screen.works()) {
    session.complain("Standard output cannot be written to.");
    return ExitStatus::kRefused;
  }
  if (answer.status != ExitStatus::kSuccess) {
    ExplainLoss(session, answer, operation);
    return answer.status;
  }
  const bool complete = answer.reply.contains(operation.flag);
  return complete ? ExitStatus::kSuccess : session.incomplete(operation.flag);
}

}  // namespace

Json UpdatesRequest() { return {{"cmd", "os.updates"}}; }

Answer UpdatesFollow(Session& session, Screen& screen, Answer answer,
                     const UpdatesOperation& operation, std::chrono::milliseconds interval,
                     const std::function<void(const Json& record)>& each) {
  while (IsUnderWay(answer, operation)) {
    each(answer.reply);
    if (!screen.works()) break;
    std::this_thread::sleep_for(interval);
    answer = ExchangeUnlocked(session, UpdatesRequest());
  }
  screen.endLine();
  answer.status = Explain(session, screen, answer, operation);
  return answer;
}

}  // namespace client
