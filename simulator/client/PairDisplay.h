// What "kioskctl pair" shows while it waits.
#pragma once

#include <string>

#include "simulator/client/Screen.h"

namespace client {

/// Shows a pairing code, how its time runs down and how pairing ended: on a terminal as block
/// letters above one line that is written over and over; elsewhere as plain lines without control
/// sequences; not at all when `silent`. Writes to standard output. One thread.
class PairDisplay {
 public:
  explicit PairDisplay(bool silent);

  /// Shows the code.
  void code(const std::string& code) const;

  /// Shows how many seconds the code has left: each second on a terminal, each minute elsewhere.
  void remaining(int seconds);

  /// Sets the sentence that goes with the time from now on, or takes it away (empty).
  void note(const std::string& sentence);

  /// Ends the line that is written over, so that other output starts on its own.
  void endLine();

  /// Shows a sentence.
  void sentence(const std::string& text) const;

  /// Counts down the seconds until the restart. Returns when they have passed; where there is no
  /// terminal, after saying so once.
  void restart(int seconds);

  /// Whether the reader of standard output is still there.
  bool works() const;

 private:
  Screen _screen;
  std::string _note;
  int _shownMinutes = -1;
};

}  // namespace client
