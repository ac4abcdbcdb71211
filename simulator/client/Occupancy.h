// How the terminal is used, as the kiosk application reports it to the daemon.
#pragma once

#include <string_view>

#include "simulator/client/Reply.h"

namespace client {

/// A way to use the terminal.
struct Occupancy {
  std::string_view name;
  bool live;      ///< a stream is live
  bool signedIn;  ///< somebody is signed in
};

/// Streams are watched by somebody who is signed in.
inline constexpr Occupancy kLive = {"live", true, true};
inline constexpr Occupancy kSignedIn = {"signed-in", false, true};
inline constexpr Occupancy kIdle = {"idle", false, false};

/// The way of that name; null when there is none. Any thread.
const Occupancy* OccupancyNamed(std::string_view name);

/// The request that reports it. Any thread.
Json OccupancyReport(const Occupancy& occupancy);

}  // namespace client
