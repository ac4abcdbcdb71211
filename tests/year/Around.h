// What is around the daemon during a year: doubles of the tools, the portal, the user directory and
// the system log, which take the place of the daemon's process runner and of the platform's
// services when the tests are linked. One thread, virtual time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Something that happened, at the clocks' time then.
struct Happening {
  enum class Kind { kLog, kCheckIn };

  Kind kind = Kind::kLog;
  std::string text;           ///< a line of the log
  bool answered = false;      ///< a check-in: the portal answered it as it should
  std::uint64_t beganNs = 0;  ///< a check-in: when it was sent, by the monotonic clock
  std::uint64_t monotonicNs = 0;
  double wallSeconds = 0;
};

enum class PortalMood { kAnswers, kAway, kTrouble };

/// What the doubles do, and what they were asked.
struct Around {
  PortalMood portal = PortalMood::kAnswers;
  std::string answer;       ///< the body of the portal's answer
  std::size_t trouble = 0;  ///< which one
  std::uint64_t portalTakesNs = 0;

  bool listFails = false;
  bool installFails = false;
  bool updateNeedsRestart = false;
  bool restartFails = false;
  std::size_t pendingUpdates = 0;
  std::uint64_t listTakesNs = 0;
  std::uint64_t installTakesNs = 0;
  std::size_t lists = 0;
  std::size_t installs = 0;
  bool restartAsked = false;

  std::vector<Happening> happenings;
};

Around& TheAround();

/// The kiosk account's unique id in the directory.
inline constexpr char kAccountUuid[] = "6E1C9F0A-0000-4000-8000-000000000502";
