// The GUI sessions of a simulated Mac, as their login windows tell of them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"

namespace simmac {

/// An agent that a session has loaded.
struct SessionAgent {
  int number = 0;  ///< what its login window calls it
  std::string label;
  pid_t pid = 0;                  ///< 0: it does not run
  std::optional<int> lastStatus;  ///< how it ended last, as a shell has it
};

/// A session that is open.
struct GuiSession {
  uid_t uid = 0;
  pid_t pid = 0;   ///< its login window
  pid_t asid = 0;  ///< its audit session
  std::vector<SessionAgent> agents;
};

/// A session's file inside the Mac.
std::string GuiSessionPath(uid_t uid);

/// The open session of a user, or nothing. A file whose lock nobody holds is a session that ended.
std::optional<GuiSession> GuiSessionOf(const platform::MacTree& mac, uid_t uid);

/// Every open session, in order of user ids.
std::vector<GuiSession> GuiSessions(const platform::MacTree& mac);

/// Writes down that the calling process leads the session of `uid`. The session is open as long as
/// the result is. Empty with errno set when the user has a session already or the file cannot be
/// written.
Descriptor OpenGuiSession(const platform::MacTree& mac, uid_t uid);

/// Writes down the agents of the session that the calling process leads. `session` is what
/// OpenGuiSession gave. False when the file cannot be written.
[[nodiscard]] bool WriteSessionAgents(const Descriptor& session, uid_t uid,
                                      const std::vector<SessionAgent>& agents);

/// The signal by which a login window is told to unload the agent whose number comes with it.
int UnloadAgentSignal();

/// Tells a session's login window to unload an agent. False with errno set when it cannot be told.
[[nodiscard]] bool BootOutAgent(const GuiSession& session, const SessionAgent& agent);

/// Kills the session of a user with all its agents and waits until they are gone. True when there
/// was none; false when some of it is left after a while.
[[nodiscard]] bool KillGuiSession(const platform::MacTree& mac, uid_t uid);

}  // namespace simmac
