// Everything that a daemon or a caller can make the client allocate, show or wait for.
#pragma once

#include <chrono>
#include <cstddef>

namespace client {

/// Longest frame, its length field not counted.
inline constexpr std::size_t kMaximumFrameBytes = std::size_t{1} << 20;

/// Bytes of a frame's kind and number.
inline constexpr std::size_t kFrameHeadBytes = 5;

/// Longest request: what a frame holds besides its head, the key "request" and two zero bytes.
inline constexpr std::size_t kMaximumRequestBytes =
    kMaximumFrameBytes - kFrameHeadBytes - sizeof("request") - 1;

/// Deepest nesting of a reply; writing a value out recurses once a level.
inline constexpr int kMaximumReplyDepth = 64;

/// Longest life of a pairing code that is believed.
inline constexpr double kMaximumCodeLifeSeconds = 24 * 60 * 60;

/// Longest wait for a restart that is believed.
inline constexpr double kMaximumRestartSeconds = 60 * 60;

/// Shortest and longest duration that an option may set.
inline constexpr double kMinimumOptionSeconds = 0.001;
inline constexpr double kMaximumOptionSeconds = 24 * 60 * 60;

/// Longest password.
inline constexpr std::size_t kMaximumPasswordBytes = 1024;

/// Longest unlock token, and longest file that keeps one.
inline constexpr std::size_t kMaximumTokenBytes = 256;
inline constexpr std::size_t kMaximumUnlockFileBytes = 4096;

/// Longest life of an unlock that is believed.
inline constexpr double kMaximumUnlockSeconds = 24 * 60 * 60;

/// Widest cell that widens its column.
inline constexpr std::size_t kMaximumColumnWidth = 60;

/// How long to wait between two questions about a check or an install of updates.
inline constexpr std::chrono::seconds kUpdatesInterval{1};

/// Shortest time between two lines about an install's progress, and its longest bar in columns.
inline constexpr std::chrono::milliseconds kProgressLineInterval{250};
inline constexpr std::size_t kMaximumBarWidth = 40;

/// How long the kiosk application waits for the channel to appear, and between two attempts.
inline constexpr std::chrono::seconds kAppearanceTimeout{10};
inline constexpr std::chrono::milliseconds kAppearanceInterval{200};

/// How long the kiosk application waits for the answer to its first question.
inline constexpr std::chrono::seconds kStatusTimeout{10};

/// How often the kiosk application repeats its session report, a report that had no answer, and its
/// look at how the terminal is used; a report counts for 150 seconds.
inline constexpr std::chrono::seconds kReportInterval{30};
inline constexpr std::chrono::seconds kReportRetryInterval{2};
inline constexpr std::chrono::seconds kOccupancyInterval{1};

/// How long it waits for the answer to a report; the daemon may have other work before it.
inline constexpr std::chrono::seconds kReportTimeout{60};

/// Longest file that tells it how the terminal is used.
inline constexpr std::size_t kMaximumOccupancyFileBytes = 64;

}  // namespace client
