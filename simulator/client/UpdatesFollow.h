// Following a check or an install of updates.
#pragma once

#include <chrono>
#include <functional>

#include "simulator/client/Screen.h"
#include "simulator/client/Session.h"

namespace client {

/// An operation as it is called by people and by "os.updates".
struct UpdatesOperation {
  const char* name;
  const char* flag;
};
inline constexpr UpdatesOperation kUpdatesCheck = {"check", "checking"};
inline constexpr UpdatesOperation kUpdatesInstall = {"install", "installing"};

/// The request for the record.
Json UpdatesRequest();

/// Asks for the record again and again, `interval` apart, until the operation is no longer under
/// way, there is no record to be had, or nobody reads what is printed; `answer` is the first
/// record. `each` sees every record of the operation under way. Then the screen's line is ended and
/// said why the end was not seen, if it was not; the answer is a success only when it was.
Answer UpdatesFollow(Session& session, Screen& screen, Answer answer,
                     const UpdatesOperation& operation, std::chrono::milliseconds interval,
                     const std::function<void(const Json& record)>& each);

}  // namespace client
