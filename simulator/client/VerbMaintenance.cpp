#include <iostream>
#include <optional>
#include <string>

#include "simulator/client/Password.h"
#include "simulator/client/UnlockFile.h"
#include "simulator/client/Unlocked.h"
#include "simulator/client/Verbs.h"

namespace client {
namespace {

/// The kept token serves as the password does.
Answer Ask(Session& session, const UnlockFileContent& kept) {
  const Json request = {{"cmd", "maintenance"}};
  if (kept.token) return AskWithToken(session, request, *kept.token);
  const std::optional<std::string> password = PasswordRead(session);
  if (!password) return {ExitStatus::kUsage, Json::object(), ""};
  return session.ask({{"cmd", "maintenance"}, {"password", *password}});
}

ExitStatus RunMaintenance(Session& session) {
  const UnlockFileContent kept = UnlockFileRead();
  if (!kept.problem.empty()) {
    session.complain(kept.problem);
    return ExitStatus::kRefused;
  }
  const Answer answer = Ask(session, kept);
  if (answer.status != ExitStatus::kSuccess) return answer.status;
  (void)UnlockFileForget();  // maintenance ends every unlock; the daemon would refuse it
  if (!session.json()) {
    std::cout << "Maintenance: the kiosk session ends, and the Mac does not log in by itself until "
                 "it has restarted.\n";
  }
  return ExitStatus::kSuccess;
}

}  // namespace

VerbAction VerbMaintenance(CLI::App& command) {
  command.footer(
      "Takes the unlock of this terminal session; without one it asks for the password, or\n"
      "reads one line where standard input is no terminal.\n\n" +
      command.get_footer());
  return RunMaintenance;
}

}  // namespace client
