// What "kioskctl updates install" shows while it waits.
#pragma once

#include <chrono>

#include "simulator/client/Screen.h"

namespace client {

/// Shows how far an install is: on a terminal as a bar that is drawn in place, elsewhere as a line
/// when the percentage has changed, at most one in kProgressLineInterval. One thread.
class InstallDisplay {
 public:
  /// Draws on `screen`, which must outlive this.
  explicit InstallDisplay(Screen& screen);

  /// Shows `percent` (0 to 100) as of `now`.
  void progress(int percent, std::chrono::steady_clock::time_point now);

 private:
  Screen& _screen;
  int _shownPercent = -1;
  std::chrono::steady_clock::time_point _shownAt;
};

}  // namespace client
