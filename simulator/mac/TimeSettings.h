// The clock and its synchronisation, as the Mac's time.json has them. The Mac's clock is the
// host's; how far it is out is a number in the file.
#pragma once

#include <string>

#include "platform/Json.h"

namespace simmac {

/// What the file says; the value of a new Mac for what it does not say, or says wrongly.
struct TimeSettings {
  std::string server;  ///< the network time server
  bool usingNetworkTime = true;
  double offset = 0;      ///< seconds by which the clock is behind
  double error = 0;       ///< of a measurement, in seconds
  std::string address;    ///< what every name of a time server resolves to
  bool resolves = true;   ///< whether it does
  bool reachable = true;  ///< whether time servers answer
};

/// What stands in a new Mac's time.json.
Json TimeSettingsSeed();

/// Reads the settings from the contents of time.json.
TimeSettings ParseTimeSettings(const Json& time);

}  // namespace simmac
