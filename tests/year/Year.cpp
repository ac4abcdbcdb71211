#include "tests/year/Year.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include "core/KioskJson.h"
#include "platform/Clock.h"
#include "tests/fuzz/world/World.h"
#include "tests/support/virtual/Boot.h"
#include "tests/support/virtual/VirtualTime.h"

namespace {

constexpr double kMinute = 60;
constexpr double kHour = 60 * kMinute;
constexpr double kDay = 24 * kHour;
constexpr double kYear = 365 * kDay;
constexpr double kAQuarter = 0.25;  // the grain of everything, which a double holds exactly
constexpr std::size_t kLastLines = 15;
constexpr char kZones[] = "/usr/share/zoneinfo/";
constexpr char kPassword[] = "Open Sesame";

const std::map<std::string, std::string>& ZoneFiles() {
  static const std::map<std::string, std::string> files = [] {
    std::map<std::string, std::string> read;
    for (const Zone* zone : {&kBerlin, &kNewYork, &kSydney}) {
      std::ifstream file(std::string(kZones) + zone->name, std::ios::binary);
      read[zone->name] = std::string(std::istreambuf_iterator<char>(file), {});
    }
    return read;
  }();
  return files;
}

std::uint64_t Ns(double seconds) {
  return static_cast<std::uint64_t>(std::llround(seconds / kAQuarter)) *
         (virtual_time::kSecondNs / 4);
}

double YearBegins() { return static_cast<double>(DayNumber(2027, 1, 1)) * kDay + kAQuarter; }

}  // namespace

void EnterYears() {
  [[maybe_unused]] static const bool entered = [] {
    static_cast<void>(ZoneFiles());
    setenv("TMPDIR", "/dev/shm", 0);  // a year saves its state some ten thousand times
    unsetenv("TZ");
    stderr = std::fopen("/dev/null", "we");  // a year's log is kept, not printed
    EnterWorld();
    ResetWorld();
    return true;
  }();
}

// As on a Mac: a link, so that a change is one of files, which the C library notices at once.
void EnterZone(const Zone& zone) {
  constexpr char kLocalTime[] = "/etc/localtime";
  const std::string file = std::string(kZones) + zone.name;
  WorldWrite(file, ZoneFiles().at(zone.name));
  unlink(kLocalTime);
  ASSERT_EQ(symlink(file.c_str(), kLocalTime), 0);
}

Year::Year(const YearPlan& plan)
    : _plan(plan),
      _dice(plan.seed),
      _reckoning(plan.zone, YearBegins(), [this](const std::string& what) { complain(what); }) {
  EnterYears();
  ResetWorld();
  EnterZone(plan.zone);
  SetKioskAccount(true);
  TheAround() = Around();
  WorldWrite(kWorldStateFile, Json{{"token", "t"},
                                   {"provisioned", true},
                                   {"generatedUID", kAccountUuid},
                                   {"password", std::string(32, 'p')},
                                   {"exitPassword", kPassword}}
                                  .dump());
  virtual_time::ShiftWallClock(YearBegins() - platform::ClockSecondsSince1970());
}

Year::~Year() {
  _daemon.reset();
  virtual_time::Boot();
}

// --- running
// ---------------------------------------------------------------------------------------

std::uint64_t Year::elapsedNs() const {
  return _bootedElapsedNs + (_daemon ? platform::ClockMonotonicNs() - _bootedNs : 0);
}

void Year::live() {
  boot();
  policyIs(PolicyOf(120, 180));
  again(0, 0, &Year::portalChanges);
  again(1, kDay, &Year::policyChanges);
  again(1, kDay, &Year::evening);
  again(1, 4 * kDay, &Year::clockIsSet);
  again(1, kHour, &Year::updatesChange);
  again(1, kDay, &Year::terminalIsUsed);
  again(1, kDay, &Year::passwordsAreTried);
  planClockChanges();
  while (!_failed && elapsed() < kYear) step();
  _reckoning.yearEnds();
}

// As far as the next event or the next delayed work of the daemon.
void Year::step() {
  const std::uint64_t event = _schedule.begin()->first;
  const std::uint64_t now = elapsedNs();
  std::uint64_t wait = event > now ? event - now : 0;
  if (const auto due = virtual_time::NanosecondsUntilNext()) wait = std::min(wait, *due);
  advance(wait);
  while (!_failed && !_schedule.empty() && _schedule.begin()->first <= elapsedNs()) {
    const std::function<void()> next = std::move(_schedule.begin()->second);
    _schedule.erase(_schedule.begin());
    next();
    settle();
  }
  if (std::exchange(TheAround().restartAsked, false)) switchOff(90);
}

void Year::advance(std::uint64_t ns) {
  if (_daemon) {
    virtual_time::Advance(ns);
  } else {
    _bootedElapsedNs += ns;
    virtual_time::ShiftWallClock(static_cast<double>(ns) / 1e9);
  }
  settle();
}

// Hands what happened to the reckoning.
void Year::take() {
  for (Happening& each : std::exchange(TheAround().happenings, {})) {
    const double at = static_cast<double>(_bootedElapsedNs + each.monotonicNs - _bootedNs) / 1e9;
    _log.push_back(each);
    if (!_failed) _reckoning.note(each, at);
  }
}

void Year::settle() {
  take();
  if (_failed) return;
  _reckoning.passTo(elapsed());
  const std::size_t most = _daemon ? 1 : 0;
  if (virtual_time::PendingCount() != most) complain("not exactly one check-in is pending");
  _reckoning.settled(platform::ClockMonotonicNs(), virtual_time::NanosecondsUntilNext());
}

Json Year::command(const Json& request) {
  _reckoning.commandBegins();
  const Json reply = _daemon->handle(request, {kWorldUid, 100});
  _repliedWall = platform::ClockSecondsSince1970();
  _replied = elapsed();
  take();
  _reckoning.commandEnded();
  virtual_time::RunReady();
  settle();
  return reply;
}

void Year::complain(const std::string& what) {
  if (_failed) return;
  _failed = true;
  std::ostringstream lines;
  const std::size_t count = std::min(_log.size(), kLastLines);
  for (std::size_t at = _log.size() - count; at < _log.size(); ++at) {
    const Happening& each = _log[at];
    lines << "\n  " << LocalText(_plan.zone, each.wallSeconds) << "  "
          << static_cast<double>(each.monotonicNs) / 1e9 << " s  "
          << (each.kind == Happening::Kind::kLog ? each.text
              : each.answered                    ? "(a check-in)"
                                                 : "(a check-in without an answer)");
  }
  ADD_FAILURE() << what << "\n"
                << _plan.zone.name << ", seed " << _plan.seed << ", day "
                << static_cast<int>(elapsed() / kDay) << ", local time "
                << LocalText(_plan.zone, platform::ClockSecondsSince1970()) << "\npolicy "
                << _reckoning.policy().sent << "\nthe log's last lines:" << lines.str();
}

// --- planning
// --------------------------------------------------------------------------------------

void Year::in(double seconds, std::function<void()> event) {
  _schedule.emplace(elapsedNs() + Ns(seconds), std::move(event));
}

double Year::between(double least, double most) {
  return least + static_cast<double>(_dice.below(static_cast<std::size_t>(most - least) + 1));
}

void Year::again(double least, double most, void (Year::*event)()) {
  in(between(least, most), [this, event] { (this->*event)(); });
}

// --- the Mac
// ---------------------------------------------------------------------------------------

void Year::boot() {
  const std::uint64_t now = elapsedNs();
  virtual_time::Boot();
  _bootedElapsedNs = now;
  _bootedNs = platform::ClockMonotonicNs();
  _daemon = std::make_shared<KioskDaemon>();
  _reckoning.switchedOn(_bootedNs);
  _daemon->queue().sync([this] { _daemon->start(); });
}

void Year::switchOff(double seconds) {
  if (!_daemon) return;
  _bootedElapsedNs = elapsedNs();
  _daemon.reset();
  virtual_time::Boot();
  _bootedNs = platform::ClockMonotonicNs();
  _reckoning.switchedOff();
  in(seconds, [this] { boot(); });
}

void Year::evening() {
  again(20 * kHour, 28 * kHour, &Year::evening);
  if (_isQuiet) return;
  if (_dice.oneIn(40)) {
    ++_events["days off"];
    switchOff(between(2 * kDay, 5 * kDay));
  } else if (_dice.oneIn(4)) {
    ++_events["nights off"];
    switchOff(between(kHour, 12 * kHour));
  }
}

// --- the portal
// ------------------------------------------------------------------------------------

void Year::portalAnswersFor(double seconds) {
  TheAround().portal = PortalMood::kAnswers;
  TheAround().portalTakesNs = _dice.oneIn(5) ? Ns(between(1, 14)) : 0;
  in(seconds, [this] { portalChanges(); });
}

void Year::portalChanges() {
  const double answers = between(5 * kMinute, kHour);
  if (_plan.answeredPercent >= 100 || TheAround().portal != PortalMood::kAnswers) {
    return portalAnswersFor(answers);
  }
  const auto percent = static_cast<double>(_plan.answeredPercent);
  Around& around = TheAround();
  around.portal = _dice.oneIn(3) ? PortalMood::kTrouble : PortalMood::kAway;
  around.trouble = _dice.below(100);
  around.portalTakesNs = _dice.oneIn(10) ? Ns(15) : 0;
  in(answers * (100 - percent) / percent, [this] { portalChanges(); });
}

void Year::policyIs(const UpdatePolicy& policy) {
  _reckoning.policyOffered(policy);
  Json answer = {{"status", "enrolled"}, {"exitPassword", kPassword}};
  if (!policy.sent.is_null()) answer["updates"] = policy.sent;
  TheAround().answer = answer.dump();
  ++_events[policy.automatic        ? "policies"
            : policy.isValid        ? "policies that are off"
            : policy.sent.is_null() ? "answers without a policy"
                                    : "policies that are invalid"];
}

void Year::policyChanges() {
  again(6 * kHour, 6 * kDay, &Year::policyChanges);
  if (!_isQuiet) policyIs(AnyPolicy(_dice));
}

// Around both changes the terminal is on and its policy is one of that hour.
void Year::planClockChanges() {
  for (double at = kDay; at < kYear; at += kHour) {
    const double wall = YearBegins() + at;
    if (_plan.zone.isSummer(wall) == _plan.zone.isSummer(wall - kHour)) continue;
    in(at - 36 * kHour, [this] {
      _isQuiet = true;
      policyIs(PolicyAroundAClockChange(_dice));
      TheAround().portal = PortalMood::kAnswers;
    });
    in(at + 36 * kHour, [this] {
      _isQuiet = false;
      ++_events["changes of summer time"];
    });
  }
}

// --- the clock
// -------------------------------------------------------------------------------------

// Somebody sets it wrong, and later right again.
void Year::clockIsSet() {
  again(kDay, 6 * kDay, &Year::clockIsSet);
  if (_isQuiet) return;
  const double size = _dice.oneIn(3)   ? between(1, kHour)
                      : _dice.oneIn(2) ? between(kHour, kDay)
                                       : between(kDay, 9 * kDay);
  const double seconds = _dice.oneIn(2) ? size : -size;
  shiftClock(seconds);
  in(between(kMinute, 2 * kDay), [this, seconds] { shiftClock(-seconds); });
}

void Year::shiftClock(double seconds) {
  ++_events[seconds > 0 ? "jumps forward" : "jumps back"];
  virtual_time::ShiftWallClock(seconds);
  _reckoning.wallClockShifted(seconds);
  if (seconds < 0) _passwords.wallClockSetBack();
}

// --- updates and people
// ----------------------------------------------------------------------------

void Year::updatesChange() {
  again(4 * kHour, 20 * kHour, &Year::updatesChange);
  Around& around = TheAround();
  around.pendingUpdates = _dice.below(4);
  around.listFails = _dice.oneIn(10);
  around.installFails = _dice.oneIn(8);
  around.updateNeedsRestart = _dice.oneIn(2);
  around.restartFails = _dice.oneIn(8);
  around.listTakesNs = Ns(between(0, 90));
  around.installTakesNs = Ns(between(0, 45 * kMinute));
}

// Mostly when a window opens, for some hours at most.
void Year::terminalIsUsed() {
  again(8 * kHour, 40 * kHour, &Year::terminalIsUsed);
  double begins = between(0, kDay);
  if (!_dice.oneIn(3)) {
    const UpdatePolicy& policy = _reckoning.policy();
    for (begins = 0; begins < kDay; begins += 5 * kMinute) {
      const double wall = _reckoning.wallSeconds() + begins;
      if (OpenWindow(policy, LocalMinuteOf(_plan.zone, wall))) break;
    }
  }
  const bool live = _dice.oneIn(2);
  const bool signedIn = !live || _dice.oneIn(2);
  const double lasts = between(10 * kMinute, 6 * kHour);
  const bool saysGoodbye = _dice.oneIn(2);
  in(std::max(0.0, begins - 10 * kMinute), [this, live, signedIn, lasts, saysGoodbye] {
    ++_events["uses"];
    report(live, signedIn, elapsed() + lasts, saysGoodbye);
  });
}

void Year::report(bool live, bool signedIn, double until, bool saysGoodbye) {
  const bool over = elapsed() >= until;
  if (_daemon && (!over || saysGoodbye)) {
    const bool isLive = live && !over;
    const bool isSignedIn = signedIn && !over;
    const Json reply =
        command({{"cmd", "session.report"}, {"live", isLive}, {"signedIn", isSignedIn}});
    if (reply != Json{{"ok", true}}) complain("a report is answered with " + reply.dump());
    _reckoning.reported(isLive, isSignedIn, platform::ClockMonotonicNs());
  }
  if (over) return;
  in(between(60, 148),
     [this, live, signedIn, until, saysGoodbye] { report(live, signedIn, until, saysGoodbye); });
}

// Now and then while the clock is set.
void Year::passwordsAreTried() {
  again(8 * kHour, 3 * kDay, &Year::passwordsAreTried);
  double at = 0;
  const std::size_t tries = 1 + _dice.below(9);
  for (std::size_t each = 0; each < tries; ++each) {
    at += between(0, 40);
    in(at, [this, right = _dice.oneIn(9)] { attempt(right); });
  }
  if (!_isQuiet && _dice.oneIn(2)) {
    const double size = between(1, 2 * kHour);
    const double seconds = _dice.oneIn(3) ? size : -size;
    const double jumps = between(0, at + 200);
    in(jumps, [this, seconds] { shiftClock(seconds); });
    in(jumps + between(1, kHour), [this, seconds] { shiftClock(-seconds); });
  }
  for (int each = 0; each < 4; ++each) {
    in(at + between(0, 900), [this] { attempt(false); });
  }
}

// A lock-out, and every word of one, is followed by the right password five minutes later.
void Year::attempt(bool right) {
  if (!_daemon) return;
  const bool mustBeOpen = _passwords.mustBeOpen(elapsed());
  const std::string expected =
      _passwords.answer(right, platform::ClockSecondsSince1970(), elapsed());
  const std::size_t before = _passwords.lockOuts();
  const Json reply = command({{"cmd", "unlock"}, {"password", right ? kPassword : "guess"}});
  const std::string answer = reply.value("ok", false) ? "" : reply.value("error", "none");
  if (answer != expected) {
    complain("a password is answered with \"" + answer + "\" and not \"" + expected + "\"");
  }
  if (answer == "locked" && mustBeOpen) complain("a lock-out lasts longer than five minutes");
  _passwords.answered(answer, _repliedWall, _replied);
  if (answer == "locked") holdSaved();
  ++_events[answer.empty() ? "right passwords" : answer == "locked" ? "locked" : "wrong passwords"];
  if (answer != "locked" && _passwords.lockOuts() == before) return;
  if (_dice.oneIn(2)) in(299, [this] { attempt(true); });
  in(300, [this] { attempt(true); });
}

// After every word of a lock-out it ends within five minutes from now.
void Year::holdSaved() {
  const std::optional<Json> state = KioskJsonParse(WorldRead(kWorldStateFile).value_or(""));
  const double until = state ? state->value("maintenanceLockedUntil", 0.0) : 0.0;
  if (!(until <= platform::ClockSecondsSince1970() + 300)) {
    complain("a lock-out is saved that is longer than five minutes from now");
  }
}
