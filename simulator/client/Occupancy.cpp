#include "simulator/client/Occupancy.h"

namespace client {

const Occupancy* OccupancyNamed(std::string_view name) {
  for (const Occupancy* const occupancy : {&kLive, &kSignedIn, &kIdle}) {
    if (occupancy->name == name) return occupancy;
  }
  return nullptr;
}

Json OccupancyReport(const Occupancy& occupancy) {
  return {{"cmd", "session.report"}, {"live", occupancy.live}, {"signedIn", occupancy.signedIn}};
}

}  // namespace client
