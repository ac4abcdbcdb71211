// The lock-out after wrong maintenance passwords, reckoned from the outside.
#pragma once

#include <optional>
#include <string>

/// What a password must be answered with, while somebody may set the wall clock.
class Passwords {
 public:
  /// What the terminal must answer at this time of the wall clock: "locked", "wrong_password", or
  /// an empty text for the right one. `elapsedSeconds` are those that pass whatever the clock says.
  std::string answer(bool right, double wallSeconds, double elapsedSeconds);

  /// The answer has come at this time: its check-in may have taken a while.
  void answered(const std::string& answer, double wallSeconds, double elapsedSeconds);

  /// Somebody set the wall clock back.
  void wallClockSetBack() { _openBy.reset(); }

  /// Whether five minutes have passed since the last word on the lock without the clock having been
  /// set back: it must be open, whatever else.
  bool mustBeOpen(double elapsedSeconds) const { return _openBy && elapsedSeconds >= *_openBy; }

  std::size_t lockOuts() const { return _lockOuts; }

 private:
  double _until = 0;  // wall-clock seconds
  int _failures = 0;
  std::optional<double> _openBy;  // elapsed seconds
  std::size_t _lockOuts = 0;
};
