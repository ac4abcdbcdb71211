#include "simulator/client/Unlocked.h"

#include <iostream>
#include <utility>

#include "simulator/client/Printable.h"
#include "simulator/client/UnlockFile.h"

namespace client {

Answer AskWithToken(Session& session, Json request, const std::string& token) {
  request["unlockToken"] = token;
  Answer answer = session.ask(request);
  const bool refused = answer.status == ExitStatus::kRefused;
  if (refused && ReplyString(answer.reply, "error") == "not_unlocked") {
    // A file that stays brings the same refusal next time, which says all there is to say.
    (void)UnlockFileForget();
  }
  return answer;
}

Answer AskUnlocked(Session& session, Json request) {
  const UnlockFileContent kept = UnlockFileRead();
  if (kept.token) return AskWithToken(session, std::move(request), *kept.token);
  session.complain(kept.problem.empty() ? "Unlock first: kioskctl unlock" : kept.problem);
  return {ExitStatus::kRefused, Json::object(), ""};
}

ExitStatus ChangeUnlocked(Session& session, Json request, const std::string& sentence) {
  const Answer answer = AskUnlocked(session, std::move(request));
  if (answer.status == ExitStatus::kSuccess && !session.json()) {
    std::cout << Printable(sentence) << '\n';
  }
  return answer.status;
}

}  // namespace client
