// The GUI sessions of a simulated Mac, as their login windows tell of them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/simulated/MacFiles.h"
#include "simulator/mac/Descriptor.h"

namespace simmac {

/// A session that is open.
struct GuiSession {
  uid_t uid = 0;
  pid_t pid = 0;   ///< its login window
  pid_t asid = 0;  ///< its audit session
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

}  // namespace simmac
