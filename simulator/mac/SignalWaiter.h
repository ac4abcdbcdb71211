// Waiting for signals or a point in time, and for nothing else.
#pragma once

#include <chrono>
#include <initializer_list>
#include <optional>

#include "simulator/mac/Descriptor.h"

namespace simmac {

using Clock = std::chrono::steady_clock;

/// Receives signals one after another. Main thread of a single-threaded program. Signals named at
/// construction are blocked from then on.
class SignalWaiter {
 public:
  SignalWaiter(std::initializer_list<int> signals);

  /// Sleeps until one of the signals arrives and returns its number; nothing once `deadline`, if
  /// there is one, has passed.
  std::optional<int> wait(std::optional<Clock::time_point> deadline);

  /// The number that came with the last signal, if its sender gave one (sigqueue).
  int value() const { return _value; }

 private:
  Descriptor _descriptor;
  int _value = 0;
};

}  // namespace simmac
