#include "simulator/client/Unlocked.h"

#include <iostream>
#include <utility>

#include "simulator/client/Printable.h"
#include "simulator/client/UnlockFile.h"

namespace client {
namespace {

/// A token that the daemon does not take is forgotten.
Answer ExchangeWithToken(Session& session, Json request, const std::string& token) {
  request["unlockToken"] = token;
  Answer answer = session.exchange(RequestText(request));
  // A file that stays brings the same refusal next time, which says all there is to say.
  if (IsNotUnlocked(answer)) (void)UnlockFileForget();
  return answer;
}

}  // namespace

bool IsNotUnlocked(const Answer& answer) {
  return answer.status == ExitStatus::kRefused &&
         ReplyString(answer.reply, "error") == "not_unlocked";
}

Answer AskWithToken(Session& session, Json request, const std::string& token) {
  Answer answer = ExchangeWithToken(session, std::move(request), token);
  session.explain(answer);
  return answer;
}

Answer ExchangeUnlocked(Session& session, Json request) {
  const UnlockFileContent kept = UnlockFileRead();
  if (kept.token) return ExchangeWithToken(session, std::move(request), *kept.token);
  return {ExitStatus::kRefused, {{"ok", false}, {"error", "not_unlocked"}}, ""};
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
