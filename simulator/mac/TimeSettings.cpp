#include "simulator/mac/TimeSettings.h"

#include <cmath>

#include "simulator/mac/JsonFields.h"

namespace simmac {
namespace {

std::string TextOr(const Json& object, const char* key, const std::string& otherwise) {
  const std::string text = TextOf(object, key);
  return text.empty() ? otherwise : text;
}

double SecondsOr(const Json& object, const char* key, double otherwise) {
  constexpr double kMost = 1e10;  // three centuries
  const Json& field = FieldOf(object, key);
  if (!field.is_number()) return otherwise;
  const double seconds = field.get<double>();
  return std::fabs(seconds) <= kMost ? seconds : otherwise;
}

}  // namespace

Json TimeSettingsSeed() {
  return {{"server", "time.apple.com"}, {"usingNetworkTime", true},
          {"offset", 0.0123},           {"error", 0.004},
          {"address", "192.0.2.123"},   {"resolves", true},
          {"reachable", true}};
}

TimeSettings ParseTimeSettings(const Json& time) {
  TimeSettings settings;
  settings.server = TextOr(time, "server", "time.apple.com");
  settings.usingNetworkTime = FlagOf(time, "usingNetworkTime", true);
  settings.offset = SecondsOr(time, "offset", 0);
  settings.error = std::fabs(SecondsOr(time, "error", 0));
  settings.address = TextOr(time, "address", "192.0.2.123");
  settings.resolves = FlagOf(time, "resolves", true);
  settings.reachable = FlagOf(time, "reachable", true);
  return settings;
}

}  // namespace simmac
