// What a year must look like, reckoned from the outside: which check-in is due when, what each must
// do about OS updates, and what became of every window.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "tests/year/Around.h"
#include "tests/year/Civil.h"
#include "tests/year/Policies.h"

/// Receives what is not so.
using Complaint = std::function<void(const std::string& what)>;

/// How much of what there was in a year, by name.
using Tally = std::map<std::string, std::size_t>;

/// Follows a daemon by its log and by what the doubles saw. Elapsed seconds are those of the year,
/// off or on; monotonic time is the Mac's since its boot.
class Reckoning {
 public:
  Reckoning(const Zone& zone, double wallSeconds, Complaint complain);

  /// The Mac is on from now on, or off; nothing of the former boot is remembered but what is saved.
  void switchedOn(std::uint64_t monotonicNs);
  void switchedOff();

  /// Somebody set the wall clock.
  void wallClockShifted(double seconds) { _wallAhead += seconds; }

  /// What the portal sends from now on; the terminal has it after the next check-in.
  void policyOffered(const UpdatePolicy& policy) { _offered = policy; }

  /// The kiosk application reported.
  void reported(bool live, bool signedIn, std::uint64_t monotonicNs);

  /// A check-in that a command brought about is no check-in of the timer's.
  void commandBegins() { _inCommand = true; }
  void commandEnded() { _inCommand = false; }

  /// The year has come so far; the Mac was as it is now since the last call.
  void passTo(double elapsedSeconds);

  /// Something that the log or a double noted, at this time of the year.
  void note(const Happening& happening, double elapsedSeconds);

  /// Everything that is due has run. `dueInNs` is when the next delayed work is.
  void settled(std::uint64_t monotonicNs, std::optional<std::uint64_t> dueInNs);

  /// The last window ends.
  void yearEnds();

  const UpdatePolicy& policy() const { return _policy; }
  double wallSeconds() const { return _elapsed + _wallAhead; }
  const Tally& tally() const { return _tally; }

 private:
  // A stretch of time during which one window was open.
  struct Window {
    long day = 0;
    double onSeconds = 0;  // the longest that the Mac was on in it without a pause
    double presentlyOn = 0;
    double slowest = 0;  // the longest interval between check-ins in it, in seconds
    std::size_t checkIns = 0;
    std::size_t held = 0;  // of them, those that an attempt a little earlier held back
    std::size_t runs = 0;
    std::size_t deferrals = 0;
    bool wasDone = false;  // its day had had its run when it opened
    double opened = 0;     // wall-clock seconds
  };

  void look(double seconds);
  void close();
  std::string fate(const Window& window) const;
  void checkedIn(const Happening& checkIn);
  void expectAttempt(const Happening& checkIn);
  void wrote(const Happening& line);
  void wroteOfAttempt(const std::string& line);
  void wroteOfRestart(const Happening& line);
  void installBegan(long day);
  void installEnded(const Happening& line);
  std::string wordOnRestart(const Happening& line) const;
  std::optional<long> openAt(double wall) const;
  std::optional<std::string> inUse(std::uint64_t monotonicNs) const;

  const Zone& _zone;
  Complaint _complain;
  double _elapsed = 0;
  double _wallAhead;  // the wall clock without the elapsed seconds
  bool _on = false;
  bool _inCommand = false;
  UpdatePolicy _offered;
  UpdatePolicy _policy;  // what the terminal has

  std::optional<std::uint64_t> _dueNs;  // of the next check-in
  std::uint64_t _busyUntilNs = 0;       // until then the daemon had no time for it
  double _interval = 30;

  std::optional<Window> _window;
  std::optional<long> _doneDay;             // of the last window that had its run
  std::optional<std::uint64_t> _attemptNs;  // the last attempt of this boot
  std::optional<std::uint64_t> _reportNs;   // the last report of this boot
  bool _live = false;
  bool _signedIn = false;
  std::optional<std::string> _expected;  // the line that must come next of those on attempts
  std::optional<long> _installing;
  bool _restartWord = false;  // one is due
  Tally _tally;
};
