// The kiosk application's reports about its session.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "simulator/client/Connection.h"
#include "simulator/client/Occupancy.h"

namespace client {

/// Reports how the terminal is used: at once when that changes and when the daemon has gone and
/// come back, and again every kReportInterval. A file tells how it is used: it holds the name of an
/// occupancy. Without the file the terminal is idle; one that is no regular file, too long or
/// without such a name (not written yet) changes nothing. One thread.
class SessionReporter {
 public:
  /// Reports over `connection`, which must outlive this, what the file at `path` says.
  SessionReporter(Connection& connection, std::string path);

  /// Looks at the file and reports if that is due as of `now`. Returns {"report": the occupancy's
  /// name, "outcome": "ok", the daemon's error code, or "no_answer"} when that differs from what
  /// was returned last.
  std::optional<Json> step(std::chrono::steady_clock::time_point now);

 private:
  bool due(std::chrono::steady_clock::time_point now) const;
  std::string report();

  Connection& _connection;
  std::string _path;
  const Occupancy* _occupancy = &kIdle;
  const Occupancy* _reported = nullptr;  // in the last report, answered or not
  bool _answered = false;
  std::chrono::steady_clock::time_point _next;  // when a report is due in any case
  Json _last;
};

}  // namespace client
