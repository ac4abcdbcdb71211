// A year of a terminal in virtual time: what the portal, the people and the clock do to it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/KioskDaemon.h"
#include "tests/unit/Random.h"
#include "tests/year/Passwords.h"
#include "tests/year/Reckoning.h"

struct YearPlan {
  const Zone& zone;
  std::uint64_t seed = 1;
  std::size_t answeredPercent = 100;  ///< of the time in which the portal is there
};

/// The root in which years are lived, with the zones of the time zone database. Once a process,
/// and every year afterwards is of this process.
void EnterYears();

/// Sets the root's time zone.
void EnterZone(const Zone& zone);

class Year {
 public:
  explicit Year(const YearPlan& plan);
  ~Year();
  Year(const Year&) = delete;
  Year& operator=(const Year&) = delete;

  /// Lives it; up to the first thing that is not as it must be, which becomes a test failure with
  /// the seed, the time and the last lines of the log.
  void live();

  const Tally& tally() const { return _reckoning.tally(); }
  /// What happened to the terminal, by name.
  const Tally& events() const { return _events; }
  const std::vector<Happening>& log() const { return _log; }
  std::size_t lockOuts() const { return _passwords.lockOuts(); }

 private:
  // Running
  std::uint64_t elapsedNs() const;
  double elapsed() const { return static_cast<double>(elapsedNs()) / 1e9; }
  void step();
  void advance(std::uint64_t ns);
  void take();
  void settle();
  void holdSaved();
  void complain(const std::string& what);
  Json command(const Json& request);

  // Planning: seconds from now
  void in(double seconds, std::function<void()> event);
  double between(double least, double most);
  void again(double least, double most, void (Year::*event)());

  // Events
  void boot();
  void switchOff(double seconds);
  void evening();
  void portalChanges();
  void portalAnswersFor(double seconds);
  void policyChanges();
  void policyIs(const UpdatePolicy& policy);
  void clockIsSet();
  void shiftClock(double seconds);
  void updatesChange();
  void terminalIsUsed();
  void report(bool live, bool signedIn, double until, bool saysGoodbye);
  void passwordsAreTried();
  void attempt(bool right);
  void planClockChanges();

  const YearPlan _plan;
  Random _dice;
  Reckoning _reckoning;
  Passwords _passwords;
  std::shared_ptr<KioskDaemon> _daemon;  // null while the Mac is off
  std::multimap<std::uint64_t, std::function<void()>> _schedule;
  std::uint64_t _bootedElapsedNs = 0;  // the year's time at the boot; while off, now
  std::uint64_t _bootedNs = 0;         // the monotonic clock's
  double _repliedWall = 0;             // when the last command was answered
  double _replied = 0;                 // the same in elapsed seconds
  bool _isQuiet = false;               // the nights around a change to or from summer time
  bool _failed = false;
  std::vector<Happening> _log;
  Tally _events;
};
