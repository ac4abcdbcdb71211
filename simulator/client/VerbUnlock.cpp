#include <algorithm>
#include <cmath>
#include <ctime>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "simulator/client/Limits.h"
#include "simulator/client/LocalTime.h"
#include "simulator/client/Password.h"
#include "simulator/client/UnlockFile.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

ExitStatus Refuse(const Session& session, const std::string& sentence) {
  session.complain(sentence);
  return ExitStatus::kRefused;
}

/// "10 minutes", "1 minute", "90 seconds".
std::string Duration(long seconds) {
  const bool minutes = seconds >= 60 && seconds % 60 == 0;
  const long number = minutes ? seconds / 60 : seconds;
  return std::to_string(number) + (minutes ? " minute" : " second") + (number == 1 ? "" : "s");
}

/// Takes the token out of the reply, which is shown without it.
std::optional<std::string> TakeToken(Answer& answer) {
  std::optional<std::string> token = ReplyString(answer.reply, "unlockToken");
  if (answer.reply.erase("unlockToken") > 0) answer.text = RequestText(answer.reply);
  if (token && token->size() > kMaximumTokenBytes) token.reset();
  return token;
}

ExitStatus Keep(const Session& session, const std::string& token, double life) {
  const double seconds = std::min(life, kMaximumUnlockSeconds);
  const std::string problem = UnlockFileWrite(token, seconds);
  if (!problem.empty()) return Refuse(session, "The unlock cannot be kept: " + problem);
  const long whole = std::lround(seconds);
  if (!session.json()) {
    std::cout << "Unlocked until " << LocalTime(std::time(nullptr) + whole, "%H:%M:%S") << " ("
              << Duration(whole) << ").\n";
  }
  return ExitStatus::kSuccess;
}

ExitStatus Unlock(Session& session) {
  // Better known before the password is typed than after.
  const std::string obstacle = UnlockFileObstacle();
  if (!obstacle.empty()) return Refuse(session, obstacle);
  const std::optional<std::string> password = PasswordRead(session);
  if (!password) return ExitStatus::kUsage;
  Answer answer = session.send(RequestText({{"cmd", "unlock"}, {"password", *password}}));
  const std::optional<std::string> token = TakeToken(answer);
  session.show(answer);
  session.explain(answer);
  if (answer.status != ExitStatus::kSuccess) return answer.status;
  if (!token) return session.incomplete("unlockToken");
  const std::optional<double> life = ReplyNumber(answer.reply, "expiresInSeconds");
  if (!life) return session.incomplete("expiresInSeconds");
  return Keep(session, *token, *life);
}

ExitStatus Forget(const Session& session) {
  const std::string problem = UnlockFileForget();
  if (!problem.empty()) return Refuse(session, problem);
  if (!session.json()) std::cout << "The unlock is forgotten.\n";
  return ExitStatus::kSuccess;
}

}  // namespace

VerbAction VerbUnlock(CLI::App& command) {
  const auto forget = std::make_shared<bool>(false);
  command.add_flag("--forget", *forget, "Forget the unlock instead; nothing is sent");
  command.footer(
      "Asks for the password, or reads one line where standard input is no terminal.\n"
      "The unlock is kept for the commands of this terminal session, in a file that only\n"
      "you can read in XDG_RUNTIME_DIR or /tmp.\n\n" +
      command.get_footer());
  return [forget](Session& session) { return *forget ? Forget(session) : Unlock(session); };
}

}  // namespace client
